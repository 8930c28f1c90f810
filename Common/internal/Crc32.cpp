#include "internal/Crc32.h"

#include <libdeflate.h>

namespace vantu::internal {

uint32_t Crc32(uint32_t crc, const void* data, size_t size) {
  return size == 0 ? crc : libdeflate_crc32(crc, data, size);
}

}  // namespace vantu::internal
