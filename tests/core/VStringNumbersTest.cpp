// Numbers, lists, hexadecimal, printf-style formatting and Base64 in VString.
#include <gtest/gtest.h>

#include <Poco/Exception.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <vantu/VString.h>

namespace {

template <typename T>
using Limits = std::numeric_limits<T>;

TEST(VStringNumbersTest, IntegersRoundTripAtTheirLimits) {
  VString text(UTF16);
  text.SetInt(Limits<int>::min());
  EXPECT_EQ(text.GetString(), "-2147483648");
  EXPECT_EQ(text.ToInt(), Limits<int>::min());
  EXPECT_EQ(text.GetEncoding(), UTF16);  // formatting keeps the encoding value
  text.SetInt(Limits<int>::max());
  EXPECT_EQ(text.ToInt(), Limits<int>::max());
  text.SetInt(Limits<unsigned>::max());
  EXPECT_EQ(text.ToUInt(), Limits<unsigned>::max());
  text.SetInt(Limits<long>::min());
  EXPECT_EQ(text.ToInt64(), Limits<long>::min());
  text.SetInt(Limits<unsigned long>::max());
  EXPECT_EQ(text.ToUInt64(), Limits<unsigned long>::max());
  text.SetInt(Limits<long long>::min());
  EXPECT_EQ(text.ToInt64(), Limits<long long>::min());
  text.SetInt64(Limits<int64_t>::max());
  EXPECT_EQ(text.GetString(), "9223372036854775807");
  EXPECT_EQ(text.ToInt64(), Limits<int64_t>::max());
  text.SetInt(Limits<unsigned long long>::max());
  EXPECT_EQ(text.ToULongLong(), Limits<unsigned long long>::max());
  EXPECT_EQ(text.ToUInt64(), Limits<uint64_t>::max());
}

TEST(VStringNumbersTest, ParsersUseTheThousandsSeparatorAndTakeEmptyTextAsZero) {
  EXPECT_EQ(VString("1,000", UTF8).ToUInt64(), 1000u);
  EXPECT_EQ(VString("1,000,000", UTF8).ToUInt(), 1000000u);
  EXPECT_EQ(VString("-1,234", UTF8).ToInt(), -1234);
  EXPECT_DOUBLE_EQ(VString("1,234.5", UTF8).ToDouble(), 1234.5);
  const VString empty(UTF8);
  EXPECT_EQ(empty.ToDouble(), 0.0);
  EXPECT_EQ(empty.ToFloat(), 0.0f);
  EXPECT_EQ(empty.ToInt(), 0);
  EXPECT_EQ(empty.ToInt64(), 0);
  EXPECT_EQ(empty.ToUInt(), 0u);
  EXPECT_EQ(empty.ToUInt64(), 0u);
  EXPECT_EQ(empty.ToHex(), 0u);
}

TEST(VStringNumbersTest, ParseFailuresThrowTheParsersSyntaxError) {
  EXPECT_THROW(VString("12x", UTF8).ToInt(), Poco::SyntaxException);
  EXPECT_THROW(VString("abc", UTF8).ToDouble(), Poco::SyntaxException);
  EXPECT_THROW(VString("abc", UTF8).ToFloat(), Poco::SyntaxException);
  EXPECT_THROW(VString("-1", UTF8).ToUInt64(), Poco::SyntaxException);
  EXPECT_THROW(VString("4294967296", UTF8).ToUInt(), Poco::SyntaxException);
  EXPECT_THROW(VString("xyz", UTF8).ToHex(), Poco::SyntaxException);
  EXPECT_THROW(VString("1.5", UTF8).ToInt64(), Poco::SyntaxException);
  // A decimal integer beyond 64 bits is out of range rather than malformed.
  EXPECT_THROW(VString("9223372036854775808", UTF8).ToInt64(), std::out_of_range);
  EXPECT_THROW(VString("-99,999,999,999,999,999,999", UTF8).ToInt64(), std::out_of_range);

  double d = 7.0;
  EXPECT_FALSE(VString("abc", UTF8).TryToDouble(d));
  EXPECT_EQ(d, 7.0);
  EXPECT_TRUE(VString("2.5", UTF8).TryToDouble(d));
  EXPECT_EQ(d, 2.5);
  uint64_t u = 7;
  EXPECT_FALSE(VString("-3", UTF8).TryToUInt64(u));
  EXPECT_EQ(u, 7u);
  EXPECT_TRUE(VString("18,446,744,073,709,551,615", UTF8).TryToUInt64(u));
  EXPECT_EQ(u, Limits<uint64_t>::max());
}

TEST(VStringNumbersTest, FloatingPointFormattingAndParsing) {
  VString text(UTF8);
  text.SetDouble(1.5);
  EXPECT_EQ(text.GetString(), "1.5");
  text.SetDouble(2.0 / 3.0, 3);
  EXPECT_EQ(text.GetString(), "0.667");
  text.SetFloat(0.25f, 1);
  EXPECT_EQ(text.GetString(), "0.3");
  for (double value : {0.0, -1.0, 1e-300, 1.0 / 3.0, 6.02214076e23, Limits<double>::max()}) {
    text.SetDouble(value);
    EXPECT_EQ(text.ToDouble(), value) << text.GetString();
  }
  for (float value : {0.1f, -3.75f, 1e30f, Limits<float>::min()}) {
    text.SetFloat(value);
    EXPECT_EQ(text.ToFloat(), value) << text.GetString();
  }
}

TEST(VStringNumbersTest, VersionsPairsAndHexadecimal) {
  VString text(UTF8);
  text.SetVersion(0x00010203);
  EXPECT_EQ(text.GetString(), "1.2.3");
  text.SetVersion(0xFFFFFFFF);
  EXPECT_EQ(text.GetString(), "65535.255.255");

  text.SetPair(0x0001FFFF);
  EXPECT_EQ(text.GetString(), "1,-1");
  text.SetPair(static_cast<int>(0x80007FFF));
  EXPECT_EQ(text.GetString(), "-32768,32767");
  text.SetPair(-5, Limits<int>::min());
  EXPECT_EQ(text.GetString(), "-5,-2147483648");
  text.SetPair(0xFFFFFFFE00000003ULL);
  EXPECT_EQ(text.GetString(), "-2,3");
  std::vector<int> pair;
  text.ToList(pair);
  EXPECT_EQ(pair, (std::vector<int>{-2, 3}));

  const unsigned char bytes[] = {0x0A, 0xFF};
  text.SetHex(bytes, sizeof(bytes));
  EXPECT_EQ(text.GetString(), "0AFF");
  EXPECT_EQ(text.ToHexByte(1), 0xFF);
  EXPECT_THROW(text.ToHexByte(2), std::out_of_range);
  text.SetHex(0xDE, 0xAD, 0xBE, 0xEF);
  EXPECT_EQ(text.GetString(), "DEADBEEF");
  EXPECT_EQ(text.ToHex(), 0xDEADBEEFu);
  text.SetHex(-1);
  EXPECT_EQ(text.GetString(), "FFFFFFFF");
  text.SetHex(0x1F);
  EXPECT_EQ(text.GetString(), "1F");
  EXPECT_EQ(text.ToHex(), 0x1Fu);
  EXPECT_THROW(VString("0G", UTF8).ToHexByte(0), Poco::SyntaxException);
}

TEST(VStringNumbersTest, GetHexDecodesDigitPairsIntoACheckedBuffer) {
  VString text(UTF8);
  const unsigned char bytes[] = {0x00, 0x7F, 0x80, 0xFF, 0x12};
  text.SetHex(bytes, sizeof(bytes));
  unsigned char buffer[6] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
  EXPECT_EQ(text.GetHex(buffer, 5), 0u);
  EXPECT_EQ(std::string(buffer, buffer + 5), std::string(bytes, bytes + 5));
  EXPECT_EQ(buffer[5], 0xAA);

  unsigned char small[4] = {0xAA, 0xAA, 0xAA, 0xAA};
  EXPECT_EQ(text.GetHex(small, 4), 0xFFFFFFFFu);
  EXPECT_EQ(small[0], 0xAA);
  EXPECT_EQ(VString("ABC", UTF8).GetHex(buffer, 6), 0xFFFFFFFEu);
  EXPECT_EQ(VString("zz", UTF8).GetHex(buffer, 6), 0xFFFFFFFEu);
  EXPECT_EQ(VString("ff", UTF8).GetHex(buffer, 1), 0u);
  EXPECT_EQ(buffer[0], 0xFF);
}

TEST(VStringNumbersTest, FourCharacterCodes) {
  const VString text("RIFFdata", Latin1);
  EXPECT_EQ(text.ToFourCC(), 0x52494646u);
  EXPECT_EQ(text.FormatFourCC(0x52494646u), "RIFF");
  EXPECT_EQ(text.FormatFourCC(0x00FF0001u), std::string("\0\xFF\0\x01", 4));
  EXPECT_EQ(VString(std::string("\xFF\xFF\xFF\xFF"), Latin1).ToFourCC(), 0xFFFFFFFFu);
  EXPECT_THROW(VString("abc", UTF8).ToFourCC(), std::out_of_range);
}

TEST(VStringNumbersTest, ListsRoundTripInEveryElementType) {
  VString text(UTF8);
  const float floats[] = {1.5f, -0.25f, 1e10f};
  text.SetList(floats, 3);
  EXPECT_EQ(text.GetString(), "1.5,-0.25,1e+10");
  float floatsBack[4] = {};
  ASSERT_EQ(text.ToList(floatsBack, 4), 3u);
  EXPECT_EQ(std::vector<float>(floatsBack, floatsBack + 3), std::vector<float>(floats, floats + 3));
  EXPECT_EQ(text.ToList(floatsBack, 2), 2u);  // capacity bounds the store

  const uint16_t words[] = {0, 65535, 42};
  text.SetList(words, 3);
  EXPECT_EQ(text.GetString(), "0,65535,42");
  uint16_t wordsBack[3] = {};
  ASSERT_EQ(text.ToList(wordsBack, 3), 3u);
  EXPECT_EQ(wordsBack[1], 65535);

  const int16_t shorts[] = {-32768, 32767};
  text.SetList(shorts, 2);
  EXPECT_EQ(text.GetString(), "-32768,32767");
  std::vector<int> ints = {99};
  text.ToList(ints);
  EXPECT_EQ(ints, (std::vector<int>{-32768, 32767}));

  const uint8_t octets[] = {255, 0, 7};
  text.SetList(octets, 3);
  EXPECT_EQ(text.GetString(), "255,0,7");
  uint8_t octetsBack[3] = {};
  ASSERT_EQ(text.ToList(octetsBack, 3), 3u);
  EXPECT_EQ(octetsBack[0], 255);

  text.SetList(octets, 0);
  EXPECT_EQ(text.GetString(), "");
  EXPECT_EQ(text.ToList(octetsBack, 3), 0u);
  text.ToList(ints);
  EXPECT_TRUE(ints.empty());

  std::vector<float> many(255, 0.5f);
  text.SetList(many.data(), 255);
  std::vector<float> manyBack(255);
  EXPECT_EQ(text.ToList(manyBack.data(), manyBack.size()), 255u);
}

TEST(VStringNumbersTest, ListPiecesOutOfRangeOrEmptyAreNotNumbers) {
  uint8_t octets[4];
  uint16_t words[4];
  EXPECT_THROW(VString("1,256", UTF8).ToList(octets, 4), Poco::SyntaxException);
  EXPECT_THROW(VString("-1", UTF8).ToList(words, 4), Poco::SyntaxException);
  EXPECT_THROW(VString("1,,2", UTF8).ToList(words, 4), Poco::SyntaxException);
  std::vector<int> ints;
  EXPECT_THROW(VString("1,x", UTF8).ToList(ints), Poco::SyntaxException);
}

TEST(VStringNumbersTest, FormatBuildsANewStringOfAnyLength) {
  const VString self("unchanged", UTF8);
  const VString shortText = self.Format("%d-%s", 42, "x");
  EXPECT_EQ(shortText.GetString(), "42-x");
  EXPECT_EQ(shortText.GetEncoding(), SystemCodePage);
  EXPECT_EQ(
      self.Format("%s|%08.3f|%llu", "longer than fifteen bytes", 3.14159, 1ULL << 63).GetString(),
      "longer than fifteen bytes|0003.142|9223372036854775808");
  const std::string big(70000, 'z');
  const VString large = self.Format("<%s>", big.c_str());
  EXPECT_EQ(large.Length(), 70002u);
  EXPECT_EQ(large.GetString(), "<" + big + ">");
  EXPECT_EQ(self.Format("%s", "").Length(), 0u);
  // A leading UTF-8 mark makes the result UTF8, without the mark.
  const VString marked = self.Format("%s%s", "\xEF\xBB\xBF", "e\xCC\x81");
  EXPECT_EQ(marked.GetEncoding(), UTF8);
  EXPECT_EQ(marked.GetString(), "\xC3\xA9");
  EXPECT_EQ(self.GetString(), "unchanged");
}

TEST(VStringNumbersTest, Base64RoundTripsEveryLengthUpTo300) {
  std::string data;
  for (int length = 0; length <= 300; ++length) {
    VString text(Latin1);
    text.SetBase64(data.data(), static_cast<unsigned>(data.size()));
    EXPECT_EQ(text.GetEncoding(), Latin1);
    // The encoder breaks lines after 72 characters with CR LF.
    const std::string& encoded = text.GetString();
    size_t lineStart = 0;
    for (size_t end = encoded.find("\r\n"); end != std::string::npos;
         end = encoded.find("\r\n", lineStart)) {
      EXPECT_EQ(end - lineStart, 72u) << "length " << length;
      lineStart = end + 2;
    }
    EXPECT_LE(encoded.size() - lineStart, 72u);

    std::vector<unsigned char> buffer(data.size() + 1, 0xAA);
    unsigned count = static_cast<unsigned>(buffer.size());
    ASSERT_TRUE(text.GetBase64(buffer.data(), count)) << "length " << length;
    ASSERT_EQ(count, data.size());
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + count), data);

    VString roundTrip(data, Latin1);
    roundTrip.EncodeBase64();
    EXPECT_EQ(roundTrip.GetString(), encoded);
    roundTrip.DecodeBase64();
    EXPECT_EQ(roundTrip.GetString(), data);

    data.push_back(static_cast<char>(length * 37 + 11));
  }
}

TEST(VStringNumbersTest, Base64RefusesSmallBuffersAndMalformedText) {
  VString text(UTF8);
  const char data[] = "sixteen bytes!!!";
  text.SetBase64(data, 16);
  unsigned char buffer[16];
  std::fill(buffer, buffer + 16, 0xAA);
  unsigned count = 15;
  EXPECT_FALSE(text.GetBase64(buffer, count));
  EXPECT_EQ(count, 15u);
  EXPECT_EQ(buffer[0], 0xAA);

  VString malformed("@@not base64@@", UTF8);
  count = 16;
  EXPECT_FALSE(malformed.GetBase64(buffer, count));
  EXPECT_THROW(malformed.DecodeBase64(), Poco::DataFormatException);
  EXPECT_EQ(malformed.GetString(), "@@not base64@@");
}

}  // namespace
