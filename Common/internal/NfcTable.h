// The table behind the NFC quick check, generated from the Unicode Character Database.
#ifndef VANTU_INTERNAL_NFCTABLE_H
#define VANTU_INTERNAL_NFCTABLE_H

#include <cstdint>

namespace vantu::internal {

// A code point's canonical combining class, or kNfcNotYes when its NFC quick check property is
// No or Maybe: kNfcBlocks[kNfcBlockIndex[cp >> 8]][cp & 0xFF].
constexpr uint8_t kNfcNotYes = 255;
extern const uint8_t kNfcBlockIndex[0x1100];
extern const uint8_t kNfcBlocks[][256];

inline uint8_t NfcProperty(uint32_t cp) { return kNfcBlocks[kNfcBlockIndex[cp >> 8]][cp & 0xFF]; }

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_NFCTABLE_H
