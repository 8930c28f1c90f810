// VChecksum: the CRC-32 of a stream of bytes (the reflected CRC-32 of zlib, PNG and zip),
// computed with libdeflate. The checksum of no bytes is 0; "123456789" gives 0xCBF43926.
//
// Thread safety: none inside; one object per thread.
#ifndef VANTU_VCHECKSUM_H
#define VANTU_VCHECKSUM_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include <vantu/Export.h>

class VANTU_API VChecksum {
 public:
  VChecksum();
  VChecksum(const VChecksum& other);
  VChecksum& operator=(const VChecksum& other);
  ~VChecksum();

  // Feeds `size` more bytes.
  void Update(const void* data, size_t size);
  // The checksum of every byte fed so far.
  uint32_t Checksum() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

#endif  // VANTU_VCHECKSUM_H
