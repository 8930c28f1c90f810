#include "internal/TextConversion.h"

#include <Poco/ASCIIEncoding.h>
#include <Poco/Latin1Encoding.h>
#include <Poco/Latin9Encoding.h>
#include <Poco/TextConverter.h>
#include <Poco/UTF16Encoding.h>
#include <Poco/UTF8Encoding.h>

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "internal/Nfc.h"
#include "platform/CodePage.h"

namespace vantu::internal {
namespace {

// POCO's encodings are stateless after construction and safe to share between threads.
const Poco::TextEncoding& PocoEncoding(StringEncoding encoding) {
  static const Poco::ASCIIEncoding ascii;
  static const Poco::Latin1Encoding latin1;
  static const Poco::Latin9Encoding latin9;
  static const Poco::UTF8Encoding utf8;
  static const Poco::UTF16Encoding utf16(Poco::UTF16Encoding::LITTLE_ENDIAN_BYTE_ORDER);
  switch (encoding) {
    case ASCII:
      return ascii;
    case Latin1:
      return latin1;
    case Latin9:
      return latin9;
    case UTF16:
      return utf16;
    default:
      return utf8;
  }
}

// ---------------------------------------------------------------------------------------------
// Fast paths.
//
// Each fast conversion decodes the source into code points and encodes them into the target,
// exactly as POCO's TextConverter does for input that POCO reads without error. Input that is
// not plainly valid (malformed or truncated UTF-8, an unpaired surrogate or an odd byte count
// in UTF-16) makes the fast conversion give up; the caller then converts the whole input with
// POCO, so such input gets POCO's bytes by construction.
//
// POCO's readings that matter here: the single-byte sources never fail (an ASCII byte above
// 7F reads as "?"); UTF-8 is valid exactly when it is well-formed in the Unicode sense
// (no overlong forms, no encoded surrogates, nothing above U+10FFFF; noncharacters are
// fine); UTF-16 is valid when it has an even byte count and every surrogate is paired.

using Byte = unsigned char;

// The per-character steps are inlined into each pair's loop; the loops stay apart.
#define VANTU_INLINE inline __attribute__((always_inline))
#define VANTU_NOINLINE __attribute__((noinline))

constexpr uint32_t kReplacement = '?';

// The eight positions where ISO 8859-15 differs from ISO 8859-1.
constexpr uint16_t Latin9CodePoint(Byte b) {
  switch (b) {
    case 0xA4:
      return 0x20AC;  // euro sign
    case 0xA6:
      return 0x0160;  // S with caron
    case 0xA8:
      return 0x0161;  // s with caron
    case 0xB4:
      return 0x017D;  // Z with caron
    case 0xB8:
      return 0x017E;  // z with caron
    case 0xBC:
      return 0x0152;  // ligature OE
    case 0xBD:
      return 0x0153;  // ligature oe
    case 0xBE:
      return 0x0178;  // Y with diaeresis
    default:
      return b;
  }
}

struct Latin9Table {
  uint16_t codePoint[256];
  constexpr Latin9Table() : codePoint() {
    for (int b = 0; b < 256; ++b) codePoint[b] = Latin9CodePoint(static_cast<Byte>(b));
  }
};
constexpr Latin9Table kLatin9;

// Sources: Next reads one character at p (p < end) into cp and advances p; false when the
// input is not plainly valid. kWidth is the size of one ASCII character in bytes.

struct AsciiSource {
  static constexpr int kWidth = 1;
  VANTU_INLINE static bool Next(const Byte*& p, const Byte*, uint32_t& cp) {
    const Byte b = *p++;
    cp = b < 0x80 ? b : kReplacement;
    return true;
  }
};

struct Latin1Source {
  static constexpr int kWidth = 1;
  VANTU_INLINE static bool Next(const Byte*& p, const Byte*, uint32_t& cp) {
    cp = *p++;
    return true;
  }
};

struct Latin9Source {
  static constexpr int kWidth = 1;
  VANTU_INLINE static bool Next(const Byte*& p, const Byte*, uint32_t& cp) {
    cp = kLatin9.codePoint[*p++];
    return true;
  }
};

VANTU_INLINE bool IsContinuation(Byte b) { return (b & 0xC0) == 0x80; }

struct Utf8Source {
  static constexpr int kWidth = 1;
  VANTU_INLINE static bool Next(const Byte*& p, const Byte* end, uint32_t& cp) {
    const Byte b0 = p[0];
    if (b0 < 0x80) {
      cp = b0;
      p += 1;
      return true;
    }
    const ptrdiff_t left = end - p;
    if (b0 < 0xC2) return false;  // a continuation byte, or an overlong two-byte form
    if (b0 < 0xE0) {
      if (left < 2 || !IsContinuation(p[1])) return false;
      cp = (uint32_t{b0} & 0x1F) << 6 | (p[1] & 0x3F);
      p += 2;
      return true;
    }
    if (b0 < 0xF0) {
      if (left < 3) return false;
      const Byte b1 = p[1];
      // E0 needs A0-BF (no overlong form), ED needs 80-9F (no surrogate).
      const Byte low = b0 == 0xE0 ? 0xA0 : 0x80;
      const Byte high = b0 == 0xED ? 0x9F : 0xBF;
      if (b1 < low || b1 > high || !IsContinuation(p[2])) return false;
      cp = (uint32_t{b0} & 0x0F) << 12 | (uint32_t{b1} & 0x3F) << 6 | (p[2] & 0x3F);
      p += 3;
      return true;
    }
    if (b0 < 0xF5) {
      if (left < 4) return false;
      const Byte b1 = p[1];
      // F0 needs 90-BF (no overlong form), F4 needs 80-8F (nothing above U+10FFFF).
      const Byte low = b0 == 0xF0 ? 0x90 : 0x80;
      const Byte high = b0 == 0xF4 ? 0x8F : 0xBF;
      if (b1 < low || b1 > high || !IsContinuation(p[2]) || !IsContinuation(p[3])) return false;
      cp = (uint32_t{b0} & 0x07) << 18 | (uint32_t{b1} & 0x3F) << 12 |
           (uint32_t{p[2]} & 0x3F) << 6 | (p[3] & 0x3F);
      p += 4;
      return true;
    }
    return false;
  }
};

struct Utf16Source {
  static constexpr int kWidth = 2;
  VANTU_INLINE static bool Next(const Byte*& p, const Byte* end, uint32_t& cp) {
    const ptrdiff_t left = end - p;
    if (left < 2) return false;
    const uint32_t unit = p[0] | uint32_t{p[1]} << 8;
    if (unit < 0xD800 || unit > 0xDFFF) {
      cp = unit;
      p += 2;
      return true;
    }
    if (unit > 0xDBFF || left < 4) return false;
    const uint32_t next = p[2] | uint32_t{p[3]} << 8;
    if (next < 0xDC00 || next > 0xDFFF) return false;
    cp = 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00);
    p += 4;
    return true;
  }
};

// Targets: Put writes one code point (a Unicode scalar value) at d and advances d;
// characters the target cannot hold become "?", as POCO's encoders have them.

struct AsciiTarget {
  static constexpr int kWidth = 1;
  VANTU_INLINE static void Put(uint32_t cp, Byte*& d) {
    *d++ = static_cast<Byte>(cp < 0x80 ? cp : kReplacement);
  }
};

struct Latin1Target {
  static constexpr int kWidth = 1;
  VANTU_INLINE static void Put(uint32_t cp, Byte*& d) {
    *d++ = static_cast<Byte>(cp <= 0xFF ? cp : kReplacement);
  }
};

struct Latin9Target {
  static constexpr int kWidth = 1;
  VANTU_INLINE static void Put(uint32_t cp, Byte*& d) {
    Byte b = static_cast<Byte>(kReplacement);
    if (cp <= 0xFF) {
      if (kLatin9.codePoint[cp] == cp) b = static_cast<Byte>(cp);
    } else {
      switch (cp) {
        case 0x20AC:
          b = 0xA4;
          break;
        case 0x0160:
          b = 0xA6;
          break;
        case 0x0161:
          b = 0xA8;
          break;
        case 0x017D:
          b = 0xB4;
          break;
        case 0x017E:
          b = 0xB8;
          break;
        case 0x0152:
          b = 0xBC;
          break;
        case 0x0153:
          b = 0xBD;
          break;
        case 0x0178:
          b = 0xBE;
          break;
        default:
          break;
      }
    }
    *d++ = b;
  }
};

struct Utf8Target {
  static constexpr int kWidth = 1;
  VANTU_INLINE static void Put(uint32_t cp, Byte*& d) {
    if (cp < 0x80) {
      *d++ = static_cast<Byte>(cp);
    } else if (cp < 0x800) {
      d[0] = static_cast<Byte>(0xC0 | cp >> 6);
      d[1] = static_cast<Byte>(0x80 | (cp & 0x3F));
      d += 2;
    } else if (cp < 0x10000) {
      d[0] = static_cast<Byte>(0xE0 | cp >> 12);
      d[1] = static_cast<Byte>(0x80 | (cp >> 6 & 0x3F));
      d[2] = static_cast<Byte>(0x80 | (cp & 0x3F));
      d += 3;
    } else {
      d[0] = static_cast<Byte>(0xF0 | cp >> 18);
      d[1] = static_cast<Byte>(0x80 | (cp >> 12 & 0x3F));
      d[2] = static_cast<Byte>(0x80 | (cp >> 6 & 0x3F));
      d[3] = static_cast<Byte>(0x80 | (cp & 0x3F));
      d += 4;
    }
  }
};

struct Utf16Target {
  static constexpr int kWidth = 2;
  VANTU_INLINE static void Put(uint32_t cp, Byte*& d) {
    if (cp < 0x10000) {
      d[0] = static_cast<Byte>(cp);
      d[1] = static_cast<Byte>(cp >> 8);
      d += 2;
    } else {
      const uint32_t high = 0xD800 + ((cp - 0x10000) >> 10);
      const uint32_t low = 0xDC00 + (cp & 0x3FF);
      d[0] = static_cast<Byte>(high);
      d[1] = static_cast<Byte>(high >> 8);
      d[2] = static_cast<Byte>(low);
      d[3] = static_cast<Byte>(low >> 8);
      d += 4;
    }
  }
};

// UTF-8 that also tells whether NFC would leave it unchanged, so that converting into UTF8 need
// not read the result a second time to keep it in NFC.
struct Utf8NfcTarget {
  static constexpr int kWidth = 1;
  VANTU_INLINE void Put(uint32_t cp, Byte*& d) {
    nfc.Add(cp);
    Utf8Target::Put(cp, d);
  }
  NfcInertness nfc;
};

// Told after a run of ASCII characters was copied.
template <typename Target>
VANTU_INLINE void AfterAscii(Target&) {}
VANTU_INLINE void AfterAscii(Utf8NfcTarget& target) { target.nfc.Starter(); }

// ASCII runs, 16 source bytes at a time. Every source reads ASCII characters as themselves
// and every target writes them as themselves, one byte (narrow) or one little-endian unit
// (UTF-16) each. A block call converts all 16 source bytes as if they were ASCII (up to 32
// bytes written at d) and returns how many leading source bytes really were ASCII: the caller
// keeps only those output bytes; the rest is overwritten later.
constexpr size_t kBlock = 16;
constexpr size_t kBlockSlack = 32;

template <int SourceWidth, int TargetWidth>
size_t AsciiBlock(const Byte* p, Byte* d);

#if defined(__SSE2__)

VANTU_INLINE size_t LeadingAscii(int nonAsciiMask) {
  return nonAsciiMask == 0 ? kBlock : static_cast<size_t>(__builtin_ctz(nonAsciiMask));
}

template <>
VANTU_INLINE size_t AsciiBlock<1, 1>(const Byte* p, Byte* d) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), v);
  return LeadingAscii(_mm_movemask_epi8(v));
}

template <>
VANTU_INLINE size_t AsciiBlock<1, 2>(const Byte* p, Byte* d) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i zero = _mm_setzero_si128();
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_unpacklo_epi8(v, zero));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 16), _mm_unpackhi_epi8(v, zero));
  return LeadingAscii(_mm_movemask_epi8(v));
}

template <>
VANTU_INLINE size_t AsciiBlock<2, 1>(const Byte* p, Byte* d) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i high = _mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xFF80)));
  const __m128i ascii = _mm_cmpeq_epi16(high, _mm_setzero_si128());
  _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(v, v));
  // Both bytes of a unit share its mask bit pair, so the count stays even.
  return LeadingAscii(~_mm_movemask_epi8(ascii) & 0xFFFF);
}

#else

template <int SourceWidth, int TargetWidth>
size_t AsciiBlock(const Byte* p, Byte* d) {
  size_t i = 0;
  for (; i < kBlock; i += SourceWidth) {
    const bool ascii = p[i] < 0x80 && (SourceWidth == 1 || p[i + 1] == 0);
    if (!ascii) break;
    const size_t at = i / SourceWidth * TargetWidth;
    d[at] = p[i];
    if (TargetWidth == 2) d[at + 1] = 0;
  }
  return i;
}

#endif

// Whether the character at p (p < end) is ASCII, as the block functions read it.
template <int Width>
VANTU_INLINE bool StartsAscii(const Byte* p, const Byte* end) {
  if (Width == 1) return p[0] < 0x80;
  return end - p >= 2 && p[0] < 0x80 && p[1] == 0;
}

// Converts all of `in`; false (out unspecified) when the input is not plainly valid.
// Output bytes per input byte are at most numerator / denominator.
template <typename Source, typename Target, size_t Numerator, size_t Denominator>
VANTU_NOINLINE bool Convert(const std::string& in, std::string& out, Target& target) {
  const auto* p = reinterpret_cast<const Byte*>(in.data());
  const Byte* const end = p + in.size();
  out.resize(in.size() / Denominator * Numerator + Numerator + kBlockSlack);
  auto* const begin = reinterpret_cast<Byte*>(&out[0]);
  Byte* d = begin;
  while (p < end) {
    if (static_cast<size_t>(end - p) >= kBlock) {
      const size_t ascii = AsciiBlock<Source::kWidth, Target::kWidth>(p, d);
      p += ascii;
      d += ascii / Source::kWidth * Target::kWidth;
      if (ascii > 0) AfterAscii(target);
      if (ascii == kBlock) continue;
    }
    // Characters one by one until the next ASCII one, which starts a new block.
    do {
      uint32_t cp;
      if (!Source::Next(p, end, cp)) return false;
      target.Put(cp, d);
    } while (p < end && !StartsAscii<Source::kWidth>(p, end));
  }
  out.resize(static_cast<size_t>(d - begin));
  return true;
}

template <typename Source, typename Target, size_t Numerator, size_t Denominator>
bool Convert(const std::string& in, std::string& out) {
  Target target;
  return Convert<Source, Target, Numerator, Denominator>(in, out, target);
}

// The fast conversion between two different named encodings; false when the input needs
// POCO.
bool ConvertFast(StringEncoding from, StringEncoding to, const std::string& in, std::string& out) {
  switch (from) {
    case ASCII:
      switch (to) {
        case Latin1:
          return Convert<AsciiSource, Latin1Target, 1, 1>(in, out);
        case Latin9:
          return Convert<AsciiSource, Latin9Target, 1, 1>(in, out);
        case UTF8:
          return Convert<AsciiSource, Utf8Target, 1, 1>(in, out);
        case UTF16:
          return Convert<AsciiSource, Utf16Target, 2, 1>(in, out);
        default:
          return false;
      }
    case Latin1:
      switch (to) {
        case ASCII:
          return Convert<Latin1Source, AsciiTarget, 1, 1>(in, out);
        case Latin9:
          return Convert<Latin1Source, Latin9Target, 1, 1>(in, out);
        case UTF8:
          return Convert<Latin1Source, Utf8Target, 2, 1>(in, out);
        case UTF16:
          return Convert<Latin1Source, Utf16Target, 2, 1>(in, out);
        default:
          return false;
      }
    case Latin9:
      switch (to) {
        case ASCII:
          return Convert<Latin9Source, AsciiTarget, 1, 1>(in, out);
        case Latin1:
          return Convert<Latin9Source, Latin1Target, 1, 1>(in, out);
        case UTF8:
          return Convert<Latin9Source, Utf8Target, 3, 1>(in, out);
        case UTF16:
          return Convert<Latin9Source, Utf16Target, 2, 1>(in, out);
        default:
          return false;
      }
    case UTF8:
      switch (to) {
        case ASCII:
          return Convert<Utf8Source, AsciiTarget, 1, 1>(in, out);
        case Latin1:
          return Convert<Utf8Source, Latin1Target, 1, 1>(in, out);
        case Latin9:
          return Convert<Utf8Source, Latin9Target, 1, 1>(in, out);
        case UTF16:
          return Convert<Utf8Source, Utf16Target, 2, 1>(in, out);
        default:
          return false;
      }
    case UTF16:
      switch (to) {
        case ASCII:
          return Convert<Utf16Source, AsciiTarget, 1, 2>(in, out);
        case Latin1:
          return Convert<Utf16Source, Latin1Target, 1, 2>(in, out);
        case Latin9:
          return Convert<Utf16Source, Latin9Target, 1, 2>(in, out);
        case UTF8:
          return Convert<Utf16Source, Utf8Target, 3, 2>(in, out);
        default:
          return false;
      }
    default:
      return false;
  }
}

// Between the five named encodings, from != to. `nfc` (may be null) is set when UTF8 output is
// known to be in NFC: the single-byte encodings hold no character that NFC changes, and UTF-16
// is watched while it is converted.
void ConvertNamed(StringEncoding from, StringEncoding to, const std::string& in, std::string& out,
                  bool* nfc = nullptr) {
  if (nfc != nullptr) *nfc = false;
  if (nfc != nullptr && from == UTF16 && to == UTF8) {
    Utf8NfcTarget target;
    if (Convert<Utf16Source, Utf8NfcTarget, 3, 2>(in, out, target)) {
      *nfc = target.nfc.inert();
      return;
    }
  } else if (ConvertFast(from, to, in, out)) {
    if (nfc != nullptr) *nfc = to == UTF8 && from != UTF16;
    return;
  }
  ConvertTextWithPoco(from, to, in, out);
}

// From the thread's code page. Valid UTF-8 in a UTF-8 code page reads as the same characters
// through iconv as through the UTF-8 decoder, so it takes the UTF8 path.
void ConvertFromCodePage(StringEncoding to, const std::string& in, std::string& out) {
  if (platform::CodePageIsUtf8()) {
    if (to == UTF8) {
      if (IsValidUtf8(in)) {
        out = in;
        return;
      }
    } else if (ConvertFast(UTF8, to, in, out)) {
      return;
    }
  }
  std::string utf16;
  platform::CodePageToUtf16(in, utf16);
  if (to == UTF16) {
    out.swap(utf16);
  } else {
    ConvertNamed(UTF16, to, utf16, out);
  }
}

// Into the thread's code page. Valid text converted to UTF-8 is exactly what iconv makes of
// its UTF-16 form in a UTF-8 code page. The text ends at its first NUL character.
void ConvertToCodePage(StringEncoding from, const std::string& in, std::string& out) {
  bool done = false;
  if (platform::CodePageIsUtf8()) {
    if (from == UTF8) {
      done = IsValidUtf8(in);
      if (done) out = in;
    } else {
      done = ConvertFast(from, UTF8, in, out);
    }
  }
  if (!done) {
    std::string utf16;
    if (from == UTF16) {
      platform::Utf16ToCodePage(in, out);
    } else {
      ConvertNamed(from, UTF16, in, utf16);
      platform::Utf16ToCodePage(utf16, out);
    }
  }
  const size_t nul = out.find('\0');
  if (nul != std::string::npos) out.resize(nul);
}

}  // namespace

bool IsValidUtf8(const std::string& in) {
  const auto* p = reinterpret_cast<const Byte*>(in.data());
  const Byte* const end = p + in.size();
  while (p < end) {
#if defined(__SSE2__)
    if (static_cast<size_t>(end - p) >= kBlock) {
      const int mask = _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
      const size_t ascii = LeadingAscii(mask);
      p += ascii;
      if (ascii == kBlock) continue;
    }
#endif
    uint32_t cp;
    if (!Utf8Source::Next(p, end, cp)) return false;
  }
  return true;
}

void ConvertTextWithPoco(StringEncoding from, StringEncoding to, const std::string& in,
                         std::string& out) {
  out.clear();
  Poco::TextConverter converter(PocoEncoding(from), PocoEncoding(to), '?');
  converter.convert(in, out);
}

void ConvertText(StringEncoding from, StringEncoding to, const std::string& in, std::string& out,
                 bool* outputIsNfc) {
  if (outputIsNfc != nullptr) *outputIsNfc = false;
  if (&in == &out) {
    const std::string copy(in);
    ConvertText(from, to, copy, out, outputIsNfc);
    return;
  }
  if (from == to) {
    out = in;
  } else if (from == SystemCodePage) {
    ConvertFromCodePage(to, in, out);
  } else if (to == SystemCodePage) {
    ConvertToCodePage(from, in, out);
  } else {
    ConvertNamed(from, to, in, out, outputIsNfc);
    // utf8proc reads up to the first NUL: with one in the text, normalising would cut it.
    if (outputIsNfc != nullptr && *outputIsNfc) *outputIsNfc = out.find('\0') == std::string::npos;
  }
}

}  // namespace vantu::internal
