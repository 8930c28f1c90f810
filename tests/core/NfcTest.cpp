// The NFC quick check must never change what utf8proc would produce.
#include <gtest/gtest.h>

#include <bzlib.h>
#include <utf8proc.h>

#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <vantu/VString.h>

#include "internal/Nfc.h"
#include "internal/NfcTable.h"
#include "support/Text.h"

namespace {

using vantu::internal::NormalizeUtf8;
using vantu::internal::NormalizeUtf8WithUtf8proc;
using vantu::test::Utf8;

// Both paths, every form; the texts and the success flags must agree.
void ExpectSameAsUtf8proc(const std::string& text) {
  for (int form = 0; form < 4; ++form) {
    std::string fast = text;
    std::string reference = text;
    const bool fastOk = NormalizeUtf8(fast, form);
    const bool referenceOk = NormalizeUtf8WithUtf8proc(reference, form);
    ASSERT_EQ(fastOk, referenceOk) << "form " << form;
    ASSERT_EQ(fast, reference) << "form " << form;
  }
}

std::string ReadBzip2(const char* path) {
  FILE* file = std::fopen(path, "rb");
  if (file == nullptr) return std::string();
  int error = BZ_OK;
  BZFILE* bz = BZ2_bzReadOpen(&error, file, 0, 0, nullptr, 0);
  std::string text;
  char buffer[65536];
  while (error == BZ_OK) {
    const int n = BZ2_bzRead(&error, bz, buffer, sizeof(buffer));
    if (n > 0) text.append(buffer, static_cast<size_t>(n));
  }
  BZ2_bzReadClose(&error, bz);
  std::fclose(file);
  return text;
}

std::string Field(const std::string& codes) {
  std::istringstream in(codes);
  std::string out;
  for (std::string hex; in >> hex;)
    out += Utf8(static_cast<uint32_t>(std::stoul(hex, nullptr, 16)));
  return out;
}

TEST(NfcTest, TheUnicodeNormalizationTestData) {
  const std::string data = ReadBzip2(VANTU_NORMALIZATION_TEST_FILE);
  if (data.empty()) GTEST_SKIP() << VANTU_NORMALIZATION_TEST_FILE << " is missing (unicode-data)";
  std::istringstream lines(data);
  size_t cases = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#' || line[0] == '@') continue;
    std::vector<std::string> columns;
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, ';') && columns.size() < 5;) {
      columns.push_back(Field(field));
    }
    ASSERT_EQ(columns.size(), 5u) << line;
    // c2 == toNFC(c1) == toNFC(c2) == toNFC(c3); c4 == toNFC(c4) == toNFC(c5).
    for (int c = 0; c < 5; ++c) {
      std::string nfc = columns[c];
      ASSERT_TRUE(NormalizeUtf8(nfc, 2)) << line;
      ASSERT_EQ(nfc, columns[c < 3 ? 1 : 3]) << line;
      ExpectSameAsUtf8proc(columns[c]);
    }
    ++cases;
  }
  EXPECT_GT(cases, 18000u);
}

TEST(NfcTest, RandomTextGivesUtf8procsResults) {
  // Pieces that exercise the check: starters, marks in and out of canonical order, Hangul,
  // composition exclusions, singletons, CJK, emoji, NUL bytes and invalid bytes.
  const std::vector<uint32_t> pieces = {
      'a',    'e',     'A',     0x00E9, 0x00C5, 0x0300,   0x0301, 0x0316, 0x0327, 0x0345, 0x0340,
      0x0344, 0x0374,  0x037E,  0x0387, 0x03B1, 0x1F00,   0x1100, 0x1161, 0x11A8, 0xAC00, 0xD4DB,
      0x0915, 0x093C,  0x0958,  0x05D0, 0x05B7, 0x05BC,   0x4E00, 0x2126, 0x212B, 0x1E0A, 0x0323,
      0x0307, 0x1D15E, 0x1F600, 0xFB01, 0xFFFE, 0x10FFFF, 0x0E01, 0x0E48, 0x3099, 0x304B};
  std::mt19937 random(1234);
  std::uniform_int_distribution<size_t> pick(0, pieces.size() - 1);
  std::uniform_int_distribution<int> length(0, 12);
  std::uniform_int_distribution<int> odd(0, 40);
  for (int i = 0; i < 100000; ++i) {
    std::string text;
    for (int k = length(random); k > 0; --k) {
      const int special = odd(random);
      if (special == 0) {
        text.push_back('\0');
      } else if (special == 1) {
        text.push_back(static_cast<char>(0x80 + random() % 0x80));  // a stray byte
      } else if (special == 2) {
        text += Utf8(pieces[pick(random)]).substr(0, 1);  // a truncated sequence
      } else {
        text += Utf8(pieces[pick(random)]);
      }
    }
    ExpectSameAsUtf8proc(text);
  }
}

// Every code point the table calls quick-check Yes has utf8proc's combining class, comes out of
// utf8proc's NFC unchanged, and never composes with what precedes it: the last code point of every
// canonical decomposition that utf8proc composes back must be marked not Yes.
TEST(NfcTest, TheTableAgreesWithUtf8proc) {
  size_t composites = 0;
  for (uint32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    const uint8_t property = vantu::internal::NfcProperty(cp);
    const auto code = static_cast<utf8proc_int32_t>(cp);
    if (property != vantu::internal::kNfcNotYes) {
      ASSERT_EQ(property, utf8proc_get_property(code)->combining_class) << std::hex << cp;
    }
    utf8proc_int32_t decomposed[32];
    int boundclass = 0;
    const utf8proc_ssize_t n =
        utf8proc_decompose_char(code, decomposed, 32, UTF8PROC_DECOMPOSE, &boundclass);
    ASSERT_GT(n, 0) << std::hex << cp;
    ASSERT_LE(n, 32) << std::hex << cp;
    if (n == 1 && decomposed[0] == code) continue;  // nothing to decompose or compose
    const std::string alone = Utf8(cp);
    std::string nfc = alone;
    ASSERT_TRUE(NormalizeUtf8WithUtf8proc(nfc, 2));
    if (property != vantu::internal::kNfcNotYes) {
      ASSERT_EQ(nfc, alone) << std::hex << cp;
    }
    if (n < 2) continue;
    std::string recomposed;
    for (utf8proc_ssize_t k = 0; k < n; ++k)
      recomposed += Utf8(static_cast<uint32_t>(decomposed[k]));
    ASSERT_TRUE(NormalizeUtf8WithUtf8proc(recomposed, 2));
    if (recomposed != alone) continue;  // an excluded composite: never composed
    ++composites;
    const auto second = static_cast<uint32_t>(decomposed[n - 1]);
    ASSERT_EQ(vantu::internal::NfcProperty(second), vantu::internal::kNfcNotYes)
        << std::hex << second << " composes into " << cp;
  }
  EXPECT_GT(composites, 11172u);  // the Hangul syllables and the other primary composites
}

// Malformed UTF-8 makes the whole text fail and stay as it was, wherever the fault sits; the
// shortest and longest forms of each length are accepted.
TEST(NfcTest, InvalidUtf8IsRefusedAndLeftUnchanged) {
  const std::vector<std::string> invalid = {"\x80",
                                            "\xBF",
                                            "\xC0\x80",
                                            "\xC1\xBF",
                                            "\xC2",
                                            "\xC2\x41",
                                            "\xE0\x80\x80",
                                            "\xE0\x9F\xBF",
                                            "\xE1\x80",
                                            "\xED\xA0\x80",
                                            "\xED\xBF\xBF",
                                            "\xF0\x80\x80\x80",
                                            "\xF0\x8F\xBF\xBF",
                                            "\xF4\x90\x80\x80",
                                            "\xF5\x80\x80\x80",
                                            "\xF8\x88\x80\x80\x80",
                                            "\xFE",
                                            "\xFF",
                                            "\xF0\x9F\x98",
                                            "\xE4\xB8"};
  const std::vector<std::string> valid = {"\xC2\x80",         "\xDF\xBF",        "\xE0\xA0\x80",
                                          "\xED\x9F\xBF",     "\xEE\x80\x80",    "\xEF\xBF\xBF",
                                          "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"};
  const std::vector<std::pair<std::string, std::string>> contexts = {
      {"", ""},
      {"plain ascii text", ""},
      {"", "plain ascii text"},
      {"caf\xC3\xA9 \xCE\xB1\xCE\xB2 \xE4\xB8\xAD ", " \xF0\x9F\x98\x80 tail"},
      {"e\xCC\x81 ", " x"}};
  for (const auto& [before, after] : contexts) {
    for (const std::string& bad : invalid) {
      const std::string text = before + bad + after;
      std::string normalized = text;
      EXPECT_FALSE(NormalizeUtf8(normalized, 2)) << testing::PrintToString(text);
      EXPECT_EQ(normalized, text);
      ExpectSameAsUtf8proc(text);
      // After a NUL byte nothing is read: the text is cut there and accepted.
      ExpectSameAsUtf8proc(before + std::string(1, '\0') + bad + after);
      std::string cut = before + std::string(1, '\0') + bad + after;
      EXPECT_TRUE(NormalizeUtf8(cut, 2));
    }
    for (const std::string& good : valid) {
      const std::string text = before + good + after;
      std::string normalized = text;
      EXPECT_TRUE(NormalizeUtf8(normalized, 2)) << testing::PrintToString(text);
      ExpectSameAsUtf8proc(text);
    }
  }
}

// ASCII is the same in every form; a NUL byte, a multi-byte character or a combining mark is
// noticed at any offset, inside or across the eight-byte words read at once.
TEST(NfcTest, AsciiAndWhatInterruptsIt) {
  std::string ascii;
  for (int c = 1; c < 0x80; ++c) ascii.push_back(static_cast<char>(c));
  for (int form = 0; form < 4; ++form) {
    std::string text = ascii + ascii;
    ASSERT_TRUE(NormalizeUtf8(text, form));
    EXPECT_EQ(text, ascii + ascii);
  }
  const std::vector<std::string> interruptions = {std::string(1, '\0'),
                                                  "\xC3\xA9",
                                                  "\xCC\x81",
                                                  "\xCC\xA3\xCC\x87",
                                                  "\xCC\x87\xCC\xA3",
                                                  "\xCC\x96\xCC\x85",
                                                  "\xCC\x85\xCC\x96",
                                                  "\xE1\x86\xA8",
                                                  "\xEF\xAC\x81",
                                                  "\xE2\x84\xA6",
                                                  "\xFF",
                                                  "\xC3"};
  for (const std::string& interruption : interruptions) {
    for (size_t offset = 0; offset < 40; ++offset) {
      for (size_t tail : {0, 1, 7, 8, 9, 30}) {
        ExpectSameAsUtf8proc(std::string(offset, 'y') + interruption + std::string(tail, 'a'));
      }
    }
  }
}

// Long NFC texts with one disruptive piece at a random place: the check must see it anywhere.
TEST(NfcTest, LongTextsWithOneFaultAnywhere) {
  const std::vector<std::string> nfc = {
      "word ",         "The quick brown fox. ",   "caf\xC3\xA9 ", "\xCE\xB1\xCE\xB2\xCE\xB3",
      "\xE4\xB8\xAD",  "\xF0\x9F\x98\x80",        "\xEA\xB0\x80", "q\xCC\x96\xCC\x85",
      "\xE1\xBA\xA1 ", "\xE0\xA4\x95\xE0\xA4\xBF"};
  const std::vector<std::string> faults = {"e\xCC\x81",
                                           "a\xCC\x87\xCC\xA3",
                                           "\xE1\x84\x80\xE1\x85\xA1",
                                           "\xEA\xB0\x80\xE1\x86\xA8",
                                           "\xE2\x84\xAB",
                                           "\xE0\xA5\x98",
                                           "\xCD\x80",
                                           "q\xCC\x85\xCC\x96",
                                           std::string(1, '\0'),
                                           "\xED\xA0\x80",
                                           "\xC3"};
  std::mt19937 random(99);
  for (int i = 0; i < 400; ++i) {
    std::vector<std::string> pieces;
    const size_t count = 50 + random() % 400;
    for (size_t k = 0; k < count; ++k) pieces.push_back(nfc[random() % nfc.size()]);
    if (i % 4 != 0) pieces[random() % count] = faults[random() % faults.size()];
    std::string text;
    for (const std::string& piece : pieces) text += piece;
    std::string fast = text;
    std::string reference = text;
    ASSERT_EQ(NormalizeUtf8(fast, 2), NormalizeUtf8WithUtf8proc(reference, 2));
    ASSERT_EQ(fast, reference) << testing::PrintToString(text);
  }
}

TEST(NfcTest, StringsBuiltFromDecomposedUtf8AreComposed) {
  const VString text(
      std::string("\xEF\xBB\xBF"
                  "e\xCC\x81"));
  EXPECT_EQ(text.GetString(), "\xC3\xA9");
  EXPECT_EQ(text.GetNormalization(), NFC);
  // Already NFC, non-ASCII: kept byte for byte.
  const std::string nfc = "\xCE\xB1\xCE\xB2 \xE4\xB8\xAD\xE6\x96\x87 \xF0\x9F\x98\x80 caf\xC3\xA9";
  EXPECT_EQ(VString(nfc, UTF8).GetString(), nfc);
  // Everything after a NUL byte is dropped, as utf8proc reads up to it.
  EXPECT_EQ(VString(std::string("ab\0cd", 5), UTF8).GetString(), "ab");
}

}  // namespace
