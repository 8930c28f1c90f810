// Unicode normalisation of UTF-8 text.
#ifndef VANTU_INTERNAL_NFC_H
#define VANTU_INTERNAL_NFC_H

#include <string>

namespace vantu::internal {

// Brings UTF-8 text into the normalisation form `form` (0 NFD, 1 NFKD, 2 NFC, 3 NFKC) exactly as
// utf8proc does with the stable option, reading the text up to its first NUL byte. Returns false
// and leaves the text as it was when utf8proc rejects it (invalid UTF-8) or the form is unknown.
// NFC skips utf8proc for text that a quick check proves already normalised.
bool NormalizeUtf8(std::string& text, int form);

// The same, always through utf8proc: the reference for the quick check.
bool NormalizeUtf8WithUtf8proc(std::string& text, int form);

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_NFC_H
