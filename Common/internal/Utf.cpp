#include "internal/Utf.h"

namespace vantu::internal {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendCodePoint(char32_t c, std::string& out) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

bool IsHighSurrogate(char32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool IsLowSurrogate(char32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

// Decodes UTF-16 units fetched by `unit(i)`.
template <typename UnitAt>
void AppendFromUtf16(UnitAt unit, size_t count, std::string& out) {
  out.reserve(out.size() + count * 3);
  for (size_t i = 0; i < count; ++i) {
    const char32_t u = unit(i);
    if (IsHighSurrogate(u) && i + 1 < count && IsLowSurrogate(unit(i + 1))) {
      AppendCodePoint(0x10000 + ((u - 0xD800) << 10) + (unit(i + 1) - 0xDC00), out);
      ++i;
    } else if (IsHighSurrogate(u) || IsLowSurrogate(u)) {
      AppendCodePoint(kReplacement, out);
    } else {
      AppendCodePoint(u, out);
    }
  }
}

}  // namespace

void AppendUtf8FromUtf32(const wchar_t* text, size_t count, std::string& out) {
  if constexpr (sizeof(wchar_t) == 2) {
    AppendFromUtf16([text](size_t i) { return static_cast<char32_t>(text[i]); }, count, out);
  } else {
    out.reserve(out.size() + count);
    for (size_t i = 0; i < count; ++i) {
      const auto c = static_cast<char32_t>(text[i]);
      const bool valid = c <= 0x10FFFF && !IsHighSurrogate(c) && !IsLowSurrogate(c);
      AppendCodePoint(valid ? c : kReplacement, out);
    }
  }
}

void AppendUtf8FromUtf16(const char16_t* text, size_t count, std::string& out) {
  AppendFromUtf16([text](size_t i) { return static_cast<char32_t>(text[i]); }, count, out);
}

void AppendUtf8FromUtf16LE(const char* bytes, size_t units, std::string& out) {
  const auto* b = reinterpret_cast<const unsigned char*>(bytes);
  AppendFromUtf16([b](size_t i) { return static_cast<char32_t>(b[2 * i] | (b[2 * i + 1] << 8)); },
                  units, out);
}

size_t Utf16LEUnitLength(const char* bytes) {
  size_t n = 0;
  while (bytes[2 * n] != 0 || bytes[2 * n + 1] != 0) ++n;
  return n;
}

}  // namespace vantu::internal
