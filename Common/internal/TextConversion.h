// Conversion of text bytes between the six StringEncoding values.
#ifndef VANTU_INTERNAL_TEXTCONVERSION_H
#define VANTU_INTERNAL_TEXTCONVERSION_H

#include <string>

#include <vantu/VString.h>

namespace vantu::internal {

// Converts `in` from one encoding to another into `out` (replacing its content). Between the
// five named encodings the bytes are exactly those of POCO's TextConverter with "?" as the
// replacement; SystemCodePage goes through UTF-16 and the platform's code-page conversion.
// Fast paths are taken where they give the same bytes. Both encodings must be valid (0 to 5)
// and may be equal (a copy). When `outputIsNfc` is given, it is set to true only if the output
// is UTF8 that NFC normalisation would leave unchanged (so the caller may skip it). Never throws
// but std::bad_alloc.
void ConvertText(StringEncoding from, StringEncoding to, const std::string& in, std::string& out,
                 bool* outputIsNfc = nullptr);

// The same between the five named encodings (1 to 5), always through POCO's TextConverter.
// The reference that the fast paths must equal.
void ConvertTextWithPoco(StringEncoding from, StringEncoding to, const std::string& in,
                         std::string& out);

// Whether `in` is well-formed UTF-8 (POCO's reading: no surrogates, nothing past U+10FFFF, no
// overlong forms).
bool IsValidUtf8(const std::string& in);

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_TEXTCONVERSION_H
