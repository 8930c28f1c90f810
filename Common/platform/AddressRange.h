// Address ranges: address space reserved once and made accessible piece by piece, so that a
// growing buffer keeps its address and never copies its bytes.
#ifndef VANTU_PLATFORM_ADDRESSRANGE_H
#define VANTU_PLATFORM_ADDRESSRANGE_H

#include <cstddef>

namespace vantu::platform {

// Reservations are whole multiples of, and aligned to, this size (a huge page), and the kernel may
// back accessible parts of them with huge pages.
constexpr size_t kRangeAlignment = size_t{2} << 20;
// The size of a memory page.
size_t PageSize();
// Reserves `bytes` (a multiple of kRangeAlignment) of inaccessible address space; null on
// failure.
void* ReserveRange(size_t bytes);
// Makes [start, start + bytes) of a reservation readable and writable (page-aligned); false when
// the system refuses the memory.
bool CommitRange(void* start, size_t bytes);
// Moves the first `bytes` (page-aligned) of one reservation onto the start of another, keeping
// their content without copying it (the page tables move). Afterwards those bytes of the source
// are no longer mapped. False when the system refuses; both are then as they were.
bool MoveRange(void* from, void* to, size_t bytes);
// Returns [start, start + bytes) to the system.
void ReleaseRange(void* start, size_t bytes);

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_ADDRESSRANGE_H
