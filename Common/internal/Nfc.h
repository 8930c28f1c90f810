// Unicode normalisation of UTF-8 text.
#ifndef VANTU_INTERNAL_NFC_H
#define VANTU_INTERNAL_NFC_H

#include <cstdint>
#include <string>

#include "internal/NfcTable.h"

namespace vantu::internal {

// Follows a text's code points and tells whether NFC provably leaves them unchanged: every code
// point's NFC quick check property is Yes and the canonical combining classes of non-starters
// never descend. (A No or Maybe property, or a misordered mark, may change; utf8proc decides.)
class NfcInertness {
 public:
  // An ASCII character: a starter that nothing before it can combine with.
  void Starter() { lastClass_ = 0; }
  void Add(uint32_t cp) {
    if (cp < 0x300) {  // below the first combining mark, everything is a stable starter
      lastClass_ = 0;
      return;
    }
    const uint8_t property = NfcProperty(cp);
    if (property == kNfcNotYes || (property != 0 && lastClass_ > property)) inert_ = false;
    lastClass_ = property;
  }
  bool inert() const { return inert_; }

 private:
  uint8_t lastClass_ = 0;
  bool inert_ = true;
};

// Brings UTF-8 text into the normalisation form `form` (0 NFD, 1 NFKD, 2 NFC, 3 NFKC) exactly as
// utf8proc does with the stable option, reading the text up to its first NUL byte. Returns false
// and leaves the text as it was when utf8proc rejects it (invalid UTF-8) or the form is unknown.
// NFC of valid UTF-8 is computed from the library's own tables (NfcTable.h), composing only the
// stretches that a quick check cannot prove normalised; the other forms and invalid text go to
// utf8proc.
bool NormalizeUtf8(std::string& text, int form);

// The same, always through utf8proc: the reference for the library's NFC.
bool NormalizeUtf8WithUtf8proc(std::string& text, int form);

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_NFC_H
