#include "internal/Nfc.h"

#include <utf8proc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace vantu::internal {
namespace {

constexpr int kNfc = 2;

// Whether any of eight bytes is zero or has its high bit set.
inline bool NotPlainAscii(uint64_t word) {
  constexpr uint64_t kLow = 0x0101010101010101ULL;
  constexpr uint64_t kHigh = 0x8080808080808080ULL;
  return ((word | ((word - kLow) & ~word)) & kHigh) != 0;
}

// The result of scanning text up to its first NUL byte (the part utf8proc reads).
enum class Check { kUnchanged, kMayChange };

// Proves that NFC leaves the text unchanged: every code point's NFC quick check property is Yes
// and the canonical combining classes of non-starters never descend. Anything else (a No or Maybe
// property, a misordered mark, invalid UTF-8) is left to utf8proc. `length` receives the bytes
// before the first NUL.
Check QuickCheckNfc(const std::string& text, size_t& length) {
  const auto* b = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  NfcInertness nfc;
  while (i < n) {
    // Runs of ASCII, eight bytes at a time.
    while (i + 8 <= n) {
      uint64_t word;
      std::memcpy(&word, b + i, 8);
      if (NotPlainAscii(word)) break;
      i += 8;
      nfc.Starter();
    }
    if (i >= n) break;
    const unsigned char lead = b[i];
    if (lead < 0x80) {
      if (lead == 0) break;
      ++i;
      nfc.Starter();
      continue;
    }
    uint32_t cp;
    size_t size;
    if (lead >= 0xC2 && lead <= 0xDF) {
      if (i + 1 >= n || (b[i + 1] & 0xC0) != 0x80) return Check::kMayChange;
      cp = ((lead & 0x1Fu) << 6) | (b[i + 1] & 0x3Fu);
      size = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      const unsigned char low = lead == 0xE0 ? 0xA0 : 0x80;
      const unsigned char high = lead == 0xED ? 0x9F : 0xBF;  // no surrogates
      if (i + 2 >= n || b[i + 1] < low || b[i + 1] > high || (b[i + 2] & 0xC0) != 0x80) {
        return Check::kMayChange;
      }
      cp = ((lead & 0x0Fu) << 12) | ((b[i + 1] & 0x3Fu) << 6) | (b[i + 2] & 0x3Fu);
      size = 3;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      const unsigned char low = lead == 0xF0 ? 0x90 : 0x80;
      const unsigned char high = lead == 0xF4 ? 0x8F : 0xBF;  // up to U+10FFFF
      if (i + 3 >= n || b[i + 1] < low || b[i + 1] > high || (b[i + 2] & 0xC0) != 0x80 ||
          (b[i + 3] & 0xC0) != 0x80) {
        return Check::kMayChange;
      }
      cp = ((lead & 0x07u) << 18) | ((b[i + 1] & 0x3Fu) << 12) | ((b[i + 2] & 0x3Fu) << 6) |
           (b[i + 3] & 0x3Fu);
      size = 4;
    } else {
      return Check::kMayChange;  // invalid: utf8proc decides (and refuses)
    }
    i += size;
    nfc.Add(cp);
    if (!nfc.inert()) return Check::kMayChange;
  }
  length = i;
  return Check::kUnchanged;
}

// Text before the first NUL byte that is pure ASCII, which every normal form leaves alone.
bool AsciiPrefix(const std::string& text, size_t& length) {
  const auto* b = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t i = 0;
  while (i + 8 <= n) {
    uint64_t word;
    std::memcpy(&word, b + i, 8);
    if (NotPlainAscii(word)) break;
    i += 8;
  }
  for (; i < n && b[i] != 0; ++i) {
    if (b[i] >= 0x80) return false;
  }
  length = i;
  return true;
}

}  // namespace

bool NormalizeUtf8WithUtf8proc(std::string& text, int form) {
  static const int kOptions[] = {
      UTF8PROC_DECOMPOSE,                    // NFD
      UTF8PROC_DECOMPOSE | UTF8PROC_COMPAT,  // NFKD
      UTF8PROC_COMPOSE,                      // NFC
      UTF8PROC_COMPOSE | UTF8PROC_COMPAT,    // NFKC
  };
  if (form < 0 || form > 3) return false;
  utf8proc_uint8_t* result = nullptr;
  const auto options =
      static_cast<utf8proc_option_t>(kOptions[form] | UTF8PROC_NULLTERM | UTF8PROC_STABLE);
  const utf8proc_ssize_t length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.c_str()), 0, &result, options);
  if (length < 0 || result == nullptr) {
    std::free(result);
    return false;
  }
  try {
    text.assign(reinterpret_cast<const char*>(result), static_cast<size_t>(length));
  } catch (...) {
    std::free(result);
    throw;
  }
  std::free(result);
  return true;
}

bool NormalizeUtf8(std::string& text, int form) {
  if (form < 0 || form > 3) return false;
  size_t length = 0;
  // utf8proc reads up to the first NUL byte: text it would give back unchanged is that part.
  // The NFC check covers ASCII runs itself, so NFC text is read once.
  const bool unchanged =
      form == kNfc ? QuickCheckNfc(text, length) == Check::kUnchanged : AsciiPrefix(text, length);
  if (unchanged) {
    text.resize(length);
    return true;
  }
  return NormalizeUtf8WithUtf8proc(text, form);
}

}  // namespace vantu::internal
