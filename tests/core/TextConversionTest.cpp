// Conversions between the six encodings and Unicode normalisation. The fast paths must give
// exactly the bytes of POCO's TextConverter (named encodings), of the iconv route
// (SystemCodePage) and of utf8proc, on valid and invalid input; the known answers pin what they
// make of the cases that matter.
#include <bzlib.h>
#include <gtest/gtest.h>
#include <langinfo.h>
#include <locale.h>
#include <utf8proc.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <vantu/VString.h>

#include "internal/Nfc.h"
#include "internal/NfcTable.h"
#include "internal/TextConversion.h"
#include "platform/CodePage.h"
#include "support/Bytes.h"
#include "support/Text.h"

namespace {

using vantu::internal::ConvertText;
using vantu::internal::ConvertTextWithPoco;
using vantu::internal::kNfcNotYes;
using vantu::internal::NfcCombiningClass;
using vantu::internal::NfcData;
using vantu::internal::NfcProperty;
using vantu::internal::NfcQuietLead;
using vantu::internal::NormalizeUtf8;
using vantu::internal::NormalizeUtf8WithUtf8proc;
using vantu::test::AppendUtf16;
using vantu::test::Bytes;
using vantu::test::EncodingName;
using vantu::test::Hex;
using vantu::test::Utf8;
using namespace std::string_literals;

constexpr StringEncoding kNamed[] = {ASCII, Latin1, Latin9, UTF8, UTF16};
constexpr const char* kLatin1Locale = "de_DE.ISO-8859-1";

std::string Convert(StringEncoding from, StringEncoding to, const std::string& in) {
  std::string out = "stale";
  ConvertText(from, to, in, out);
  return out;
}

// The conversion of `input` from `from` into every other named encoding gives POCO's bytes.
// From UTF16, VString's ConvertTo(UTF8), which skips the NFC pass where the conversion proved it
// needless, gives POCO's conversion followed by utf8proc's NFC.
void ExpectSameAsPoco(StringEncoding from, const std::string& input) {
  for (StringEncoding to : kNamed) {
    if (to == from) continue;
    std::string reference;
    ConvertTextWithPoco(from, to, input, reference);
    ASSERT_EQ(Hex(Convert(from, to, input)), Hex(reference))
        << EncodingName(from) << " -> " << EncodingName(to) << " of " << Hex(input);
    if (from != UTF16 || to != UTF8) continue;
    VString text(UTF16);
    text.SetRaw(input.data(), input.size(), UTF16);
    text.ConvertTo(UTF8);
    NormalizeUtf8WithUtf8proc(reference, NFC);
    ASSERT_EQ(Hex(text.GetString()), Hex(reference)) << "VString::ConvertTo of " << Hex(input);
  }
}

// Mixed text: ASCII, Latin, Latin-9's letters, Greek, CJK, emoji, NUL and noncharacters.
std::string MixedUtf16(std::mt19937& random, size_t count) {
  static const uint32_t kSpecial[] = {0x0,    0x7F,   0xA4,   0xFF,   0x152,   0x160,  0x178,
                                      0x20AC, 0xFFFE, 0xFFFF, 0xD7FF, 0x10000, 0x0301, 0x0316,
                                      0x0344, 0x1161, 0x11A8, 0x0958, 0x05B7,  0x05BC, 0x212B};
  static const uint32_t kBase[] = {0x20, 0x20, 0xA0, 0x391, 0x4E00, 0x1F600};
  static const uint32_t kSpan[] = {0x5F, 0x5F, 0x60, 0x38, 0x5000, 0x50};
  std::string utf16;
  for (size_t i = 0; i < count; ++i) {
    const size_t kind = random() % 7;
    AppendUtf16(kind == 6 ? kSpecial[random() % std::size(kSpecial)]
                          : kBase[kind] + static_cast<uint32_t>(random() % kSpan[kind]),
                utf16);
  }
  return utf16;
}

// A few bytes weighted towards those that matter to the decoders.
std::string RandomBytes(std::mt19937& random) {
  static const unsigned char kInteresting[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0,
                                               0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0, 0xED, 0xEF,
                                               0xF0, 0xF4, 0xF5, 0xF8, 0xFE, 0xFF, 0xD8, 0xDC};
  std::string bytes;
  for (size_t i = 1 + random() % 12; i > 0; --i) {
    const bool interesting = random() % 2;
    bytes.push_back(static_cast<char>(interesting ? kInteresting[random() % 24] : random()));
  }
  return bytes;
}

std::string FromUtf16(StringEncoding to, const std::string& utf16) {
  std::string out = utf16;
  if (to != UTF16) ConvertTextWithPoco(UTF16, to, utf16, out);
  return out;
}

std::string Repeat(const std::string& text, int times) {
  std::string repeated;
  while (times-- > 0) repeated += text;
  return repeated;
}

// ---------------------------------------------------------------------------------------------
// Named encodings

TEST(TextConversionTest, EveryCharacterMatchesPoco) {
  std::string all;
  std::string utf16;
  for (uint32_t cp = 0; cp <= 0x10FFFF; cp += cp < 0x10000 ? 1 : 0x3FF) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    AppendUtf16(cp, utf16);
    if (cp > 0xFF) continue;
    // Each byte alone, after a block of ASCII and inside one.
    const std::string byte(1, static_cast<char>(cp));
    all += byte;
    for (StringEncoding from : {ASCII, Latin1, Latin9}) {
      for (const std::string& text : {byte, std::string(16, 'x') + byte, "1234567" + byte + all}) {
        ExpectSameAsPoco(from, text);
      }
    }
  }
  ExpectSameAsPoco(UTF16, utf16);
  ExpectSameAsPoco(UTF8, FromUtf16(UTF8, utf16));
}

TEST(TextConversionTest, RandomTextMatchesPoco) {
  std::mt19937 random(20261122);
  for (int round = 0; round < 3000; ++round) {
    // Every length around the block size, then valid text with one fault put in.
    const std::string utf16 = MixedUtf16(random, round < 200 ? round % 70 : 1 + random() % 40);
    for (StringEncoding from : kNamed) {
      std::string text = FromUtf16(from, utf16);
      if (round >= 200 && !text.empty()) {
        // A few bytes replaced by random ones, or the end cut off.
        const size_t at = random() % text.size();
        text =
            random() % 4 ? text.replace(at, random() % 3, RandomBytes(random)) : text.substr(0, at);
      }
      ExpectSameAsPoco(from, text);
    }
  }
}

TEST(TextConversionTest, InvalidInputMatchesPoco) {
  // Every UTF-8 lead byte with every second byte and border values after it, so that each
  // range check is crossed, and cut short after a block of ASCII.
  const std::vector<int> kBorders = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0};
  for (int lead = 0x80; lead <= 0xFF; ++lead) {
    for (int second = 0; second <= 0xFF; ++second) {
      const std::string two = Bytes({lead, second});
      ExpectSameAsPoco(UTF8, two);
      for (int third : lead < 0xE0 ? std::vector<int>() : kBorders) {
        ExpectSameAsPoco(UTF8, two + Bytes({third, 'z'}));
        for (int fourth : lead < 0xF0 ? std::vector<int>() : kBorders) {
          ExpectSameAsPoco(UTF8, two + Bytes({third, fourth}));
        }
      }
    }
    ExpectSameAsPoco(UTF8, std::string(17, 'a') + static_cast<char>(lead));
  }
  // Every sequence of up to three UTF-16 units of interest (the base-9 digits of k), with and
  // without an odd last byte, alone and after a block of ASCII.
  const uint32_t kUnits[] = {0x41, 0xE9, 0x20AC, 0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xFFFF};
  for (int k = 0; k < 729; ++k) {
    std::string units;
    for (int digits = k; digits % 9 != 0; digits /= 9) AppendUtf16(kUnits[digits % 9 - 1], units);
    for (const std::string& text : {units, std::string(18, '\0') + units}) {
      for (const char* odd : {"", "\x41", "\xD8"}) ExpectSameAsPoco(UTF16, text + odd);
    }
  }
}

// ---------------------------------------------------------------------------------------------
// SystemCodePage: the codeset of the thread's locale, through iconv and UTF-16; the C locale
// counts as UTF-8. The Latin-1 locale is generated into the build tree (tests/CMakeLists.txt).

// The C locale and a Latin-1 one for LC_CTYPE, made current per thread with uselocale; the
// tests skip where the Latin-1 locale is missing.
class SystemCodePageTest : public testing::Test {
 protected:
  void SetUp() override {
    setenv("LOCPATH", VANTU_TEST_LOCALE_DIR, 1);
#if defined(__SANITIZE_ADDRESS__)
    __lsan_disable();  // glibc keeps the LOCPATH list it builds in newlocale
#endif
    c_ = newlocale(LC_CTYPE_MASK, "C", nullptr);
    latin1_ = newlocale(LC_CTYPE_MASK, kLatin1Locale, nullptr);
#if defined(__SANITIZE_ADDRESS__)
    __lsan_enable();
#endif
    unsetenv("LOCPATH");
    if (latin1_ == nullptr) GTEST_SKIP() << kLatin1Locale << " is missing: no localedef?";
  }
  void TearDown() override {
    uselocale(LC_GLOBAL_LOCALE);
    freelocale(c_);
    if (latin1_ != nullptr) freelocale(latin1_);
  }
  locale_t c_ = nullptr;
  locale_t latin1_ = nullptr;
};

TEST_F(SystemCodePageTest, KnownAnswersInEachLocaleAndThread) {
  struct Case {
    const char* locale;  // for SystemCodePage
    StringEncoding from, to;
    std::string input, expected;
  } const cases[] = {
      {"", Latin9, Latin1, "\xA4\xA6\xE9", "??\xE9"},  // no euro, no S caron
      {"", Latin1, Latin9, "\xA4\xBC\xE9", "??\xE9"},  // no currency sign, no 1/4
      {"", UTF8, Latin1, "A\xF0\x9F\x98\x80", "A?"},   // one "?" per character
      // A bad continuation byte, a sequence cut short, an encoded surrogate, an overlong form, a
      // value past U+10FFFF: one "?" each, for the sequence's whole length; F8 to FF and stray
      // continuation bytes one by one.
      {"", UTF8, Latin1, Bytes({0xC3, 'A', 0xE2, 0x82, 'A', 'B', 0xF0, 0x9F, 0x98}), "??B?"},
      {"", UTF8, Latin1, "\xED\xA0\x80\xC0\x80\xF4\x90\x80\x80\xF8\x88", "?????"},
      // A lone low surrogate passes as a code point, a lone high one swallows the next unit; a
      // high surrogate at the end and an odd last byte are one "?".
      {"", UTF16, UTF8, Bytes({0, 0xDC, 0, 0xD8, 'A', 0, 'B', 0, 0, 0xD8}), "\xED\xB0\x80?B?"},
      {"", UTF16, Latin9, Bytes({'A', 0, 'B'}), "A?"},
      // The C locale reads as UTF-8 through iconv: every byte that starts no valid sequence is
      // one "?"; text for the code page ends at its first NUL, the other way it is kept.
      {"C", SystemCodePage, UTF8, "A\xFF\xC3\x41\xE2\x82", "A??A??"},
      {"C", SystemCodePage, UTF16, "\xED\xA0\x80", Bytes({'?', 0, '?', 0, '?', 0})},
      {"C", UTF16, SystemCodePage, Bytes({0, 0xDC, 'A', 0, 0, 0xD8, 'B'}), "?A??"},
      {"C", UTF8, SystemCodePage, std::string("A\0B", 3), "A"},
      {kLatin1Locale, SystemCodePage, UTF8, "\xE9\xA4", "\xC3\xA9\xC2\xA4"},
      {kLatin1Locale, UTF8, SystemCodePage, "\xE2\x82\xAC A\xF0\x9F\x98\x80\xC3\xA9", "? A?\xE9"},
      {kLatin1Locale, UTF16, SystemCodePage, Bytes({0, 0xDC, 0xE9, 0, 'B'}), "?\xE9?"},
      {kLatin1Locale, Latin9, SystemCodePage, "\xA4\xE9", "?\xE9"},
      {kLatin1Locale, UTF16, SystemCodePage, Bytes({'A', 0, 0, 0, 'B', 0}), "A"},
      {kLatin1Locale, SystemCodePage, UTF8, std::string("A\0B", 3), std::string("A\0B", 3)},
      // iconv reads long text in windows: characters cut at a window's end come out whole (the
      // invalid last byte sends the text through iconv in the C locale).
      {"C", SystemCodePage, UTF16, Repeat("\xC3\xA9\xF0\x9F\x98\x80z", 3000) + "\xFF",
       Repeat(Bytes({0xE9, 0, 0x3D, 0xD8, 0, 0xDE, 'z', 0}), 3000) + Bytes({'?', 0})},
      {kLatin1Locale, UTF8, SystemCodePage, Repeat("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z", 3000),
       Repeat("\xE9??z", 3000)},
  };
  // Two threads at once, in opposite orders: each sees its own locale, and each change of it.
  auto run = [&](bool reverse) {
    for (size_t i = 0; i < std::size(cases); ++i) {
      const Case& row = cases[reverse ? std::size(cases) - 1 - i : i];
      const std::string label = std::string(row.locale) + ": " + EncodingName(row.from) + " -> " +
                                EncodingName(row.to) + " of " + Hex(row.input);
      uselocale(*row.locale == 'd' ? latin1_ : c_);
      EXPECT_EQ(vantu::platform::CodePageIsUtf8(), *row.locale != 'd') << label;
      EXPECT_EQ(Hex(Convert(row.from, row.to, row.input)), Hex(row.expected)) << label;
    }
    uselocale(LC_GLOBAL_LOCALE);
  };
  std::thread other(run, true);
  run(false);
  other.join();
}

// The route the library defines: the code page through iconv to UTF-16, the rest through POCO;
// text for the code page ends at its first NUL.
void ExpectSameAsIconv(StringEncoding other, const std::string& input) {
  std::string utf16;
  vantu::platform::CodePageToUtf16(input, utf16);
  ASSERT_EQ(Hex(Convert(SystemCodePage, other, input)), Hex(FromUtf16(other, utf16)))
      << "SystemCodePage -> " << EncodingName(other) << " of " << Hex(input);
  utf16 = input;
  if (other != UTF16) ConvertTextWithPoco(other, UTF16, input, utf16);
  std::string expected;
  vantu::platform::Utf16ToCodePage(utf16, expected);
  ASSERT_EQ(Hex(Convert(other, SystemCodePage, input)),
            Hex(expected.substr(0, expected.find('\0'))))
      << EncodingName(other) << " -> SystemCodePage of " << Hex(input);
}

TEST_F(SystemCodePageTest, ConversionsEqualTheIconvRoute) {
  std::string allBytes;
  for (int b = 1; b < 256; ++b) allBytes.push_back(static_cast<char>(b));
  std::string everything;  // every BMP character and a sample of the others
  for (uint32_t cp = 1; cp < 0x110000; cp += cp < 0x10000 ? 1 : 0x101) {
    if (cp < 0xD800 || cp > 0xDFFF) AppendUtf16(cp, everything);
  }
  for (locale_t locale : {c_, latin1_}) {
    uselocale(locale);
    std::mt19937 random(2);
    for (int round = 0; round < 2000; ++round) {
      const std::string utf16 = round == 0 ? everything : MixedUtf16(random, random() % 50);
      const std::string bytes = round == 0 ? allBytes : RandomBytes(random);
      for (StringEncoding other : kNamed) {
        ExpectSameAsIconv(other, FromUtf16(other, utf16));
        ExpectSameAsIconv(other, bytes);
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Unicode normalisation: exactly utf8proc's results; the library's own NFC (a quick check, then
// composing from its tables) must never differ from them.

// The pieces of a text joined by "|".
std::vector<std::string> Pieces(const std::string& joined) {
  std::vector<std::string> pieces;
  std::istringstream in(joined);
  for (std::string piece; std::getline(in, piece, '|');) pieces.push_back(piece);
  return pieces;
}

// Both paths, every form: the texts and the success flags agree.
void ExpectSameAsUtf8proc(const std::string& text) {
  for (int form = 0; form < 4; ++form) {
    std::string fast = text;
    std::string reference = text;
    const bool fastOk = NormalizeUtf8(fast, form);
    ASSERT_EQ(fastOk, NormalizeUtf8WithUtf8proc(reference, form)) << form;
    ASSERT_TRUE(fastOk || fast == text) << "refused text must stay as it was";
    ASSERT_EQ(fast, reference) << "form " << form << " of " << testing::PrintToString(text);
  }
}

TEST(NfcTest, TheUnicodeNormalizationTestData) {
  std::string data;
  if (FILE* file = std::fopen(VANTU_NORMALIZATION_TEST_FILE, "rb")) {
    int error = BZ_OK;
    BZFILE* bz = BZ2_bzReadOpen(&error, file, 0, 0, nullptr, 0);
    char buffer[65536];
    for (int n; error == BZ_OK && (n = BZ2_bzRead(&error, bz, buffer, sizeof(buffer))) > 0;) {
      data.append(buffer, static_cast<size_t>(n));
    }
    BZ2_bzReadClose(&error, bz);
    std::fclose(file);
  }
  if (data.empty()) GTEST_SKIP() << VANTU_NORMALIZATION_TEST_FILE << " is missing (unicode-data)";
  std::istringstream lines(data);
  size_t cases = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#' || line[0] == '@') continue;
    // Five columns of code points: c2 == NFC(c1) == NFC(c2) == NFC(c3); c4 == NFC(c4) == NFC(c5).
    std::istringstream fields(line);
    std::string columns[5];
    for (std::string& column : columns) {
      std::string field;
      std::getline(fields, field, ';');
      std::istringstream codes(field);
      for (std::string hex; codes >> hex;) column += Utf8(std::stoul(hex, nullptr, 16));
    }
    for (int c = 0; c < 5; ++c) {
      std::string nfc = columns[c];
      ASSERT_TRUE(NormalizeUtf8(nfc, NFC)) << line;
      ASSERT_EQ(nfc, columns[c < 3 ? 1 : 3]) << line;
      ExpectSameAsUtf8proc(columns[c]);
    }
    ++cases;
  }
  EXPECT_GT(cases, 18000u);
}

// Every code point has utf8proc's combining class in the composition data, and in the quick
// check table where that calls it Yes; every code point the quick check calls Yes comes out of
// NFC unchanged; the last code point of every decomposition that NFC composes back is marked
// not Yes, so that the check never lets a composition through.
TEST(NfcTest, TheTableAgreesWithUtf8proc) {
  size_t composites = 0;
  for (uint32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    const uint8_t property = NfcProperty(cp);
    const auto code = static_cast<utf8proc_int32_t>(cp);
    const auto combiningClass = utf8proc_get_property(code)->combining_class;
    ASSERT_EQ(NfcCombiningClass(NfcData(cp)), combiningClass) << std::hex << cp;
    ASSERT_TRUE(property == kNfcNotYes || property == combiningClass) << std::hex << cp;
    const auto lead = static_cast<unsigned char>(Utf8(cp)[0]);
    ASSERT_TRUE(!NfcQuietLead(lead) || property == 0) << std::hex << cp;
    utf8proc_int32_t parts[32];
    int boundclass = 0;
    const auto n = utf8proc_decompose_char(code, parts, 32, UTF8PROC_DECOMPOSE, &boundclass);
    ASSERT_TRUE(n > 0 && n <= 32) << std::hex << cp;
    if (n == 1 && parts[0] == code) continue;  // nothing to decompose or compose
    std::string nfc = Utf8(cp);
    ASSERT_TRUE(NormalizeUtf8WithUtf8proc(nfc, NFC));
    ASSERT_TRUE(property == kNfcNotYes || nfc == Utf8(cp)) << std::hex << cp;
    std::string recomposed;
    for (int k = 0; k < n; ++k) recomposed += Utf8(static_cast<uint32_t>(parts[k]));
    ASSERT_TRUE(NormalizeUtf8WithUtf8proc(recomposed, NFC));
    if (n < 2 || recomposed != Utf8(cp)) continue;  // an excluded composite is never composed
    ++composites;
    const auto last = static_cast<uint32_t>(parts[n - 1]);
    ASSERT_EQ(NfcProperty(last), kNfcNotYes) << std::hex << last << " composes into " << cp;
  }
  EXPECT_GT(composites, 11172u);  // the Hangul syllables and the other primary composites
  // The lead bytes that the scan's sixteen-byte blocks take as quiet without the table.
  for (int lead : {0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xCB, 0xE4, 0xE5, 0xE6,
                   0xE7, 0xE8, 0xE9, 0xEB, 0xEC}) {
    EXPECT_TRUE(NfcQuietLead(static_cast<unsigned char>(lead))) << std::hex << lead;
  }
}

// Random texts of pieces that exercise the check (starters, marks in and out of canonical
// order, Hangul, composition exclusions, singletons, CJK, emoji, the shortest and longest forms
// of each length, invalid and cut sequences, NUL bytes) after ASCII runs of every length, which
// the check reads eight bytes at a time; then long NFC texts with one piece that NFC changes.
TEST(NfcTest, RandomTextGivesUtf8procsResults) {
  const std::vector<uint32_t> points = {
      'a',    'e',    'A',    0x00E9, 0x00C5,  0x0300,  0x0301, 0x0316, 0x0327,   0x0345,
      0x0340, 0x0344, 0x0374, 0x037E, 0x0387,  0x03B1,  0x1F00, 0x1100, 0x1161,   0x11A8,
      0xAC00, 0xD4DB, 0x0915, 0x093C, 0x0958,  0x05D0,  0x05B7, 0x05BC, 0x4E00,   0x2126,
      0x212B, 0x1E0A, 0x0323, 0x0307, 0x1D15E, 0x1F600, 0xFB01, 0xFFFE, 0x10FFFF, 0x0E01,
      0x0E48, 0x3099, 0x304B, 0x0080, 0x07FF,  0x0800,  0xD7FF, 0xE000, 0xFFFF,   0x10000};
  const std::vector<std::string> nfc = Pieces(
      "word |caf\xC3\xA9 |\xCE\xB1\xCE\xB2|\xE4\xB8\xAD|\xF0\x9F\x98\x80|\xEA\xB0\x80|"
      "q\xCC\x96\xCC\x85|\xE0\xA4\x95\xE0\xA4\xBF");
  const std::vector<std::string> faults = Pieces(
      "e\xCC\x81|q\xCC\x85\xCC\x96|\xE1\x84\x80\xE1\x85\xA1|\xEA\xB0\x80\xE1\x86\xA8|"
      "\xE2\x84\xAB|\xE0\xA5\x98|\xCD\x80|\0|\xFF|\xC3|\x80|\xC1\xBF|\xE0\x80\x80|"
      "\xED\xA0\x80|\xE4\xB8|\xF0\x8F\xBF\xBF|\xF4\x90\x80\x80|\xF5\x80\x80\x80|"
      "\xF8\x88\x80\x80|\xF0\x9F\x98"s);
  std::mt19937 random(1234);
  for (int i = 0; i < 100000; ++i) {
    std::string text(random() % 40, 'y');
    for (size_t k = random() % 8; k > 0; --k) {
      text +=
          random() % 4 ? Utf8(points[random() % points.size()]) : faults[random() % faults.size()];
    }
    ExpectSameAsUtf8proc(text + std::string(random() % 2 ? random() % 31 : 0, 'a'));
  }
  for (int i = 0; i < 400; ++i) {
    std::string text;
    const size_t count = 50 + random() % 400;
    const size_t at = i % 4 ? random() % count : count;  // a quarter stays NFC
    for (size_t k = 0; k < count; ++k) {
      text += k == at ? faults[random() % faults.size()] : nfc[random() % nfc.size()];
    }
    ExpectSameAsUtf8proc(text);
  }
}

// Random code point sequences, weighted towards what composing must get right: combining marks
// in and out of order, Hangul jamo and syllables (with jamo beyond the composing ranges),
// composition exclusions, composites and their parts, and any other code point. The pools come
// from utf8proc, which is also the reference.
TEST(NfcTest, RandomCodePointsComposeAsUtf8procDoes) {
  std::vector<uint32_t> marks, exclusions, composed, any;
  for (uint32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    const auto code = static_cast<utf8proc_int32_t>(cp);
    const utf8proc_property_t* property = utf8proc_get_property(code);
    if (property->combining_class != 0) marks.push_back(cp);
    if (property->comp_exclusion) exclusions.push_back(cp);
    utf8proc_int32_t parts[32];
    int boundclass = 0;
    const auto n = utf8proc_decompose_char(code, parts, 32, UTF8PROC_DECOMPOSE, &boundclass);
    if (n > 1 || (n == 1 && parts[0] != code)) {
      composed.push_back(cp);
      for (int k = 0; k < n; ++k) composed.push_back(static_cast<uint32_t>(parts[k]));
    }
    if (cp % 97 == 0) any.push_back(cp);
  }
  ASSERT_TRUE(marks.size() > 800 && exclusions.size() > 60 && composed.size() > 4000);
  std::mt19937 random(20261125);
  const auto pick = [&random](const std::vector<uint32_t>& pool) {
    return pool[random() % pool.size()];
  };
  for (int i = 0; i < 200000; ++i) {
    std::string text;
    for (size_t k = 1 + random() % 10; k > 0; --k) {
      const unsigned kind = random() % 20;
      uint32_t cp;
      if (kind < 7) {
        cp = pick(marks);
      } else if (kind < 12) {  // L 1100-1112, V 1161-1175, T 11A8-11C2, and a step beyond
        // (U+11A7 below the trailing consonants is left out: utf8proc drops it after an LV
        // syllable, which Unicode does not; checked below).
        const uint32_t jamo[][2] = {{0x10FF, 0x1113}, {0x1160, 0x1176}, {0x11A8, 0x11C3}};
        const auto& range = jamo[random() % 3];
        cp = kind == 11 ? 0xAC00 + random() % 11172
                        : range[0] + random() % (range[1] - range[0] + 1);
      } else if (kind < 14) {
        cp = pick(exclusions);
      } else if (kind < 18) {
        cp = pick(composed);
      } else {
        cp = kind == 18 ? pick(any) : 'a' + random() % 3;
      }
      text += Utf8(cp);
    }
    std::string ours = text, reference = text;
    ASSERT_TRUE(NormalizeUtf8(ours, NFC));
    ASSERT_TRUE(NormalizeUtf8WithUtf8proc(reference, NFC));
    ASSERT_EQ(Hex(ours), Hex(reference)) << "NFC of " << Hex(text);
  }
  // U+11A7 is no trailing consonant: after an LV syllable, or L V jamo, it stays.
  for (std::string text :
       {Utf8(0xAC00) + Utf8(0x11A7), Utf8(0x1100) + Utf8(0x1161) + Utf8(0x11A7)}) {
    ASSERT_TRUE(NormalizeUtf8(text, NFC));
    EXPECT_EQ(Hex(text), Hex(Utf8(0xAC00) + Utf8(0x11A7)));
  }
}

}  // namespace
