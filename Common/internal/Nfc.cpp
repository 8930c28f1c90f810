#include "internal/Nfc.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vantu::internal {
namespace {

constexpr int kNfc = 2;

// Whether any of eight bytes is zero or has its high bit set.
inline bool NotPlainAscii(uint64_t word) {
  constexpr uint64_t kLow = 0x0101010101010101ULL;
  constexpr uint64_t kHigh = 0x8080808080808080ULL;
  return ((word | ((word - kLow) & ~word)) & kHigh) != 0;
}

// Reads one multi-byte UTF-8 sequence at b[i] (lead byte >= 0x80); false when it is not
// well-formed (overlong, a surrogate, past U+10FFFF, cut short).
__attribute__((always_inline)) inline bool DecodeMultiByte(const unsigned char* b, size_t n,
                                                           size_t i, uint32_t& cp, size_t& size) {
  const unsigned char lead = b[i];
  if (lead >= 0xC2 && lead <= 0xDF) {
    if (i + 1 >= n || (b[i + 1] & 0xC0) != 0x80) return false;
    cp = ((lead & 0x1Fu) << 6) | (b[i + 1] & 0x3Fu);
    size = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    const unsigned char low = lead == 0xE0 ? 0xA0 : 0x80;
    const unsigned char high = lead == 0xED ? 0x9F : 0xBF;  // no surrogates
    if (i + 2 >= n || b[i + 1] < low || b[i + 1] > high || (b[i + 2] & 0xC0) != 0x80) {
      return false;
    }
    cp = ((lead & 0x0Fu) << 12) | ((b[i + 1] & 0x3Fu) << 6) | (b[i + 2] & 0x3Fu);
    size = 3;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    const unsigned char low = lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = lead == 0xF4 ? 0x8F : 0xBF;  // up to U+10FFFF
    if (i + 3 >= n || b[i + 1] < low || b[i + 1] > high || (b[i + 2] & 0xC0) != 0x80 ||
        (b[i + 3] & 0xC0) != 0x80) {
      return false;
    }
    cp = ((lead & 0x07u) << 18) | ((b[i + 1] & 0x3Fu) << 12) | ((b[i + 2] & 0x3Fu) << 6) |
         (b[i + 3] & 0x3Fu);
    size = 4;
  } else {
    return false;
  }
  return true;
}

#if defined(__SSE2__)
// Sixteen bytes at b that hold only whole sequences of ASCII, two-byte sequences below U+0300
// (leads C2 to CB) and three-byte sequences of CJK ideographs and Hangul syllables (leads E4 to
// E9, EB and EC): starters that NFC never changes. Returns how many bytes from b are such
// complete sequences (a sequence cut by the block's end is left for later), or 0 when the block
// holds anything else (a NUL byte, malformed UTF-8, which the scalar path then refuses); `last`
// receives the offset of the last sequence's start.
inline size_t QuietBlock(const unsigned char* b, size_t& last) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
  const auto bits = [](__m128i mask) { return static_cast<uint32_t>(_mm_movemask_epi8(mask)); };
  const auto in = [&v](int low, int high) {  // signed byte ranges: 0x80 to 0xFF are -128 to -1
    return _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(static_cast<char>(low - 1))),
                         _mm_cmplt_epi8(v, _mm_set1_epi8(static_cast<char>(high + 1))));
  };
  const uint32_t high = bits(v);
  const uint32_t nul = bits(_mm_cmpeq_epi8(v, _mm_setzero_si128()));
  if ((high | nul) == 0) {  // ASCII
    last = 15;
    return 16;
  }
  if (nul != 0) return 0;
  const uint32_t continuation =  // 80 to BF
      bits(_mm_cmpeq_epi8(_mm_and_si128(v, _mm_set1_epi8(static_cast<char>(0xC0))),
                          _mm_set1_epi8(static_cast<char>(0x80))));
  const uint32_t lead2 = bits(in(-62, -53));                        // C2 to CB
  const uint32_t lead3 = bits(in(-28, -20)) & ~bits(in(-22, -22));  // E4 to EC, not EA
  if ((high & ~(continuation | lead2 | lead3)) != 0) return 0;
  const uint32_t expected = (lead2 | lead3) << 1 | lead3 << 2;  // where continuations belong
  if ((expected & 0xFFFF) != continuation) return 0;
  const uint32_t starts = ~continuation & 0xFFFF;
  size_t end = 16;
  if ((expected >> 16) != 0) end = static_cast<size_t>(31 - __builtin_clz(lead2 | lead3));
  const uint32_t before = starts & ((1u << end) - 1);
  if (before == 0) return 0;
  last = static_cast<size_t>(31 - __builtin_clz(before));
  return end;
}
#endif

// Hangul syllables and jamo, which compose and decompose by arithmetic.
constexpr uint32_t kSBase = 0xAC00, kLBase = 0x1100, kVBase = 0x1161, kTBase = 0x11A7;
constexpr uint32_t kLCount = 19, kVCount = 21, kTCount = 28, kSCount = 11172;
constexpr uint32_t kBackward = 0x100;  // NfcCombinesBackward's bit

// UTF-8 output that grows as needed.
class Output {
 public:
  explicit Output(size_t capacity) : text_(capacity, '\0') {}
  unsigned char* Room(size_t count) {
    if (text_.size() - length_ < count) text_.resize(std::max(text_.size() * 2, length_ + count));
    return reinterpret_cast<unsigned char*>(&text_[length_]);
  }
  void Append(const unsigned char* bytes, size_t count) {
    if (count == 0) return;
    std::memcpy(Room(count), bytes, count);
    length_ += count;
  }
  void Put(uint32_t cp) {
    unsigned char* d = Room(4);
    if (cp < 0x80) {
      d[0] = static_cast<unsigned char>(cp);
      length_ += 1;
    } else if (cp < 0x800) {
      d[0] = static_cast<unsigned char>(0xC0 | cp >> 6);
      d[1] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
      length_ += 2;
    } else if (cp < 0x10000) {
      d[0] = static_cast<unsigned char>(0xE0 | cp >> 12);
      d[1] = static_cast<unsigned char>(0x80 | (cp >> 6 & 0x3F));
      d[2] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
      length_ += 3;
    } else {
      d[0] = static_cast<unsigned char>(0xF0 | cp >> 18);
      d[1] = static_cast<unsigned char>(0x80 | (cp >> 12 & 0x3F));
      d[2] = static_cast<unsigned char>(0x80 | (cp >> 6 & 0x3F));
      d[3] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
      length_ += 4;
    }
  }
  void MoveTo(std::string& text) {
    text_.resize(length_);
    text.swap(text_);
  }

 private:
  std::string text_;
  size_t length_ = 0;
};

// One segment of text between two NFC boundaries, decomposed: code points with their
// composition data (combining class, combines backward).
class Segment {
 public:
  void Clear() { points_.clear(); }
  void Add(uint32_t cp) {
    if (cp - kSBase < kSCount) {
      const uint32_t s = cp - kSBase;
      points_.push_back({kLBase + s / (kVCount * kTCount), 0});
      points_.push_back({kVBase + s % (kVCount * kTCount) / kTCount, kBackward});
      if (s % kTCount != 0) points_.push_back({kTBase + s % kTCount, kBackward});
      return;
    }
    const uint32_t data = NfcData(cp);
    const uint32_t length = NfcExpansionLength(data);
    if (length == 0) {
      points_.push_back({cp, data});
      return;
    }
    const uint32_t* parts = NfcExpansion(data);
    for (uint32_t k = 0; k < length; ++k) points_.push_back({parts[k], NfcData(parts[k])});
  }
  // Canonical ordering, then canonical composition; appends the result to `out`.
  void ComposeInto(Output& out) {
    Point* p = points_.data();
    const size_t n = points_.size();
    for (size_t k = 1; k < n; ++k) {  // a stable insertion sort of each run of non-starters
      const Point moving = p[k];
      const uint8_t cc = NfcCombiningClass(moving.data);
      if (cc == 0) continue;
      size_t j = k;
      for (; j > 0 && NfcCombiningClass(p[j - 1].data) > cc; --j) p[j] = p[j - 1];
      p[j] = moving;
    }
    size_t kept = 0;
    size_t starter = SIZE_MAX;
    for (size_t k = 0; k < n; ++k) {
      const Point c = p[k];
      const uint8_t cc = NfcCombiningClass(c.data);
      // Blocked when something stands between the starter and c whose class is 0 or not
      // below c's (the kept marks are in canonical order, so the last one tells).
      if (starter != SIZE_MAX &&
          (kept - 1 == starter || NfcCombiningClass(p[kept - 1].data) < cc)) {
        const uint32_t composite = Compose(p[starter].cp, c);
        if (composite != 0) {
          p[starter] = {composite, NfcData(composite)};
          continue;
        }
      }
      if (cc == 0) starter = kept;
      p[kept++] = c;
    }
    for (size_t k = 0; k < kept; ++k) out.Put(p[k].cp);
  }

 private:
  struct Point {
    uint32_t cp;
    uint32_t data;
  };

  static uint32_t Compose(uint32_t first, const Point& second) {
    if (!NfcCombinesBackward(second.data)) return 0;
    if (first - kLBase < kLCount) {
      if (second.cp - kVBase < kVCount) {
        return kSBase + ((first - kLBase) * kVCount + (second.cp - kVBase)) * kTCount;
      }
      return 0;
    }
    if (first - kSBase < kSCount && (first - kSBase) % kTCount == 0) {
      // U+11A7 (kTBase) is no trailing consonant and stays after the syllable.
      if (second.cp > kTBase && second.cp - kTBase < kTCount) return first + (second.cp - kTBase);
      return 0;
    }
    return NfcCompose(first, second.cp);
  }

  std::vector<Point> points_;
};

// The conjoining jamo U+1100 to U+11FF (bytes E1 84 80 to E1 87 BF) at b[i], or 0.
inline uint32_t JamoAt(const unsigned char* b, size_t n, size_t i) {
  if (i + 2 >= n || b[i] != 0xE1 || (b[i + 1] & 0xFC) != 0x84 || (b[i + 2] & 0xC0) != 0x80) {
    return 0;
  }
  return 0x1000u | (b[i + 1] & 0x3Fu) << 6 | (b[i + 2] & 0x3Fu);
}

// Conjoining jamo L V or L V T at b[at] that end a segment compose into one syllable by
// arithmetic, without the general segment; so do the syllables that follow. Returns the
// position after the last syllable written to `out` (`at` when there is none).
size_t ComposeHangul(const unsigned char* b, size_t n, size_t at, Output& out) {
  for (;;) {
    const uint32_t l = JamoAt(b, n, at);
    if (l - kLBase >= kLCount) return at;
    const uint32_t v = JamoAt(b, n, at + 3);
    if (v - kVBase >= kVCount) return at;
    uint32_t syllable = kSBase + ((l - kLBase) * kVCount + (v - kVBase)) * kTCount;
    size_t i = at + 6;
    const uint32_t t = JamoAt(b, n, i);
    if (t > kTBase && t - kTBase < kTCount) {  // U+11A7 (kTBase) is no trailing consonant
      syllable += t - kTBase;
      i += 3;
    }
    if (i < n && b[i] >= 0x80 && JamoAt(b, n, i) - kLBase >= kLCount) {
      // What follows must start a segment of its own (an L jamo does).
      uint32_t next;
      size_t size;
      if (!DecodeMultiByte(b, n, i, next, size)) return at;
      if (next >= 0x300 && NfcProperty(next) != 0) return at;
    }
    out.Put(syllable);
    at = i;
  }
}

// NFC of the bytes at b up to the first NUL byte or the n-th byte (`length` receives the count
// read). Text that a quick check proves normalised is
// copied as it is; from the last boundary before each code point that may change (the start of
// the last code point whose quick check property is Yes with class 0) up to the next boundary,
// the text is decomposed, ordered and composed. Returns false for invalid UTF-8; `out` is left
// alone when nothing changes (`changed` false).
bool ComposeNfc(const unsigned char* b, size_t n, std::string& out, bool& changed, size_t& length) {
  size_t i = 0;
  size_t boundary = 0;  // where the last segment that a change would reach begins
  size_t copied = 0;    // input before this is in the output already
  uint8_t lastClass = 0;
  std::unique_ptr<Output> output;
  Segment segment;
  size_t blocksFrom = 0;  // where the next try of a quiet block may start
  while (i < n) {
#if defined(__SSE2__)
    if (i >= blocksFrom && n - i >= 16) {
      size_t ascii = i;  // runs of ASCII first, in a loop of their own
      for (; n - ascii >= 16; ascii += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + ascii));
        if (_mm_movemask_epi8(_mm_or_si128(v, _mm_cmpeq_epi8(v, _mm_setzero_si128()))) != 0) break;
      }
      if (ascii != i) {
        boundary = ascii - 1;
        i = ascii;
        lastClass = 0;
        continue;
      }
      size_t last = 0;
      const size_t taken = QuietBlock(b + i, last);
      if (taken != 0) {
        boundary = i + last;
        i += taken;
        lastClass = 0;
        continue;
      }
      blocksFrom = i + 16;  // the scalar path reads at least this block
    }
#endif
    const unsigned char lead = b[i];
    if (lead < 0x80) {
      if (lead == 0) break;
      boundary = i++;
      lastClass = 0;
      // Runs of ASCII, eight bytes at a time.
      while (i + 8 <= n) {
        uint64_t word;
        std::memcpy(&word, b + i, 8);
        if (NotPlainAscii(word)) break;
        i += 8;
        boundary = i - 1;
      }
      continue;
    }
    uint32_t cp;
    size_t size;
    if (NfcQuietLead(lead)) {  // starters that nothing changes, whatever the sequence's value
      const size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
      if (i + length > n) return false;
      unsigned char high = b[i + 1] ^ 0x80;  // continuation bytes become 00 to 3F
      if (length > 2) high |= b[i + 2] ^ 0x80;
      if (length > 3) high |= b[i + 3] ^ 0x80;
      if (high >= 0x40) return false;
      boundary = i;
      i += length;
      lastClass = 0;
      continue;
    }
    if (!DecodeMultiByte(b, n, i, cp, size)) return false;
    const uint8_t property = NfcProperty(cp);
    if (property == 0) {
      boundary = i;
      i += size;
      lastClass = 0;
      continue;
    }
    if (property != kNfcNotYes && lastClass <= property) {
      i += size;
      lastClass = property;
      continue;
    }
    // The segment from the boundary to the next code point that is Yes with class 0.
    if (!output) output = std::make_unique<Output>(n + n / 8 + 16);
    output->Append(b + copied, boundary - copied);
    size_t at = ComposeHangul(b, n, boundary, *output);
    if (at != boundary) {
      copied = boundary = i = at;
      lastClass = 0;
      continue;
    }
    segment.Clear();
    do {
      if (b[at] < 0x80) {
        if (at != boundary) break;
        cp = b[at];
        size = 1;
      } else {
        if (!DecodeMultiByte(b, n, at, cp, size)) return false;
        if (at != boundary && (cp < 0x300 || NfcProperty(cp) == 0)) break;
      }
      segment.Add(cp);
      at += size;
    } while (at < n);
    segment.ComposeInto(*output);
    copied = boundary = i = at;
    lastClass = 0;
  }
  length = i;
  changed = output != nullptr;
  if (changed) {
    output->Append(b + copied, i - copied);
    output->MoveTo(out);
  }
  return true;
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
  // utf8proc reads up to the first NUL byte: text it would give back unchanged is that part.
  if (form == kNfc) {
    const auto* b = reinterpret_cast<const unsigned char*>(text.data());
    bool changed = false;
    size_t length = 0;
    std::string composed;
    if (!ComposeNfc(b, text.size(), composed, changed, length)) {
      return NormalizeUtf8WithUtf8proc(text, form);
    }
    if (changed) {
      text.swap(composed);
    } else {
      text.resize(length);
    }
    return true;
  }
  size_t length = 0;
  if (AsciiPrefix(text, length)) {
    text.resize(length);
    return true;
  }
  return NormalizeUtf8WithUtf8proc(text, form);
}

}  // namespace vantu::internal
