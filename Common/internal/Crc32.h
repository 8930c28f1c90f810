// The CRC-32 of zlib, PNG and the zip format (reflected, polynomial 0xEDB88320), over
// libdeflate. Every CRC-32 the library computes goes through here.
#ifndef VANTU_INTERNAL_CRC32_H
#define VANTU_INTERNAL_CRC32_H

#include <cstddef>
#include <cstdint>

namespace vantu::internal {

// Continues `crc` (0 to start) over `size` more bytes: Crc32(Crc32(0, a), b) is the CRC-32 of
// a followed by b.
uint32_t Crc32(uint32_t crc, const void* data, size_t size);

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_CRC32_H
