// Building text byte by byte for tests and benchmarks of the encodings.
#ifndef VANTU_TESTS_SUPPORT_TEXT_H
#define VANTU_TESTS_SUPPORT_TEXT_H

#include <cstdint>
#include <string>

#include <vantu/VString.h>

namespace vantu::test {

inline const char* EncodingName(StringEncoding encoding) {
  switch (encoding) {
    case SystemCodePage:
      return "SystemCodePage";
    case ASCII:
      return "ASCII";
    case Latin1:
      return "Latin1";
    case Latin9:
      return "Latin9";
    case UTF8:
      return "UTF8";
    case UTF16:
      return "UTF16";
  }
  return "?";
}

// Appends the UTF-8 form of a code point (any value up to 0x1FFFFF, surrogates included, so
// that tests can build invalid text too).
inline void AppendUtf8(uint32_t cp, std::string& out) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

inline std::string Utf8(uint32_t cp) {
  std::string out;
  AppendUtf8(cp, out);
  return out;
}

// Appends one 16-bit unit, little-endian.
inline void AppendUnit(uint32_t unit, std::string& out) {
  out.push_back(static_cast<char>(unit & 0xFF));
  out.push_back(static_cast<char>(unit >> 8));
}

// Appends the UTF-16LE form of a code point (a surrogate pair above U+FFFF).
inline void AppendUtf16(uint32_t cp, std::string& out) {
  if (cp < 0x10000) {
    AppendUnit(cp, out);
  } else {
    AppendUnit(0xD800 + ((cp - 0x10000) >> 10), out);
    AppendUnit(0xDC00 + (cp & 0x3FF), out);
  }
}

}  // namespace vantu::test

#endif  // VANTU_TESTS_SUPPORT_TEXT_H
