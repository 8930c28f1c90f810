// Conversions between the five named encodings: the fast paths against POCO's TextConverter
// on valid and invalid input, POCO's own readings that the library inherits, and ConvertTo.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <Poco/ASCIIEncoding.h>
#include <Poco/Latin1Encoding.h>
#include <Poco/Latin9Encoding.h>
#include <Poco/TextConverter.h>
#include <Poco/UTF16Encoding.h>
#include <Poco/UTF8Encoding.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <vantu/VString.h>

#include "internal/Nfc.h"
#include "internal/TextConversion.h"
#include "support/Bytes.h"
#include "support/Text.h"

namespace {

using vantu::internal::ConvertText;
using vantu::internal::ConvertTextWithPoco;
using vantu::test::AppendUnit;
using vantu::test::AppendUtf16;
using vantu::test::AppendUtf8;
using vantu::test::Bytes;
using vantu::test::EncodingName;
using vantu::test::Hex;

constexpr StringEncoding kNamed[] = {ASCII, Latin1, Latin9, UTF8, UTF16};

// Expects the fast conversion from `from` into every other named encoding to give POCO's
// bytes for `input`.
void ExpectSameAsPoco(StringEncoding from, const std::string& input, const std::string& label) {
  for (StringEncoding to : kNamed) {
    if (to == from) continue;
    std::string fast = "stale";
    std::string reference;
    ConvertText(from, to, input, fast);
    ConvertTextWithPoco(from, to, input, reference);
    ASSERT_EQ(Hex(fast), Hex(reference)) << label << ": " << EncodingName(from) << " -> "
                                         << EncodingName(to) << ", input " << Hex(input);
  }
}

// Text drawn from ASCII, Latin-1, the Latin-9 letters, Greek, CJK, emoji, NUL and the
// noncharacters, as code points.
std::vector<uint32_t> MixedCodePoints(std::mt19937& random, size_t count) {
  static const uint32_t kSpecial[] = {0x0,    0x7F,   0x80,    0xA4,    0xFF,    0x152,
                                      0x160,  0x178,  0x20AC,  0xFFFD,  0xFFFE,  0xFFFF,
                                      0xD7FF, 0xE000, 0x10000, 0x1FFFE, 0x10FFFF};
  std::vector<uint32_t> points;
  for (size_t i = 0; i < count; ++i) {
    switch (random() % 8) {
      case 0:
      case 1:
      case 2:
        points.push_back(0x20 + random() % 0x5F);
        break;
      case 3:
        points.push_back(0xA0 + random() % 0x60);
        break;
      case 4:
        points.push_back(0x391 + random() % 0x38);
        break;
      case 5:
        points.push_back(0x4E00 + random() % 0x5000);
        break;
      case 6:
        points.push_back(0x1F600 + random() % 0x50);
        break;
      default:
        points.push_back(kSpecial[random() % (sizeof kSpecial / sizeof kSpecial[0])]);
        break;
    }
  }
  return points;
}

// The code points in `from`, through POCO (characters the encoding lacks become "?").
std::string Encode(const std::vector<uint32_t>& points, StringEncoding to) {
  std::string utf16;
  for (uint32_t cp : points) AppendUtf16(cp, utf16);
  if (to == UTF16) return utf16;
  std::string out;
  ConvertTextWithPoco(UTF16, to, utf16, out);
  return out;
}

// ---------------------------------------------------------------------------------------------
// Known answers

TEST(TextConversionTest, ConvertToGivesKnownBytes) {
  VString accented(Bytes({0xC3, 0xA9}), UTF8);
  ASSERT_TRUE(accented.ConvertTo(ASCII));
  EXPECT_EQ(Hex(accented.GetString()), "3F");

  VString euro(Bytes({0xA4}), Latin9);
  ASSERT_TRUE(euro.ConvertTo(UTF8));
  EXPECT_EQ(Hex(euro.GetString()), "E2 82 AC");
  ASSERT_TRUE(euro.ConvertTo(Latin1));  // Latin-1 has no euro sign
  EXPECT_EQ(euro.GetString(), "?");

  VString currency(Bytes({0xA4}), Latin1);  // the general currency sign, absent from Latin-9
  ASSERT_TRUE(currency.ConvertTo(Latin9));
  EXPECT_EQ(currency.GetString(), "?");

  VString ligature(Bytes({0xBC, 0xBD}), Latin9);
  ASSERT_TRUE(ligature.ConvertTo(UTF16));
  EXPECT_EQ(Hex(ligature.GetString()), "52 01 53 01");
  ASSERT_TRUE(ligature.ConvertTo(Latin9));
  EXPECT_EQ(Hex(ligature.GetString()), "BC BD");

  VString emoji(Bytes({0x41, 0xF0, 0x9F, 0x98, 0x80}), UTF8);
  ASSERT_TRUE(emoji.ConvertTo(UTF16));
  EXPECT_EQ(Hex(emoji.GetString()), "41 00 3D D8 00 DE");
  ASSERT_TRUE(emoji.ConvertTo(Latin1));
  EXPECT_EQ(emoji.GetString(), "A?");  // one "?" for the whole surrogate pair

  VString highAscii(Bytes({0x41, 0x80, 0xFF}), ASCII);
  ASSERT_TRUE(highAscii.ConvertTo(UTF8));
  EXPECT_EQ(highAscii.GetString(), "A??");
}

TEST(TextConversionTest, ConvertToLeavesUnknownEncodingsAlone) {
  VString text(std::string("abc"), Latin1);
  EXPECT_FALSE(text.ConvertTo(static_cast<StringEncoding>(6)));
  EXPECT_FALSE(text.ConvertTo(static_cast<StringEncoding>(-1)));
  EXPECT_EQ(text.GetEncoding(), Latin1);
  EXPECT_EQ(text.GetString(), "abc");
}

TEST(TextConversionTest, ConvertToUtf8NormalisesTheResult) {
  // U+0065 U+0301 (e, combining acute) in UTF-16 becomes the precomposed C3 A9.
  VString decomposed(Bytes({0x65, 0x00, 0x01, 0x03}), UTF16);
  ASSERT_TRUE(decomposed.ConvertTo(UTF8));
  EXPECT_EQ(Hex(decomposed.GetString()), "C3 A9");
}

TEST(TextConversionTest, EqualityAcrossEncodings) {
  EXPECT_TRUE(VString(Bytes({0xC4}), Latin1).IsEqual(VString(Bytes({0xC3, 0x84}), UTF8)));
  EXPECT_TRUE(VString(Bytes({0xA4}), Latin9).IsEqual(VString(Bytes({0xAC, 0x20}), UTF16)));
  EXPECT_FALSE(VString(Bytes({0xA4}), Latin1).IsEqual(VString(Bytes({0xA4}), Latin9)));
}

// What POCO makes of invalid input, and so what the library gives for it.
TEST(TextConversionTest, InvalidInputReadsAsPocoReadsIt) {
  struct Case {
    StringEncoding from;
    StringEncoding to;
    std::string input;
    const char* expected;
  };
  const Case cases[] = {
      // A UTF-8 sequence with a bad continuation byte is one "?" for its whole length.
      {UTF8, UTF16, Bytes({0xC3, 0x41}), "3F 00"},
      {UTF8, UTF16, Bytes({0xE2, 0x82, 0x41, 0x42}), "3F 00 42 00"},
      // A truncated sequence at the end is one "?".
      {UTF8, UTF16, Bytes({0x41, 0xF0, 0x9F, 0x98}), "41 00 3F 00"},
      {UTF8, Latin1, Bytes({0x41, 0xE2, 0x82}), "41 3F"},
      // Encoded surrogates, overlong forms and values above U+10FFFF are invalid.
      {UTF8, UTF16, Bytes({0xED, 0xA0, 0x80}), "3F 00"},
      {UTF8, UTF16, Bytes({0xC0, 0x80}), "3F 00"},
      {UTF8, UTF16, Bytes({0xE0, 0x80, 0x80}), "3F 00"},
      {UTF8, UTF16, Bytes({0xF4, 0x90, 0x80, 0x80}), "3F 00"},
      // F8 to FF are single invalid bytes; their continuation bytes are invalid one by one.
      {UTF8, UTF16, Bytes({0xF8, 0x88, 0x80}), "3F 00 3F 00 3F 00"},
      {UTF8, Latin1, Bytes({0xFF, 0x41}), "3F 41"},
      // Noncharacters are valid.
      {UTF8, UTF16, Bytes({0xEF, 0xBF, 0xBF}), "FF FF"},
      // A low surrogate alone is passed on as a code point; POCO encodes it in UTF-8.
      {UTF16, UTF8, Bytes({0x00, 0xDC}), "ED B0 80"},
      {UTF16, Latin1, Bytes({0x00, 0xDC}), "3F"},
      // A high surrogate with no low one after it swallows the next unit.
      {UTF16, UTF8, Bytes({0x00, 0xD8, 0x41, 0x00, 0x42, 0x00}), "3F 42"},
      // A high surrogate at the end, or an odd last byte, is one "?".
      {UTF16, UTF8, Bytes({0x41, 0x00, 0x00, 0xD8}), "41 3F"},
      {UTF16, UTF8, Bytes({0x41, 0x00, 0x42}), "41 3F"},
      {UTF16, Latin9, Bytes({0x00, 0xD8, 0x00}), "3F"},
  };
  for (const Case& c : cases) {
    std::string out;
    ConvertText(c.from, c.to, c.input, out);
    EXPECT_EQ(Hex(out), c.expected)
        << EncodingName(c.from) << " -> " << EncodingName(c.to) << " of " << Hex(c.input);
    std::string reference;
    ConvertTextWithPoco(c.from, c.to, c.input, reference);
    EXPECT_EQ(Hex(reference), c.expected) << "POCO's reading changed";
  }
}

// ---------------------------------------------------------------------------------------------
// The fast paths against POCO on valid text

TEST(TextConversionTest, EverySingleByteMatchesPoco) {
  std::string all;
  for (int b = 0; b < 256; ++b) all.push_back(static_cast<char>(b));
  for (StringEncoding from : {ASCII, Latin1, Latin9}) {
    ExpectSameAsPoco(from, all, "all bytes");
    for (int b = 0; b < 256; ++b) {
      // Alone, after a block of ASCII and inside one.
      const std::string byte(1, static_cast<char>(b));
      ExpectSameAsPoco(from, byte, "one byte");
      ExpectSameAsPoco(from, std::string(16, 'x') + byte, "after a block");
      ExpectSameAsPoco(from, std::string(7, 'x') + byte + std::string(20, 'y'), "in a block");
    }
  }
}

TEST(TextConversionTest, EveryBmpCodePointMatchesPoco) {
  std::string utf16;
  std::string utf8;
  for (uint32_t cp = 0; cp < 0x10000; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    std::string one16;
    std::string one8;
    AppendUtf16(cp, one16);
    AppendUtf8(cp, one8);
    utf16 += one16;
    utf8 += one8;
    // Where the single-byte targets and the UTF-8 encoder branch, code point by code point.
    if (cp < 0x900 || (cp >= 0x2000 && cp < 0x2100) || cp >= 0xF000) {
      ExpectSameAsPoco(UTF16, one16, "one code point");
      ExpectSameAsPoco(UTF8, one8, "one code point");
    }
  }
  ExpectSameAsPoco(UTF16, utf16, "all of the BMP");
  ExpectSameAsPoco(UTF8, utf8, "all of the BMP");
}

TEST(TextConversionTest, AstralCodePointsMatchPoco) {
  std::string utf16;
  std::string utf8;
  for (uint32_t cp = 0x10000; cp <= 0x10FFFF; cp += 0x3FF) {
    for (uint32_t each : {cp, cp + 1}) {
      AppendUtf16(each, utf16);
      AppendUtf8(each, utf8);
    }
  }
  AppendUtf16(0x10FFFF, utf16);
  AppendUtf8(0x10FFFF, utf8);
  ExpectSameAsPoco(UTF16, utf16, "astral");
  ExpectSameAsPoco(UTF8, utf8, "astral");
}

TEST(TextConversionTest, RandomMixedTextMatchesPoco) {
  std::mt19937 random(20261122);
  for (int round = 0; round < 400; ++round) {
    const std::vector<uint32_t> points = MixedCodePoints(random, random() % 80);
    for (StringEncoding from : kNamed) {
      ExpectSameAsPoco(from, Encode(points, from), "mixed text");
    }
  }
}

TEST(TextConversionTest, LongMixedTextMatchesPoco) {
  std::mt19937 random(7);
  std::vector<uint32_t> points = MixedCodePoints(random, 100000);
  for (StringEncoding from : kNamed) ExpectSameAsPoco(from, Encode(points, from), "long text");
}

// ---------------------------------------------------------------------------------------------
// The fast paths against POCO on invalid input

// Every lead byte with every second byte and border values after it, so that each range
// check of the UTF-8 reader is crossed; at the start, after a block of ASCII and at the end.
TEST(TextConversionTest, Utf8SequencesAroundEveryBorderMatchPoco) {
  const int kBorders[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xFF};
  for (int lead = 0x80; lead <= 0xFF; ++lead) {
    for (int second = 0; second <= 0xFF; ++second) {
      std::string sequence = Bytes({lead, second});
      ExpectSameAsPoco(UTF8, sequence, "two bytes");
      if (lead < 0xE0) continue;
      for (int third : kBorders) {
        std::string three = sequence + static_cast<char>(third);
        ExpectSameAsPoco(UTF8, three + "z", "three bytes");
        if (lead < 0xF0) continue;
        for (int fourth : {0x41, 0x80, 0xBF, 0xC0}) {
          ExpectSameAsPoco(UTF8, three + static_cast<char>(fourth), "four bytes");
        }
      }
    }
    ExpectSameAsPoco(UTF8, std::string(17, 'a') + static_cast<char>(lead), "truncated at the end");
  }
}

// Random byte strings weighted towards the bytes that matter, among valid text.
TEST(TextConversionTest, RandomInvalidInputMatchesPoco) {
  const unsigned char kInteresting[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF,
                                        0xC0, 0xC1, 0xC2, 0xDF, 0xE0, 0xED, 0xEF, 0xF0, 0xF4,
                                        0xF5, 0xF8, 0xFC, 0xFE, 0xFF, 0xD8, 0xDB, 0xDC, 0xDF};
  std::mt19937 random(99);
  for (int round = 0; round < 8000; ++round) {
    std::string input;
    // Often start with an ASCII run so that the invalid part lands on a block border.
    if (random() % 2) input.assign(random() % 34, 'a');
    const size_t count = random() % 12;
    for (size_t i = 0; i < count; ++i) {
      input.push_back(static_cast<char>(random() % 2 ? kInteresting[random() % sizeof kInteresting]
                                                     : random() % 256));
    }
    if (random() % 2) input.append(random() % 20, 'b');
    for (StringEncoding from : kNamed) ExpectSameAsPoco(from, input, "random bytes");
  }
}

// Valid text with one fault put in: a byte dropped, changed or added, or the end cut off.
TEST(TextConversionTest, DamagedTextMatchesPoco) {
  std::mt19937 random(5);
  for (int round = 0; round < 3000; ++round) {
    const std::vector<uint32_t> points = MixedCodePoints(random, 1 + random() % 40);
    for (StringEncoding from : {UTF8, UTF16}) {
      std::string text = Encode(points, from);
      const size_t at = random() % text.size();
      switch (random() % 4) {
        case 0:
          text.erase(at, 1);
          break;
        case 1:
          text[at] = static_cast<char>(random() % 256);
          break;
        case 2:
          text.insert(at, 1, static_cast<char>(0x80 + random() % 0x80));
          break;
        default:
          text.resize(at);
          break;
      }
      ExpectSameAsPoco(from, text, "damaged text");
    }
  }
}

TEST(TextConversionTest, UnpairedSurrogatesAndOddLengthsMatchPoco) {
  const uint32_t kUnits[] = {0x41, 0xE9, 0x20AC, 0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xFFFF};
  // Every sequence of up to three of these units, with and without an odd last byte, alone
  // and after a block of ASCII.
  std::vector<std::string> sequences = {""};
  for (int length = 0; length < 3; ++length) {
    std::vector<std::string> longer;
    for (const std::string& s : sequences) {
      for (uint32_t unit : kUnits) {
        std::string next = s;
        AppendUnit(unit, next);
        longer.push_back(next);
      }
    }
    sequences.insert(sequences.end(), longer.begin(), longer.end());
  }
  std::string block;
  for (int i = 0; i < 9; ++i) AppendUnit('a', block);
  for (const std::string& s : sequences) {
    for (const std::string& prefix : {std::string(), block}) {
      ExpectSameAsPoco(UTF16, prefix + s, "units");
      ExpectSameAsPoco(UTF16, prefix + s + '\x41', "units and an odd byte");
      ExpectSameAsPoco(UTF16, prefix + s + '\xD8', "units and an odd byte");
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Reading within the buffer

// POCO's converter, handed input that ends right before an unreadable page, must not read
// past it, whatever sequence the input ends in (truncated UTF-8, an odd UTF-16 byte, a high
// surrogate at the end). The fast paths are covered by the sanitizer build.
TEST(TextConversionTest, PocoReadsNothingPastTheInput) {
  const long page = sysconf(_SC_PAGESIZE);
  void* mapping =
      mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(mapping, MAP_FAILED);
  char* base = static_cast<char*>(mapping);
  ASSERT_EQ(mprotect(base + page, page, PROT_NONE), 0);
  static const Poco::ASCIIEncoding ascii;
  static const Poco::Latin1Encoding latin1;
  static const Poco::Latin9Encoding latin9;
  static const Poco::UTF8Encoding utf8;
  static const Poco::UTF16Encoding utf16(Poco::UTF16Encoding::LITTLE_ENDIAN_BYTE_ORDER);
  const Poco::TextEncoding* encodings[] = {&ascii, &latin1, &latin9, &utf8, &utf16};
  const std::string tails[] = {
      Bytes({0xC3}), Bytes({0xE2, 0x82}),       Bytes({0xF0, 0x9F, 0x98}),
      Bytes({0xF0}), Bytes({0xF8, 0x88}),       Bytes({0xFC}),
      Bytes({0xFE}), Bytes({0x00, 0xD8}),       Bytes({0x41}),
      Bytes({0xD8}), Bytes({0x00, 0xD8, 0x00}), Bytes({0x00, 0xDC}),
  };
  for (const std::string& tail : tails) {
    for (const std::string& head : {std::string(), std::string("ab")}) {
      const std::string input = head + tail;
      char* start = base + page - input.size();
      std::memcpy(start, input.data(), input.size());
      for (const Poco::TextEncoding* from : encodings) {
        for (const Poco::TextEncoding* to : encodings) {
          Poco::TextConverter converter(*from, *to, '?');
          std::string out;
          converter.convert(start, static_cast<int>(input.size()), out);  // crashes on overread
          EXPECT_FALSE(out.empty());
        }
      }
    }
  }
  munmap(mapping, 2 * page);
}

// Output written in blocks must not leak past the text, whatever the length.
TEST(TextConversionTest, EveryLengthAroundTheBlockSize) {
  std::mt19937 random(3);
  for (size_t length = 0; length < 70; ++length) {
    std::vector<uint32_t> points(length, 'q');
    if (length > 0) points[random() % length] = 0x3A9;
    for (StringEncoding from : kNamed) ExpectSameAsPoco(from, Encode(points, from), "length");
  }
}

TEST(TextConversionTest, SameEncodingIsACopy) {
  const std::string invalid = Bytes({0xC3, 0x41, 0x00, 0xFF});
  for (StringEncoding encoding : kNamed) {
    std::string out;
    ConvertText(encoding, encoding, invalid, out);
    EXPECT_EQ(out, invalid) << EncodingName(encoding);
  }
}

TEST(TextConversionTest, OutputMayBeTheInput) {
  std::string text = Bytes({0x47, 0x72, 0xC3, 0xBC, 0xC3, 0x9F, 0x65});
  ConvertText(UTF8, Latin1, text, text);
  EXPECT_EQ(Hex(text), "47 72 FC DF 65");
  ConvertText(Latin1, UTF16, text, text);
  EXPECT_EQ(Hex(text), "47 00 72 00 FC 00 DF 00 65 00");
}

}  // namespace

namespace {

// Converting into UTF8 skips the NFC pass only when the conversion proved it would change
// nothing: the result must equal POCO's conversion followed by utf8proc's NFC.
TEST(TextConversionNfcTest, ConvertToUtf8EqualsConversionThenNfc) {
  const std::vector<uint32_t> units = {'a',    0x00E9, 0x0065, 0x0301, 0x0316, 0x0300,
                                       0x1100, 0x1161, 0xAC00, 0x4E00, 0x0000, 0x0344,
                                       0x212B, 0xD83D, 0xDE00, 0x0958, 0x05B7, 0x05BC};
  std::mt19937 random(99);
  for (int i = 0; i < 20000; ++i) {
    std::string utf16;
    for (int k = static_cast<int>(random() % 10); k > 0; --k) {
      const uint32_t unit = units[random() % units.size()];
      utf16.push_back(static_cast<char>(unit & 0xFF));
      utf16.push_back(static_cast<char>(unit >> 8));
    }
    VString text(UTF16);
    text.SetRaw(utf16.data(), utf16.size(), UTF16);
    ASSERT_TRUE(text.ConvertTo(UTF8));
    std::string expected;
    vantu::internal::ConvertTextWithPoco(UTF16, UTF8, utf16, expected);
    vantu::internal::NormalizeUtf8WithUtf8proc(expected, NFC);
    ASSERT_EQ(text.GetString(), expected);
    EXPECT_EQ(text.GetNormalization(), NFC);
  }
}

}  // namespace
