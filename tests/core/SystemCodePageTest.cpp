// SystemCodePage: the codeset of the calling thread's locale, through iconv, with the C locale
// counting as UTF-8. The Latin-1 locale comes from the build tree (tests/CMakeLists.txt
// generates it with localedef into VANTU_TEST_LOCALE_DIR).
#include <gtest/gtest.h>
#include <langinfo.h>
#include <locale.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <vantu/VString.h>

#include "internal/TextConversion.h"
#include "platform/Platform.h"
#include "support/Bytes.h"
#include "support/Text.h"

#ifndef VANTU_TEST_LOCALE_DIR
#define VANTU_TEST_LOCALE_DIR ""
#endif

namespace {

using vantu::internal::ConvertText;
using vantu::internal::ConvertTextWithPoco;
using vantu::test::AppendUtf16;
using vantu::test::Bytes;
using vantu::test::Hex;

constexpr StringEncoding kNamed[] = {ASCII, Latin1, Latin9, UTF8, UTF16};
constexpr const char* kLatin1Locale = "de_DE.ISO-8859-1";

locale_t OpenLocale(const char* name) {
  const bool fromBuildTree = std::string(name) == kLatin1Locale;
  if (fromBuildTree) {
    if (*VANTU_TEST_LOCALE_DIR == '\0') return nullptr;
    setenv("LOCPATH", VANTU_TEST_LOCALE_DIR, 1);
  }
#if defined(__SANITIZE_ADDRESS__)
  // glibc keeps the LOCPATH list it builds in newlocale and never frees it.
  __lsan_disable();
#endif
  locale_t locale = newlocale(LC_CTYPE_MASK, name, static_cast<locale_t>(nullptr));
#if defined(__SANITIZE_ADDRESS__)
  __lsan_enable();
#endif
  if (fromBuildTree) unsetenv("LOCPATH");
  return locale;
}

// Makes the calling thread use a locale until destroyed.
class ThreadLocale {
 public:
  explicit ThreadLocale(locale_t locale) : locale_(locale), previous_(uselocale(locale)) {}
  ~ThreadLocale() {
    uselocale(previous_);
    freelocale(locale_);
  }
  ThreadLocale(const ThreadLocale&) = delete;
  ThreadLocale& operator=(const ThreadLocale&) = delete;

 private:
  locale_t locale_;
  locale_t previous_;
};

#define USE_LOCALE_OR_SKIP(variable, name)                                                \
  locale_t variable##Handle = OpenLocale(name);                                           \
  if (variable##Handle == nullptr) {                                                      \
    GTEST_SKIP() << "locale " << (name) << " is not available (looked in \""              \
                 << VANTU_TEST_LOCALE_DIR << "\"; the build generates it with localedef " \
                 << "from the locales package)";                                          \
  }                                                                                       \
  ThreadLocale variable(variable##Handle)

// SystemCodePage conversions the way the library defines them: through iconv and UTF-16,
// everything else as between the named encodings, and text for the code page cut at its
// first NUL.
std::string FromCodePageByIconv(StringEncoding to, const std::string& in) {
  std::string utf16;
  vantu::platform::CodePageToUtf16(in, utf16);
  if (to == UTF16) return utf16;
  std::string out;
  ConvertTextWithPoco(UTF16, to, utf16, out);
  return out;
}

std::string ToCodePageByIconv(StringEncoding from, const std::string& in) {
  std::string utf16 = in;
  if (from != UTF16) ConvertTextWithPoco(from, UTF16, in, utf16);
  std::string out;
  vantu::platform::Utf16ToCodePage(utf16, out);
  return out.substr(0, out.find('\0'));
}

std::string Convert(StringEncoding from, StringEncoding to, const std::string& in) {
  std::string out = "stale";
  ConvertText(from, to, in, out);
  return out;
}

void ExpectSameAsIconv(const std::string& input, StringEncoding other, const char* label) {
  ASSERT_EQ(Hex(Convert(SystemCodePage, other, input)), Hex(FromCodePageByIconv(other, input)))
      << label << ": SystemCodePage -> " << other << " of " << Hex(input);
  ASSERT_EQ(Hex(Convert(other, SystemCodePage, input)), Hex(ToCodePageByIconv(other, input)))
      << label << ": " << other << " -> SystemCodePage of " << Hex(input);
}

// Mixed text in UTF-16 (ASCII, Latin, Greek, CJK, emoji, noncharacters).
std::string MixedUtf16(std::mt19937& random, size_t count) {
  static const uint32_t kSpecial[] = {0x20AC, 0xFFFE, 0xFFFF, 0x10FFFF, 0xE9, 0x7F};
  std::string utf16;
  for (size_t i = 0; i < count; ++i) {
    switch (random() % 6) {
      case 0:
      case 1:
        AppendUtf16(0x20 + random() % 0x5F, utf16);
        break;
      case 2:
        AppendUtf16(0xA0 + random() % 0x60, utf16);
        break;
      case 3:
        AppendUtf16(0x391 + random() % 0x38, utf16);
        break;
      case 4:
        AppendUtf16(random() % 2 ? 0x4E00 + random() % 0x5000 : 0x1F600 + random() % 0x50, utf16);
        break;
      default:
        AppendUtf16(kSpecial[random() % (sizeof kSpecial / sizeof kSpecial[0])], utf16);
        break;
    }
  }
  return utf16;
}

// ---------------------------------------------------------------------------------------------
// The C locale: UTF-8

TEST(SystemCodePageTest, CLocaleCountsAsUtf8) {
  USE_LOCALE_OR_SKIP(c, "C");
  EXPECT_STREQ(nl_langinfo(CODESET), "ANSI_X3.4-1968");
  EXPECT_TRUE(vantu::platform::CodePageIsUtf8());
}

TEST(SystemCodePageTest, CLocaleRoundTripsValidUtf8) {
  USE_LOCALE_OR_SKIP(c, "C");
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    std::string utf8;
    ConvertTextWithPoco(UTF16, UTF8, MixedUtf16(random, 1 + random() % 60), utf8);
    if (utf8.find('\0') != std::string::npos) continue;
    VString text(utf8, SystemCodePage);
    ASSERT_TRUE(text.ConvertTo(UTF8));
    ASSERT_EQ(Hex(text.GetString()), Hex(utf8));
    ASSERT_TRUE(text.ConvertTo(SystemCodePage));
    ASSERT_EQ(Hex(text.GetString()), Hex(utf8));
  }
  VString euro(std::string("\xE2\x82\xAC"), SystemCodePage);
  ASSERT_TRUE(euro.ConvertTo(UTF16));
  EXPECT_EQ(Hex(euro.GetString()), "AC 20");
  ASSERT_TRUE(euro.ConvertTo(Latin9));
  EXPECT_EQ(Hex(euro.GetString()), "A4");
  ASSERT_TRUE(euro.ConvertTo(SystemCodePage));
  EXPECT_EQ(Hex(euro.GetString()), "E2 82 AC");
}

TEST(SystemCodePageTest, CLocaleTurnsEachInvalidByteIntoAQuestionMark) {
  USE_LOCALE_OR_SKIP(c, "C");
  // iconv reads the code page: every byte that starts no valid sequence is one "?".
  EXPECT_EQ(Convert(SystemCodePage, UTF8, Bytes({0x41, 0xFF, 0x42})), "A?B");
  EXPECT_EQ(Convert(SystemCodePage, UTF8, Bytes({0xC3, 0x41})), "?A");
  EXPECT_EQ(Convert(SystemCodePage, UTF8, Bytes({0x41, 0xE2, 0x82})), "A??");
  EXPECT_EQ(Hex(Convert(SystemCodePage, UTF16, Bytes({0xED, 0xA0, 0x80}))), "3F 00 3F 00 3F 00");
  // Unpaired surrogates and an odd last byte of UTF-16 become "?" in the code page.
  EXPECT_EQ(Convert(UTF16, SystemCodePage, Bytes({0x00, 0xDC, 0x41, 0x00})), "?A");
  EXPECT_EQ(Convert(UTF16, SystemCodePage, Bytes({0x00, 0xD8, 0x41, 0x00})), "?A");
  EXPECT_EQ(Convert(UTF16, SystemCodePage, Bytes({0x41, 0x00, 0x00, 0xD8})), "A?");
  EXPECT_EQ(Convert(UTF16, SystemCodePage, Bytes({0x41, 0x00, 0x42})), "A?");
  // Invalid UTF-8 is read by the UTF8 decoder first.
  EXPECT_EQ(Convert(UTF8, SystemCodePage, Bytes({0xC3, 0x41, 0x42})), "?B");
}

TEST(SystemCodePageTest, CLocaleFastPathsEqualTheIconvRoute) {
  USE_LOCALE_OR_SKIP(c, "C");
  std::mt19937 random(2);
  // Valid text of every encoding.
  for (int round = 0; round < 300; ++round) {
    const std::string utf16 = MixedUtf16(random, random() % 50);
    ExpectSameAsIconv(utf16, UTF16, "valid");
    for (StringEncoding other : {ASCII, Latin1, Latin9, UTF8}) {
      std::string text;
      ConvertTextWithPoco(UTF16, other, utf16, text);
      ExpectSameAsIconv(text, other, "valid");
    }
  }
  // Every BMP character, and astral ones, in UTF-8 and UTF-16.
  std::string utf16;
  for (uint32_t cp = 1; cp < 0x110000; cp += cp < 0x10000 ? 1 : 0x101) {
    if (cp < 0xD800 || cp > 0xDFFF) AppendUtf16(cp, utf16);
  }
  std::string utf8;
  ConvertTextWithPoco(UTF16, UTF8, utf16, utf8);
  ExpectSameAsIconv(utf16, UTF16, "all characters");
  ExpectSameAsIconv(utf8, UTF8, "all characters");
  // Random bytes, read as every encoding.
  const unsigned char kInteresting[] = {0x00, 0x41, 0x80, 0xBF, 0xC0, 0xC3, 0xE2, 0xED,
                                        0xEF, 0xF0, 0xF4, 0xF8, 0xFF, 0xD8, 0xDC};
  for (int round = 0; round < 5000; ++round) {
    std::string bytes(random() % 20, 'a');
    for (size_t i = random() % 10; i > 0; --i) {
      bytes.push_back(static_cast<char>(random() % 2 ? kInteresting[random() % sizeof kInteresting]
                                                     : random() % 256));
    }
    for (StringEncoding other : kNamed) ExpectSameAsIconv(bytes, other, "random bytes");
  }
}

// ---------------------------------------------------------------------------------------------
// A Latin-1 locale

TEST(SystemCodePageTest, Latin1LocaleConvertsThroughIso88591) {
  USE_LOCALE_OR_SKIP(latin1, kLatin1Locale);
  EXPECT_STREQ(nl_langinfo(CODESET), "ISO-8859-1");
  EXPECT_FALSE(vantu::platform::CodePageIsUtf8());

  VString accented(std::string("\xE9"), SystemCodePage);
  ASSERT_TRUE(accented.ConvertTo(UTF8));
  EXPECT_EQ(Hex(accented.GetString()), "C3 A9");
  ASSERT_TRUE(accented.ConvertTo(SystemCodePage));
  EXPECT_EQ(Hex(accented.GetString()), "E9");

  VString euro(std::string("\xE2\x82\xAC"), UTF8);
  ASSERT_TRUE(euro.ConvertTo(SystemCodePage));
  EXPECT_EQ(euro.GetString(), "?");

  VString emoji(Bytes({0x41, 0xF0, 0x9F, 0x98, 0x80, 0x42}), UTF8);
  ASSERT_TRUE(emoji.ConvertTo(SystemCodePage));
  EXPECT_EQ(emoji.GetString(), "A?B");

  EXPECT_EQ(Convert(UTF16, SystemCodePage, Bytes({0x00, 0xDC, 0xE9, 0x00, 0x42})), "?\xE9?");
}

TEST(SystemCodePageTest, Latin1LocaleReadsEveryByte) {
  USE_LOCALE_OR_SKIP(latin1, kLatin1Locale);
  std::string all;
  for (int b = 1; b < 256; ++b) all.push_back(static_cast<char>(b));
  EXPECT_EQ(Hex(Convert(SystemCodePage, Latin1, all)), Hex(all));
  EXPECT_EQ(Hex(Convert(Latin1, SystemCodePage, all)), Hex(all));
  std::string utf16;
  for (int b = 1; b < 256; ++b) AppendUtf16(static_cast<uint32_t>(b), utf16);
  EXPECT_EQ(Hex(Convert(SystemCodePage, UTF16, all)), Hex(utf16));
  // Latin-9 differs in eight places: the euro sign is not in Latin-1.
  EXPECT_EQ(Convert(Latin9, SystemCodePage, Bytes({0xA4, 0xE9})), "?\xE9");
}

// iconv reads long text in pieces; characters cut at a piece's end must come out whole.
TEST(SystemCodePageTest, LongTextConvertsWholeThroughIconv) {
  const std::string unit =
      "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"
      "a";  // e-acute, euro, emoji, a
  std::string utf8;
  for (int i = 0; i < 3000; ++i) utf8 += unit;
  {
    USE_LOCALE_OR_SKIP(c, "C");
    // The invalid last byte sends the text through iconv.
    std::string expected;
    ConvertTextWithPoco(UTF8, UTF16, utf8, expected);
    expected += std::string("?\0", 2);
    EXPECT_EQ(Convert(SystemCodePage, UTF16, utf8 + "\xFF"), expected);
  }
  {
    USE_LOCALE_OR_SKIP(latin1, kLatin1Locale);
    std::string expected;
    for (int i = 0; i < 3000; ++i) expected += "\xE9??a";
    EXPECT_EQ(Convert(UTF8, SystemCodePage, utf8), expected);
    std::string back;
    ConvertTextWithPoco(Latin1, UTF16, expected, back);
    EXPECT_EQ(Convert(SystemCodePage, UTF16, expected), back);
  }
}

// ---------------------------------------------------------------------------------------------
// Either locale

TEST(SystemCodePageTest, TextForTheCodePageEndsAtItsFirstNul) {
  const std::string withNul("A\0B", 3);
  for (const char* name : {"C", kLatin1Locale}) {
    USE_LOCALE_OR_SKIP(locale, name);
    EXPECT_EQ(Convert(UTF8, SystemCodePage, withNul), "A") << name;
    EXPECT_EQ(Convert(UTF16, SystemCodePage, Bytes({0x41, 0x00, 0x00, 0x00, 0x42, 0x00})), "A")
        << name;
    // The other way the NUL is kept.
    EXPECT_EQ(Convert(SystemCodePage, UTF8, withNul), withNul) << name;
  }
}

TEST(SystemCodePageTest, EachThreadUsesItsOwnLocale) {
  { USE_LOCALE_OR_SKIP(probe, kLatin1Locale); }
  const std::string utf8 = "\xC3\xA9";
  std::string latin1Result;
  std::string cResult;
  auto run = [&utf8](const char* name, std::string& result) {
    ThreadLocale locale(OpenLocale(name));
    for (int i = 0; i < 2000; ++i) {
      std::string out;
      ConvertText(UTF8, SystemCodePage, utf8, out);
      if (i > 0 && out != result) {
        result = "changed";
        return;
      }
      result = out;
    }
  };
  std::thread latin1Thread(run, kLatin1Locale, std::ref(latin1Result));
  std::thread cThread(run, "C", std::ref(cResult));
  latin1Thread.join();
  cThread.join();
  EXPECT_EQ(Hex(latin1Result), "E9");
  EXPECT_EQ(Hex(cResult), "C3 A9");
}

TEST(SystemCodePageTest, ChangingTheThreadLocaleIsSeen) {
  const std::string utf8 = "\xC3\xA9";
  for (int round = 0; round < 3; ++round) {
    {
      USE_LOCALE_OR_SKIP(latin1, kLatin1Locale);
      EXPECT_EQ(Hex(Convert(UTF8, SystemCodePage, utf8)), "E9");
      EXPECT_EQ(Hex(Convert(SystemCodePage, UTF8, "\xE9")), "C3 A9");
    }
    {
      USE_LOCALE_OR_SKIP(c, "C");
      EXPECT_EQ(Hex(Convert(UTF8, SystemCodePage, utf8)), "C3 A9");
      EXPECT_EQ(Hex(Convert(SystemCodePage, UTF8, "\xE9")), "3F");
    }
  }
}

}  // namespace
