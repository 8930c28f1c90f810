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

void AppendUtf16FromUtf8(const std::string& text, std::u16string& out) {
  const auto* b = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  out.reserve(out.size() + n);
  size_t i = 0;
  while (i < n) {
    const unsigned char lead = b[i];
    char32_t c = kReplacement;
    size_t length = 1;
    if (lead < 0x80) {
      c = lead;
    } else if (lead >= 0xC2 && lead <= 0xF4) {
      const size_t need = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
      // The second byte's range rules out overlong forms, surrogates and values past U+10FFFF.
      const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
      const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
      bool valid = i + need <= n && b[i + 1] >= low && b[i + 1] <= high;
      for (size_t k = 2; valid && k < need; ++k) valid = (b[i + k] & 0xC0) == 0x80;
      if (valid) {
        c = lead & (0x7F >> need);
        for (size_t k = 1; k < need; ++k) c = (c << 6) | (b[i + k] & 0x3F);
        length = need;
      }
    }
    if (c >= 0x10000) {
      out.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(c));
    }
    i += length;
  }
}

size_t Utf16LEUnitLength(const char* bytes) {
  size_t n = 0;
  while (bytes[2 * n] != 0 || bytes[2 * n + 1] != 0) ++n;
  return n;
}

}  // namespace vantu::internal
