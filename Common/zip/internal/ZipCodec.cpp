#include "zip/internal/ZipCodec.h"

#include <vantu/VException.h>

#include <bzlib.h>
#include <lzma.h>
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace vantu::internal {
namespace {

// Largest piece handed to a library whose counters are 32-bit.
constexpr size_t kMaxPiece = 1u << 30;

// The memory a decoder may take (LZMA and xz dictionaries): larger ones are refused.
constexpr uint64_t kDecoderMemoryLimit = 256u << 20;

[[noreturn]] void BadData(const char* method, const std::string& why) {
  throw VantuDataException(std::string("Corrupt ") + method + " data: " + why);
}

class StoreDecoder : public ZipDecoder {
 public:
  bool Decode(const unsigned char* in, size_t inSize, size_t& consumed, unsigned char* out,
              size_t outSize, size_t& produced, bool lastInput) override {
    consumed = produced = std::min(inSize, outSize);
    std::memcpy(out, in, produced);
    return lastInput && consumed == inSize;
  }
};

class DeflateDecoder : public ZipDecoder {
 public:
  DeflateDecoder() {
    std::memset(&stream_, 0, sizeof(stream_));
    if (inflateInit2(&stream_, -MAX_WBITS) != Z_OK) throw std::bad_alloc();
  }
  ~DeflateDecoder() override { inflateEnd(&stream_); }

  bool Decode(const unsigned char* in, size_t inSize, size_t& consumed, unsigned char* out,
              size_t outSize, size_t& produced, bool) override {
    stream_.next_in = const_cast<Bytef*>(in);
    stream_.avail_in = static_cast<uInt>(std::min(inSize, kMaxPiece));
    stream_.next_out = out;
    stream_.avail_out = static_cast<uInt>(std::min(outSize, kMaxPiece));
    const int rc = inflate(&stream_, Z_NO_FLUSH);
    consumed = static_cast<size_t>(stream_.next_in - in);
    produced = static_cast<size_t>(stream_.next_out - out);
    if (rc == Z_STREAM_END) return true;
    if (rc != Z_OK && rc != Z_BUF_ERROR) BadData("deflate", stream_.msg ? stream_.msg : "error");
    return false;
  }

 private:
  z_stream stream_;
};

class Bzip2Decoder : public ZipDecoder {
 public:
  Bzip2Decoder() {
    std::memset(&stream_, 0, sizeof(stream_));
    if (BZ2_bzDecompressInit(&stream_, 0, 0) != BZ_OK) throw std::bad_alloc();
  }
  ~Bzip2Decoder() override { BZ2_bzDecompressEnd(&stream_); }

  bool Decode(const unsigned char* in, size_t inSize, size_t& consumed, unsigned char* out,
              size_t outSize, size_t& produced, bool) override {
    stream_.next_in = const_cast<char*>(reinterpret_cast<const char*>(in));
    stream_.avail_in = static_cast<unsigned>(std::min(inSize, kMaxPiece));
    stream_.next_out = reinterpret_cast<char*>(out);
    stream_.avail_out = static_cast<unsigned>(std::min(outSize, kMaxPiece));
    const int rc = BZ2_bzDecompress(&stream_);
    consumed = static_cast<size_t>(reinterpret_cast<const unsigned char*>(stream_.next_in) - in);
    produced = static_cast<size_t>(reinterpret_cast<unsigned char*>(stream_.next_out) - out);
    if (rc == BZ_STREAM_END) return true;
    if (rc != BZ_OK) BadData("bzip2", "error " + std::to_string(rc));
    return false;
  }

 private:
  bz_stream stream_;
};

// LZMA (method 14) and xz (method 95) through liblzma. The zip form of LZMA starts with a
// version (2 bytes), the length of the properties (2 bytes) and the properties (5 bytes); the
// decoder turns that into the header of the classic .lzma format, which also carries the size.
class LzmaDecoder : public ZipDecoder {
 public:
  LzmaDecoder(bool xz, bool endMarker, uint64_t size)
      : xz_(xz), endMarker_(endMarker), size_(size) {
    if (xz_ && lzma_stream_decoder(&stream_, kDecoderMemoryLimit, 0) != LZMA_OK) {
      throw std::bad_alloc();
    }
  }
  ~LzmaDecoder() override { lzma_end(&stream_); }

  bool Decode(const unsigned char* in, size_t inSize, size_t& consumed, unsigned char* out,
              size_t outSize, size_t& produced, bool lastInput) override {
    consumed = produced = 0;
    if (!xz_ && !started_) {
      // Gather the 9-byte zip header first.
      const size_t take = std::min(inSize, sizeof(header_) - headerSize_);
      std::memcpy(header_ + headerSize_, in, take);
      headerSize_ += take;
      consumed = take;
      if (headerSize_ < sizeof(header_)) {
        if (lastInput) BadData("LZMA", "header is truncated");
        return false;
      }
      if (header_[2] != 5 || header_[3] != 0) BadData("LZMA", "unexpected properties size");
      if (lzma_alone_decoder(&stream_, kDecoderMemoryLimit) != LZMA_OK) throw std::bad_alloc();
      unsigned char alone[13];
      std::memcpy(alone, header_ + 4, 5);
      const uint64_t size = endMarker_ ? std::numeric_limits<uint64_t>::max() : size_;
      for (int i = 0; i < 8; ++i) alone[5 + i] = static_cast<unsigned char>(size >> (8 * i));
      stream_.next_in = alone;
      stream_.avail_in = sizeof(alone);
      stream_.next_out = out;
      stream_.avail_out = outSize;
      // The header yields no output; the decoder takes it in a few steps.
      for (int step = 0; stream_.avail_in != 0; ++step) {
        const lzma_ret rc = lzma_code(&stream_, LZMA_RUN);
        if (rc != LZMA_OK || step == 8) Fail(rc);
      }
      if (stream_.avail_out != outSize) BadData("LZMA", "unexpected output");
      started_ = true;
      in += take;
      inSize -= take;
    }
    stream_.next_in = in;
    stream_.avail_in = inSize;
    stream_.next_out = out;
    stream_.avail_out = outSize;
    const lzma_ret rc = lzma_code(&stream_, lastInput ? LZMA_FINISH : LZMA_RUN);
    consumed += static_cast<size_t>(stream_.next_in - in);
    produced = static_cast<size_t>(stream_.next_out - out);
    if (rc == LZMA_STREAM_END) return true;
    if (rc != LZMA_OK && !(rc == LZMA_BUF_ERROR && !lastInput)) Fail(rc);
    return false;
  }

 private:
  [[noreturn]] void Fail(lzma_ret rc) {
    const char* method = xz_ ? "xz" : "LZMA";
    switch (rc) {
      case LZMA_MEMLIMIT_ERROR:
        BadData(method, "needs more than 256 MiB of memory");
      case LZMA_BUF_ERROR:
        BadData(method, "data ends before the stream does");
      default:
        BadData(method, "error " + std::to_string(static_cast<int>(rc)));
    }
  }

  lzma_stream stream_ = LZMA_STREAM_INIT;
  bool xz_;
  bool endMarker_;
  uint64_t size_;
  bool started_ = false;
  unsigned char header_[9];
  size_t headerSize_ = 0;
};

class ZstdDecoder : public ZipDecoder {
 public:
  ZstdDecoder() : context_(ZSTD_createDCtx()) {
    if (context_ == nullptr) throw std::bad_alloc();
  }
  ~ZstdDecoder() override { ZSTD_freeDCtx(context_); }

  bool Decode(const unsigned char* in, size_t inSize, size_t& consumed, unsigned char* out,
              size_t outSize, size_t& produced, bool lastInput) override {
    ZSTD_inBuffer input{in, inSize, 0};
    ZSTD_outBuffer output{out, outSize, 0};
    const size_t rc = ZSTD_decompressStream(context_, &output, &input);
    if (ZSTD_isError(rc)) BadData("zstd", ZSTD_getErrorName(rc));
    consumed = input.pos;
    produced = output.pos;
    frameDone_ = rc == 0;
    // Several frames may follow one another; the data ends after the last complete one.
    return frameDone_ && lastInput && consumed == inSize;
  }

 private:
  ZSTD_DCtx* context_;
  bool frameDone_ = false;
};

class StoreEncoder : public ZipEncoder {
 public:
  void Encode(const void* in, size_t size, bool, std::string& out) override {
    out.append(static_cast<const char*>(in), size);
  }
};

class DeflateEncoder : public ZipEncoder {
 public:
  explicit DeflateEncoder(int level) {
    std::memset(&stream_, 0, sizeof(stream_));
    if (deflateInit2(&stream_, level, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
      throw std::bad_alloc();
    }
  }
  ~DeflateEncoder() override { deflateEnd(&stream_); }

  void Encode(const void* in, size_t size, bool finish, std::string& out) override {
    const auto* p = static_cast<const Bytef*>(in);
    for (;;) {
      const size_t piece = std::min(size, kMaxPiece);
      const bool last = piece == size;
      stream_.next_in = const_cast<Bytef*>(p);
      stream_.avail_in = static_cast<uInt>(piece);
      const int flush = finish && last ? Z_FINISH : Z_NO_FLUSH;
      int rc;
      do {
        const size_t room = deflateBound(&stream_, stream_.avail_in) + 64;
        const size_t start = out.size();
        out.resize(start + room);
        stream_.next_out = reinterpret_cast<Bytef*>(&out[start]);
        stream_.avail_out = static_cast<uInt>(room);
        rc = deflate(&stream_, flush);
        out.resize(start + room - stream_.avail_out);
        if (rc == Z_STREAM_ERROR) throw VantuRuntimeException("deflate failed");
      } while (stream_.avail_in != 0 || (flush == Z_FINISH && rc != Z_STREAM_END));
      p += piece;
      size -= piece;
      if (last) return;
    }
  }

 private:
  z_stream stream_;
};

class ZstdEncoder : public ZipEncoder {
 public:
  explicit ZstdEncoder(int level) : context_(ZSTD_createCCtx()) {
    if (context_ == nullptr) throw std::bad_alloc();
    ZSTD_CCtx_setParameter(context_, ZSTD_c_compressionLevel, level);
  }
  ~ZstdEncoder() override { ZSTD_freeCCtx(context_); }

  void Encode(const void* in, size_t size, bool finish, std::string& out) override {
    ZSTD_inBuffer input{in, size, 0};
    const ZSTD_EndDirective mode = finish ? ZSTD_e_end : ZSTD_e_continue;
    size_t rc;
    do {
      const size_t room = ZSTD_CStreamOutSize() + (finish ? ZSTD_compressBound(size) : 0);
      const size_t start = out.size();
      out.resize(start + room);
      ZSTD_outBuffer output{&out[start], room, 0};
      rc = ZSTD_compressStream2(context_, &output, &input, mode);
      out.resize(start + output.pos);
      if (ZSTD_isError(rc)) throw VantuRuntimeException(ZSTD_getErrorName(rc));
    } while (input.pos < input.size || (finish && rc != 0));
  }

 private:
  ZSTD_CCtx* context_;
};

}  // namespace

std::unique_ptr<ZipDecoder> ZipDecoder::Create(uint16_t method, bool lzmaEndMarker, uint64_t size) {
  switch (method) {
    case 0:
      return std::make_unique<StoreDecoder>();
    case 8:
      return std::make_unique<DeflateDecoder>();
    case 12:
      return std::make_unique<Bzip2Decoder>();
    case 14:
      return std::make_unique<LzmaDecoder>(false, lzmaEndMarker, size);
    case 93:
      return std::make_unique<ZstdDecoder>();
    case 95:
      return std::make_unique<LzmaDecoder>(true, false, size);
    default:
      return nullptr;
  }
}

std::unique_ptr<ZipEncoder> ZipEncoder::Create(uint16_t method, int level) {
  switch (method) {
    case 0:
      return std::make_unique<StoreEncoder>();
    case 8:
      return std::make_unique<DeflateEncoder>(level < 0 ? 6 : level);
    case 93:
      return std::make_unique<ZstdEncoder>(level < 0 ? ZSTD_CLEVEL_DEFAULT : level);
    default:
      return nullptr;
  }
}

}  // namespace vantu::internal
