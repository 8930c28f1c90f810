// Small UTF helpers shared by the text classes.
#ifndef VANTU_INTERNAL_UTF_H
#define VANTU_INTERNAL_UTF_H

#include <cstddef>
#include <string>

namespace vantu::internal {

// Appends the UTF-8 form of wide text: UTF-32 code points (wchar_t on POSIX) or UTF-16 code
// units. Surrogates without their pair and values beyond U+10FFFF become U+FFFD.
void AppendUtf8FromUtf32(const wchar_t* text, size_t count, std::string& out);
void AppendUtf8FromUtf16(const char16_t* text, size_t count, std::string& out);
// The same for UTF-16 stored as little-endian byte pairs; `units` counts pairs.
void AppendUtf8FromUtf16LE(const char* bytes, size_t units, std::string& out);

// Appends the UTF-16 form of UTF-8 text; each byte that does not start a valid sequence becomes
// U+FFFD.
void AppendUtf16FromUtf8(const std::string& text, std::u16string& out);

// Number of 16-bit little-endian units before the first 0x0000 unit.
size_t Utf16LEUnitLength(const char* bytes);

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_UTF_H
