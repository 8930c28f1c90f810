#include "platform/CodePage.h"

#include <iconv.h>
#include <langinfo.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace vantu::platform {
namespace {

// The codeset of the calling thread's locale; the C/POSIX locale's ASCII counts as UTF-8,
// which is what Linux file names and terminals carry.
std::string CurrentCodeset() {
  const char* codeset = nl_langinfo(CODESET);
  if (codeset == nullptr || *codeset == '\0' || std::strcmp(codeset, "ANSI_X3.4-1968") == 0) {
    return "UTF-8";
  }
  return codeset;
}

// Open iconv descriptors, cached per thread and reopened when the thread's codeset changes
// (uselocale can give each thread its own).
class IconvCache {
 public:
  ~IconvCache() { Close(); }

  // The descriptor converting code page -> UTF-16LE (toUtf16) or back; (iconv_t)-1 if the
  // codeset is unknown to iconv.
  iconv_t Get(bool toUtf16) {
    std::string codeset = CurrentCodeset();
    if (codeset != codeset_) {
      Close();
      codeset_ = std::move(codeset);
      toUtf16_ = iconv_open("UTF-16LE", codeset_.c_str());
      fromUtf16_ = iconv_open(codeset_.c_str(), "UTF-16LE");
    }
    iconv_t cd = toUtf16 ? toUtf16_ : fromUtf16_;
    if (cd != kInvalid) iconv(cd, nullptr, nullptr, nullptr, nullptr);  // reset shift state
    return cd;
  }

 private:
  static inline const iconv_t kInvalid = reinterpret_cast<iconv_t>(-1);

  void Close() {
    if (toUtf16_ != kInvalid) iconv_close(toUtf16_);
    if (fromUtf16_ != kInvalid) iconv_close(fromUtf16_);
    toUtf16_ = fromUtf16_ = kInvalid;
    codeset_.clear();
  }

  std::string codeset_;
  iconv_t toUtf16_ = kInvalid;
  iconv_t fromUtf16_ = kInvalid;
};

thread_local IconvCache t_iconv;

// Runs `cd` over `in`. On input it cannot convert (invalid, or not representable in the
// target) it writes `replacement` and skips `skip(position, bytesLeft)` bytes; an incomplete
// sequence at the end is replaced the same way. Ends with the return to the initial shift
// state, which stateful codesets need. The input goes to iconv in windows of kWindow bytes:
// after an error glibc converts the window again up to the faulty character (for
// conversions through its internal form), so whole texts full of characters the target
// lacks would cost time quadratic in their length.
template <typename Skip>
void Convert(iconv_t cd, const std::string& in, std::string& out, const char* replacement,
             size_t replacementSize, Skip skip) {
  out.clear();
  out.resize(in.size() * 2 + 16);
  constexpr size_t kWindow = 256;
  char* src = const_cast<char*>(in.data());
  char* const srcEnd = src + in.size();
  size_t written = 0;
  bool flushing = false;
  for (;;) {
    char* dst = out.data() + written;
    size_t dstLeft = out.size() - written;
    size_t srcLeft = std::min(kWindow, static_cast<size_t>(srcEnd - src));
    const size_t rc = flushing ? iconv(cd, nullptr, nullptr, &dst, &dstLeft)
                               : iconv(cd, &src, &srcLeft, &dst, &dstLeft);
    written = out.size() - dstLeft;
    if (rc != static_cast<size_t>(-1)) {
      if (flushing) break;
      if (src == srcEnd) flushing = true;  // all input read
      continue;
    }
    if (errno == E2BIG) {
      out.resize(out.size() * 2);
      continue;
    }
    if (flushing) break;  // nothing sensible left to write
    // A sequence cut by the window's end is read whole in the next window.
    if (errno == EINVAL && src + srcLeft < srcEnd) continue;
    // EILSEQ (invalid or unconvertible) or EINVAL (incomplete at the end).
    if (out.size() - written < replacementSize) out.resize(out.size() * 2 + replacementSize);
    std::memcpy(out.data() + written, replacement, replacementSize);
    written += replacementSize;
    const size_t left = static_cast<size_t>(srcEnd - src);
    src += std::max<size_t>(1, std::min(left, skip(src, left)));
  }
  out.resize(written);
}

}  // namespace

bool CodePageIsUtf8() { return CurrentCodeset() == "UTF-8"; }

void CodePageToUtf16(const std::string& in, std::string& out) {
  iconv_t cd = t_iconv.Get(true);
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    out.assign(in.size() * 2, '\0');
    for (size_t i = 0; i < in.size(); ++i) out[2 * i] = (in[i] & 0x80) ? '?' : in[i];
    return;
  }
  Convert(cd, in, out, "?\0", 2, [](const char*, size_t) { return size_t{1}; });
}

void Utf16ToCodePage(const std::string& in, std::string& out) {
  iconv_t cd = t_iconv.Get(false);
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    out.clear();
    for (size_t i = 0; i + 1 < in.size(); i += 2) {
      const auto unit =
          static_cast<unsigned char>(in[i]) | (static_cast<unsigned char>(in[i + 1]) << 8);
      out.push_back(unit < 0x80 ? static_cast<char>(unit) : '?');
    }
    if (in.size() % 2) out.push_back('?');
    return;
  }
  // Skip one character: a surrogate pair counts as one, anything else as one unit.
  Convert(cd, in, out, "?", 1, [](const char* p, size_t left) {
    if (left < 2) return left;
    const unsigned unit =
        static_cast<unsigned char>(p[0]) | (static_cast<unsigned char>(p[1]) << 8);
    if (unit >= 0xD800 && unit <= 0xDBFF && left >= 4) {
      const unsigned next =
          static_cast<unsigned char>(p[2]) | (static_cast<unsigned char>(p[3]) << 8);
      if (next >= 0xDC00 && next <= 0xDFFF) return size_t{4};
    }
    return size_t{2};
  });
}

}  // namespace vantu::platform
