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

namespace {

using vantu::internal::NormalizeUtf8;
using vantu::internal::NormalizeUtf8WithUtf8proc;

std::string Utf8(uint32_t cp) {
  std::string out;
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
  return out;
}

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

TEST(NfcTest, TheTableAgreesWithUtf8procsCombiningClasses) {
  for (uint32_t cp = 0x300; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    const uint8_t property = vantu::internal::NfcProperty(cp);
    if (property == vantu::internal::kNfcNotYes) continue;
    ASSERT_EQ(property, utf8proc_get_property(static_cast<utf8proc_int32_t>(cp))->combining_class)
        << std::hex << cp;
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
