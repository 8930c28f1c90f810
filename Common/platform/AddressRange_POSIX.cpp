#include "platform/AddressRange.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace vantu::platform {

size_t PageSize() {
  static const size_t size = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

void* ReserveRange(size_t bytes) {
  // Over-reserve by one alignment unit and return the unaligned ends.
  const size_t total = bytes + kRangeAlignment;
  void* raw = ::mmap(nullptr, total, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  const uintptr_t base = reinterpret_cast<uintptr_t>(raw);
  const uintptr_t start = (base + kRangeAlignment - 1) & ~(uintptr_t{kRangeAlignment} - 1);
  if (start > base) ::munmap(raw, start - base);
  if (start + bytes < base + total) {
    ::munmap(reinterpret_cast<void*>(start + bytes), base + total - start - bytes);
  }
  // Advice only: where the kernel has no transparent huge pages, small pages serve.
  ::madvise(reinterpret_cast<void*>(start), bytes, MADV_HUGEPAGE);
  return reinterpret_cast<void*>(start);
}

bool CommitRange(void* start, size_t bytes) {
  return ::mprotect(start, bytes, PROT_READ | PROT_WRITE) == 0;
}

bool MoveRange(void* from, void* to, size_t bytes) {
  if (bytes == 0) return true;
  return ::mremap(from, bytes, bytes, MREMAP_MAYMOVE | MREMAP_FIXED, to) != MAP_FAILED;
}

void ReleaseRange(void* start, size_t bytes) {
  if (bytes != 0) ::munmap(start, bytes);
}

}  // namespace vantu::platform
