// Construction, encodings and normalisation of VString.
#include <gtest/gtest.h>

#include <string>

#include <vantu/VString.h>

#include "support/Bytes.h"

namespace {

using vantu::test::Bytes;
using vantu::test::Hex;

TEST(VStringTest, DefaultAndEncodingConstructorsAreEmpty) {
  const VString plain;
  EXPECT_EQ(plain.Length(), 0u);
  EXPECT_EQ(plain.GetEncoding(), SystemCodePage);
  EXPECT_EQ(plain.GetNormalization(), -1);
  EXPECT_EQ(VString(UTF16).GetEncoding(), UTF16);
  EXPECT_EQ(VString(static_cast<const char*>(nullptr)).Length(), 0u);
}

TEST(VStringTest, ByteOrderMarksDecideTheEncodingAndAreRemoved) {
  const VString markOnly(Bytes({0xEF, 0xBB, 0xBF}));
  EXPECT_EQ(markOnly.GetEncoding(), UTF8);
  EXPECT_EQ(markOnly.Length(), 0u);

  // The mark wins over the encoding the caller names.
  const VString utf16(Bytes({0xFF, 0xFE, 0x41, 0x00, 0x62}), Latin1);
  EXPECT_EQ(utf16.GetEncoding(), UTF16);
  EXPECT_EQ(Hex(utf16.GetString()), "41 00 62");

  // A big-endian mark is not one: the bytes stay, in the fallback encoding.
  const VString bigEndian(Bytes({0xFE, 0xFF, 0x00, 0x41}), Latin1);
  EXPECT_EQ(bigEndian.GetEncoding(), Latin1);
  EXPECT_EQ(bigEndian.Length(), 4u);

  const VString noMark(std::string("abc"));
  EXPECT_EQ(noMark.GetEncoding(), SystemCodePage);
}

TEST(VStringTest, UTF8InputIsStoredInNFC) {
  const VString decomposed(Bytes({0xEF, 0xBB, 0xBF, 0x65, 0xCC, 0x81}));
  EXPECT_EQ(decomposed.GetEncoding(), UTF8);
  EXPECT_EQ(Hex(decomposed.GetString()), "C3 A9");
  EXPECT_EQ(decomposed.GetNormalization(), NFC);

  // Text in other encodings is not touched, and its normalisation stays unknown.
  const VString latin("e\xCC\x81", Latin1);
  EXPECT_EQ(latin.Length(), 3u);
  EXPECT_EQ(latin.GetNormalization(), -1);
}

TEST(VStringTest, CharPointerReadsUTF16AfterItsMarkUpToTheZeroUnit) {
  const char bytes[] = {'\xFF', '\xFE', 0x41, 0x00, 0x62, 0x00, 0x00, 0x00, 0x63, 0x00};
  const VString text(bytes);
  EXPECT_EQ(text.GetEncoding(), UTF8);
  EXPECT_EQ(text.GetString(), "Ab");

  // With UTF16 named, the whole pointer is UTF-16; the result is UTF8 as converted.
  const char decomposed[] = {0x65, 0x00, 0x01, 0x03, 0x00, 0x00};
  const VString wide(decomposed, UTF16);
  EXPECT_EQ(wide.GetEncoding(), UTF8);
  EXPECT_EQ(Hex(wide.GetString()), "65 CC 81");
  EXPECT_EQ(wide.GetNormalization(), -1);
}

TEST(VStringTest, LengthPrefixedBytes) {
  const unsigned char pascal[] = {3, 'a', 'b', 'c', 'd'};
  const VString text(pascal);
  EXPECT_EQ(text.GetString(), "abc");
  EXPECT_EQ(text.GetEncoding(), SystemCodePage);

  const unsigned char marked[] = {5, 0xEF, 0xBB, 0xBF, 0xC3, 0xA9};
  const VString utf8(marked, Latin1);
  EXPECT_EQ(utf8.GetEncoding(), UTF8);
  EXPECT_EQ(Hex(utf8.GetString()), "C3 A9");

  const unsigned char empty[] = {0};
  EXPECT_EQ(VString(empty, Latin9).GetEncoding(), Latin9);
}

TEST(VStringTest, WideAndUTF16TextBecomeUTF8AsConverted) {
  EXPECT_EQ(Hex(VString(L"\u00e9\U0001F600").GetString()), "C3 A9 F0 9F 98 80");
  EXPECT_EQ(Hex(VString(std::u16string(u"\u00e9\U0001F600")).GetString()), "C3 A9 F0 9F 98 80");
  // Wide input is not normalised.
  const VString decomposed(L"e\u0301");
  EXPECT_EQ(Hex(decomposed.GetString()), "65 CC 81");
  EXPECT_EQ(decomposed.GetEncoding(), UTF8);

  // Unpaired surrogates and values past U+10FFFF become U+FFFD.
  const char16_t lone[] = {0xD800, u'a', 0xDC00, 0};
  EXPECT_EQ(Hex(VString(lone).GetString()), "EF BF BD 61 EF BF BD");
  const wchar_t outOfRange[] = {static_cast<wchar_t>(0x110000), static_cast<wchar_t>(0xDFFF), 0};
  EXPECT_EQ(Hex(VString(outOfRange).GetString()), "EF BF BD EF BF BD");

  VString counted;
  counted.Set(L"abcdef", 3);
  EXPECT_EQ(counted.GetString(), "abc");
  counted.Set(u"xyz", 2);
  EXPECT_EQ(counted.GetString(), "xy");
}

TEST(VStringTest, CopyResetsTheNormalisationAssignKeepsIt) {
  const VString source("abc", UTF8);
  ASSERT_EQ(source.GetNormalization(), NFC);
  const VString copy(source);
  EXPECT_EQ(copy.GetNormalization(), -1);
  EXPECT_EQ(copy.GetString(), "abc");
  EXPECT_EQ(copy.GetEncoding(), UTF8);

  VString target("x", Latin1);
  target.Normalize(NFKD);
  target.Assign(source);
  EXPECT_EQ(target.GetNormalization(), NFKD);
  EXPECT_EQ(target.GetEncoding(), UTF8);
  EXPECT_EQ(target.GetString(), "abc");

  VString assigned;
  assigned = source;
  EXPECT_EQ(assigned.GetString(), "abc");
  assigned = assigned;
  EXPECT_EQ(assigned.GetString(), "abc");
}

TEST(VStringTest, SetReplacesTheContentAsTheConstructorsDo) {
  VString text("old", Latin1);
  text.Set(
      std::string("\xEF\xBB\xBF"
                  "e\xCC\x81"));
  EXPECT_EQ(Hex(text.GetString()), "C3 A9");
  text.Set("plain");
  EXPECT_EQ(text.GetEncoding(), SystemCodePage);
  text.Set("\xE9", Latin9);
  EXPECT_EQ(text.GetEncoding(), Latin9);
  text.Set(std::wstring(L"w"));
  EXPECT_EQ(text.GetEncoding(), UTF8);
  text.Set(
      "\xFF\xFE"
      "abc",
      4);  // counted bytes keep the mark detection of std::string
  EXPECT_EQ(text.GetEncoding(), UTF16);
  EXPECT_EQ(text.GetString(), "ab");
}

TEST(VStringTest, SetRawTakesBytesAsTheyAreButStillNormalisesUTF8) {
  VString text("already NFC", UTF8);
  ASSERT_EQ(text.GetNormalization(), NFC);
  // The old marker must not let new, decomposed text through.
  text.SetRaw("e\xCC\x81", 3, UTF8);
  EXPECT_EQ(Hex(text.GetString()), "C3 A9");

  text.SetRaw(
      "\xEF\xBB\xBF"
      "a",
      4, Latin1);
  EXPECT_EQ(text.Length(), 4u);
  EXPECT_EQ(text.GetEncoding(), Latin1);
}

TEST(VStringTest, LatinAndUTF8SpellingsOfOneTextAreEqual) {
  const VString latin("\xC4", Latin1);
  const VString utf8("\xC3\x84", UTF8);
  EXPECT_TRUE(latin.IsEqual(utf8));
  EXPECT_TRUE(utf8.IsEqual(latin));
  EXPECT_NE(latin.Length(), utf8.Length());
  // Using a string as the other operand leaves its own text and encoding alone.
  EXPECT_EQ(Hex(utf8.GetString()), "C3 84");
  EXPECT_EQ(utf8.GetEncoding(), UTF8);

  EXPECT_FALSE(VString("abc", UTF8).IsEqual(VString("ABC", UTF8)));
  EXPECT_TRUE(VString("abc", UTF8).IsEqual(std::string("abc")));
  EXPECT_TRUE(VString("abc", UTF8).IsEqual("abc"));
  const unsigned char pascal[] = {3, 'a', 'b', 'c'};
  EXPECT_TRUE(VString("abc", UTF8).IsEqual(pascal));
}

TEST(VStringTest, ConvertToMovesTextBetweenEncodings) {
  VString text("\xC3\xA9", UTF8);
  EXPECT_TRUE(text.ConvertTo(ASCII));
  EXPECT_EQ(Hex(text.GetString()), "3F");
  EXPECT_EQ(text.GetEncoding(), ASCII);

  VString roundTrip(
      "Gr\xC3\xBC\xC3\x9F"
      "e \xE2\x82\xAC \xF0\x9F\x98\x80",
      UTF8);
  const std::string original = roundTrip.GetString();
  ASSERT_TRUE(roundTrip.ConvertTo(UTF16));
  EXPECT_EQ(roundTrip.Length(), 2u * 9 + 2);  // the emoji is a surrogate pair
  ASSERT_TRUE(roundTrip.ConvertTo(UTF8));
  EXPECT_EQ(roundTrip.GetString(), original);

  // Converting to UTF8 brings the result into NFC.
  VString wide(u"e\u0301");
  ASSERT_TRUE(wide.ConvertTo(UTF16));
  ASSERT_TRUE(wide.ConvertTo(UTF8));
  EXPECT_EQ(Hex(wide.GetString()), "C3 A9");
  EXPECT_EQ(wide.GetNormalization(), NFC);

  // A UTF8 string is normalised even when it already has the target encoding.
  VString same(u"e\u0301");
  EXPECT_TRUE(same.ConvertTo(UTF8));
  EXPECT_EQ(Hex(same.GetString()), "C3 A9");
}

TEST(VStringTest, ConvertToRefusesUnknownEncodings) {
  VString text("\xE9", Latin1);
  EXPECT_FALSE(text.ConvertTo(static_cast<StringEncoding>(6)));
  EXPECT_FALSE(text.ConvertTo(static_cast<StringEncoding>(-1)));
  EXPECT_EQ(text.GetEncoding(), Latin1);
  EXPECT_EQ(Hex(text.GetString()), "E9");

  VString unknown(static_cast<StringEncoding>(9));
  EXPECT_FALSE(unknown.ConvertTo(static_cast<StringEncoding>(9)));
  EXPECT_FALSE(unknown.ConvertTo(UTF8));
  EXPECT_EQ(unknown.GetEncoding(), 9);
}

TEST(VStringTest, SwapByteOrderOnlyTouchesUTF16) {
  VString latin("ab", Latin1);
  latin.SwapByteOrder();
  EXPECT_EQ(latin.GetString(), "ab");

  VString utf16(Bytes({0xFF, 0xFE, 0x41, 0x00, 0x62, 0x00, 0x63}));
  utf16.SwapByteOrder();
  EXPECT_EQ(Hex(utf16.GetString()), "00 41 00 62 63");  // a trailing odd byte stays
  EXPECT_EQ(utf16.GetEncoding(), UTF16);
}

TEST(VStringTest, NormalizeComputesOnlyForUTF8AndRecordsTheForm) {
  VString text("\xC3\xA9\xEF\xAC\x81", UTF8);  // é, the "fi" ligature
  text.Normalize(NFD);
  EXPECT_EQ(Hex(text.GetString()), "65 CC 81 EF AC 81");
  EXPECT_EQ(text.GetNormalization(), NFD);
  text.Normalize(NFKC);
  EXPECT_EQ(Hex(text.GetString()), "C3 A9 66 69");
  text.Normalize(static_cast<NormalizationForm>(7));  // no form: nothing computed, but recorded
  EXPECT_EQ(Hex(text.GetString()), "C3 A9 66 69");
  EXPECT_EQ(text.GetNormalization(), 7);

  VString latin("e", Latin1);
  latin.Normalize(NFD);
  EXPECT_EQ(latin.GetNormalization(), NFD);
  EXPECT_EQ(latin.GetString(), "e");

  // Invalid UTF-8 is left as it is.
  VString invalid("a\xC3", Latin1);
  invalid.SetRaw("a\xC3", 2, UTF8);
  EXPECT_EQ(Hex(invalid.GetString()), "61 C3");
}

TEST(VStringTest, AppendBringsTheOtherTextIntoThisEncoding) {
  VString latin("Gr", Latin1);
  latin.Append(VString("\xC3\xBC\xC3\x9F", UTF8));
  EXPECT_EQ(Hex(latin.GetString()), "47 72 FC DF");
  latin.Append('e');
  latin.Append(std::string("!"));
  EXPECT_EQ(latin.GetString(),
            "Gr\xFC\xDF"
            "e!");
  EXPECT_EQ(latin.GetEncoding(), Latin1);

  VString utf16(UTF16);
  utf16.Append(VString("a\xE9", Latin1));
  EXPECT_EQ(Hex(utf16.GetString()), "61 00 E9 00");

  // Appended text may break NFC: the string must not still claim it.
  VString base("e", UTF8);
  base.Append(VString(u"\u0301"));
  base.Normalize(NFC);
  EXPECT_EQ(Hex(base.GetString()), "C3 A9");
}

TEST(VStringTest, KeepNumericAndCaseOperations) {
  VString number("EUR -1,234.5e3", UTF8);
  number.KeepNumeric();
  EXPECT_EQ(number.GetString(), "-1234.53");

  VString title("hELLO wORLD", UTF8);
  title.Capitalize();
  EXPECT_EQ(title.GetString(), "Hello world");

  // Case mapping stops at the first zero byte: in UTF16 only the first character changes.
  VString utf16(Bytes({0xFF, 0xFE, 0x61, 0x00, 0x62, 0x00}));
  utf16.ToUpper();
  EXPECT_EQ(Hex(utf16.GetString()), "41 00 62 00");

  // Only ASCII letters change.
  VString latin("\xE9z\xC9Z", Latin1);
  latin.ToUpper();
  EXPECT_EQ(Hex(latin.GetString()), "E9 5A C9 5A");
  latin.ToLower();
  EXPECT_EQ(Hex(latin.GetString()), "E9 7A C9 7A");
}

}  // namespace
