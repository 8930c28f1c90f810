// Compression and decompression of zip entry data, one class per direction over zlib, libbz2,
// liblzma and libzstd.
#ifndef VANTU_ZIP_INTERNAL_ZIPCODEC_H
#define VANTU_ZIP_INTERNAL_ZIPCODEC_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace vantu::internal {

// Turns an entry's compressed bytes back into its content, piece by piece.
class ZipDecoder {
 public:
  // A decoder for the method (0 store, 8 deflate, 12 bzip2, 14 LZMA, 93 zstd, 95 xz); null for
  // other methods. `lzmaEndMarker` is the entry's flag bit 1; `size` its declared size.
  static std::unique_ptr<ZipDecoder> Create(uint16_t method, bool lzmaEndMarker, uint64_t size);
  virtual ~ZipDecoder() = default;

  // Decodes from `in` into `out`; reports how much of each was used. `lastInput` says that no
  // compressed bytes follow `in`. Returns true once the compressed stream has ended. Throws
  // VantuDataException on corrupt data, including data that ends before its stream does.
  virtual bool Decode(const unsigned char* in, size_t inSize, size_t& consumed, unsigned char* out,
                      size_t outSize, size_t& produced, bool lastInput) = 0;
};

// Compresses an entry's content, piece by piece.
class ZipEncoder {
 public:
  // For method 0, 8 or 93; `level` -1 means the method's default.
  static std::unique_ptr<ZipEncoder> Create(uint16_t method, int level);
  virtual ~ZipEncoder() = default;
  // Appends the compressed form of `in` to `out`; `finish` ends the stream.
  virtual void Encode(const void* in, size_t size, bool finish, std::string& out) = 0;
};

}  // namespace vantu::internal

#endif  // VANTU_ZIP_INTERNAL_ZIPCODEC_H
