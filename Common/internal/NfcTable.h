// The tables behind NFC, generated from the Unicode Character Database by
// scripts/gen_nfc_table.py.
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

// Lead bytes of UTF-8 sequences (E0, ED, F0 and F4 never among them) whose every well-formed
// sequence is a code point with NfcProperty 0: a bit per byte value.
extern const uint64_t kNfcQuietLeads[4];

inline bool NfcQuietLead(unsigned char lead) {
  return (kNfcQuietLeads[lead >> 6] >> (lead & 63)) & 1;
}

// What composing needs of a code point, kNfcData[kNfcDataIndex[cp >> 8]][cp & 0xFF]: bits 0-7
// its canonical combining class, bit 8 set when it may be the second of a primary composite,
// bits 9-11 the length of its full canonical decomposition (0: none; Hangul syllables decompose
// algorithmically) and bits 12-31 where that decomposition starts in kNfcExpansions.
extern const uint8_t kNfcDataIndex[0x1100];
extern const uint32_t kNfcData[][256];
extern const uint32_t kNfcExpansions[];

inline uint32_t NfcData(uint32_t cp) { return kNfcData[kNfcDataIndex[cp >> 8]][cp & 0xFF]; }
inline uint8_t NfcCombiningClass(uint32_t data) { return static_cast<uint8_t>(data); }
inline bool NfcCombinesBackward(uint32_t data) { return (data & 0x100) != 0; }
inline uint32_t NfcExpansionLength(uint32_t data) { return (data >> 9) & 7; }
inline const uint32_t* NfcExpansion(uint32_t data) { return kNfcExpansions + (data >> 12); }

// The primary composites: an open-addressing hash table with linear probing, keyed by
// first << 21 | second (0 marks an empty slot).
constexpr int kNfcPairBits = 11;
constexpr uint64_t kNfcPairHashFactor = 0x9E3779B97F4A7C15ULL;
extern const uint64_t kNfcPairKeys[1 << kNfcPairBits];
extern const uint32_t kNfcPairValues[1 << kNfcPairBits];

// The primary composite of two code points, or 0 when they do not compose (Hangul excluded).
inline uint32_t NfcCompose(uint32_t first, uint32_t second) {
  const uint64_t key = uint64_t{first} << 21 | second;
  constexpr uint32_t kMask = (1u << kNfcPairBits) - 1;
  for (auto slot = static_cast<uint32_t>((key * kNfcPairHashFactor) >> (64 - kNfcPairBits));;
       slot = (slot + 1) & kMask) {
    if (kNfcPairKeys[slot] == key) return kNfcPairValues[slot];
    if (kNfcPairKeys[slot] == 0) return 0;
  }
}

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_NFCTABLE_H
