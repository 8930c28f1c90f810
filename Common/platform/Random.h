// Random bytes from the operating system.
#ifndef VANTU_PLATFORM_RANDOM_H
#define VANTU_PLATFORM_RANDOM_H

#include <cstddef>

namespace vantu::platform {

// Fills the buffer from the kernel's cryptographic generator (getrandom), waiting for it to be
// seeded at boot, retrying on interruption. Throws std::system_error if the kernel refuses.
void FillRandom(void* buffer, size_t size);

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_RANDOM_H
