// Searching, editing and comparing VString text.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include <vantu/VString.h>

#include "support/Bytes.h"

namespace {

using vantu::test::Bytes;

TEST(VStringEditTest, TrimRemovesOneByteValueFromTheEnds) {
  VString text("xxaxx", UTF8);
  text.TrimLeft('x');
  EXPECT_EQ(text.GetString(), "axx");
  text.Set("xxaxx", UTF8);
  text.TrimRight('x');
  EXPECT_EQ(text.GetString(), "xxa");
  text.Set("xxaxx", UTF8);
  text.Trim('x');
  EXPECT_EQ(text.GetString(), "a");
  text.Set("xxx", UTF8);
  text.Trim('x');
  EXPECT_EQ(text.GetString(), "");
  text.Set("  a b  ", UTF8);
  text.Trim(' ');
  EXPECT_EQ(text.GetString(), "a b");
}

// Trim and Left reach their helpers through the table of virtual operations.
class Tracing : public VString {
 public:
  using VString::VString;
  void TrimLeft(char c) override {
    calls += "L";
    VString::TrimLeft(c);
  }
  void TrimRight(char c) override {
    calls += "R";
    VString::TrimRight(c);
  }
  std::string Mid(size_t start, size_t count) const override {
    calls += "M";
    return VString::Mid(start, count);
  }
  mutable std::string calls;
};

TEST(VStringEditTest, TrimAndLeftDispatchThroughTheTable) {
  Tracing text("-a-", UTF8);
  text.Trim('-');
  EXPECT_EQ(text.calls, "LR");
  EXPECT_EQ(text.Left(1), "a");
  EXPECT_EQ(text.calls, "LRM");
}

TEST(VStringEditTest, SubstringsFollowTheStandardStringAndDoNotClamp) {
  const VString text("abc", UTF8);
  EXPECT_THROW(text.Right(5), std::out_of_range);
  EXPECT_EQ(text.Left(5), "abc");
  EXPECT_EQ(text.Mid(3, 1), "");
  EXPECT_THROW(text.Mid(4, 1), std::out_of_range);
  EXPECT_EQ(text.Right(2), "bc");
  EXPECT_EQ(text.Mid(1, 100), "bc");
}

TEST(VStringEditTest, FindAndReverseFind) {
  EXPECT_EQ(VString("", UTF8).Find("", 0), 0u);
  EXPECT_EQ(VString("abc", UTF8).Find("", 4), std::string::npos);
  EXPECT_EQ(VString("abcabc", UTF8).Find("bc", 2), 4u);
  EXPECT_EQ(VString("abc", UTF8).Find(std::string("abcd"), 0), std::string::npos);

  const VString abab("abab", UTF8);
  EXPECT_EQ(abab.ReverseFind("ab", 0), 2u);
  EXPECT_EQ(abab.ReverseFind("ab", 1), 2u);
  EXPECT_EQ(abab.ReverseFind("ab", 2), 0u);
  EXPECT_EQ(abab.ReverseFind("zz", 0), 0xFFFFFFFFu);
  EXPECT_EQ(abab.ReverseFind("ab", 10), 2u);  // past the length: the whole text
  EXPECT_EQ(abab.ReverseFind(std::string(), 1), 2u);
  EXPECT_EQ(abab.ReverseFind(std::string(), 0), 3u);
  EXPECT_EQ(VString("", UTF8).ReverseFind("", 0), 0u);
}

TEST(VStringEditTest, ReplaceRange) {
  VString text("hello world", UTF8);
  EXPECT_EQ(text.Replace(0, 5, "HELLO"), "HELLO world");
  EXPECT_EQ(text.Replace(6, 100, std::string("there")), "HELLO there");
  EXPECT_EQ(text.GetString(), "HELLO there");
  EXPECT_THROW(text.Replace(12, 1, "x"), std::out_of_range);
  EXPECT_EQ(text.GetString(), "HELLO there");
}

TEST(VStringEditTest, ReplaceAllNeverSearchesInsertedText) {
  VString text("aaa", UTF8);
  text.ReplaceAll("a", "aa");
  EXPECT_EQ(text.GetString(), "aaaaaa");

  text.Set("a.b.c", UTF8);
  text.ReplaceAll(std::string("."), std::string(""));
  EXPECT_EQ(text.GetString(), "abc");

  text.Set("ab", UTF8);
  text.ReplaceAll("", "-");
  EXPECT_EQ(text.GetString(), "-a-b-");
  text.ReplaceAll("", "");
  EXPECT_EQ(text.GetString(), "-a-b-");

  text.Set("abcabc", UTF8);
  text.ReplaceAll("abcd", "x");
  EXPECT_EQ(text.GetString(), "abcabc");

  // The VString form uses the raw bytes of both arguments, whatever their encodings.
  VString latin("caf\xE9", Latin1);
  latin.ReplaceAll(VString("\xE9", Latin1), VString("\xC3\xA9", UTF8));
  EXPECT_EQ(latin.GetString(), "caf\xC3\xA9");
  EXPECT_EQ(latin.GetEncoding(), Latin1);
}

TEST(VStringEditTest, PercentEncoding) {
  VString text("a b/\xC3\xA4+", UTF8);
  text.URIEncode();
  EXPECT_EQ(text.GetString(), "a%20b/%C3%A4+");
  EXPECT_EQ(text.GetEncoding(), UTF8);
  text.URIDecode();
  EXPECT_EQ(text.GetString(), "a b/\xC3\xA4+");  // plus signs stay

  VString malformed("100% sure %zz", UTF8);
  malformed.URIDecode();
  EXPECT_EQ(malformed.GetString(), "100% sure %zz");
}

TEST(VStringEditTest, ComparisonFamilies) {
  const VString upper("ABC", UTF8);
  EXPECT_EQ(upper.CompareNoCase("abc"), 0);
  EXPECT_NE(upper.Compare("abc"), 0);
  EXPECT_LT(upper.Compare("abc"), 0);
  EXPECT_GT(VString("b", UTF8).Compare(std::string("a")), 0);
  EXPECT_EQ(upper.CompareN("ABX", 2), 0);
  EXPECT_NE(upper.CompareN("ABX", 3), 0);
  EXPECT_EQ(upper.CompareNoCaseN(std::string("abX"), 2), 0);
  // The count is narrowed to 32 bits: 2^32 + 2 compares two bytes.
  EXPECT_EQ(upper.CompareN(VString("ABX", UTF8), (size_t{1} << 32) + 2), 0);
  EXPECT_EQ(upper.CompareNoCaseN(VString("abX", UTF8), (size_t{1} << 32) + 2), 0);
  // Non-ASCII letters keep their case.
  EXPECT_NE(VString("\xE9", Latin1).CompareNoCase("\xC9", Latin1), 0);
}

TEST(VStringEditTest, ComparisonsBringTheOtherTextIntoThisEncoding) {
  const VString utf8("caf\xC3\xA9", UTF8);
  const VString latin("caf\xE9", Latin1);
  EXPECT_EQ(latin.Compare(utf8), 0);
  EXPECT_EQ(utf8.Compare(latin), 0);
  EXPECT_EQ(utf8.Compare("caf\xE9", Latin1), 0);
  EXPECT_EQ(utf8.Compare(std::string("CAF\xE9"), Latin1) > 0, true);
  EXPECT_EQ(utf8.CompareNoCase(std::string("CAF\xE9"), Latin1), 0);
  EXPECT_EQ(utf8.CompareN("cafx", Latin1, 3), 0);
  EXPECT_EQ(utf8.CompareNoCaseN("CAFx", Latin1, 3), 0);
  // A marked narrow text names its own encoding.
  EXPECT_EQ(latin.Compare(std::string("\xEF\xBB\xBF"
                                      "caf\xC3\xA9")),
            0);
}

TEST(VStringEditTest, ComparisonsEndAtTheFirstZeroByte) {
  // UTF16 text compares only up to its first zero byte.
  const VString ab(Bytes({0xFF, 0xFE, 'a', 0, 'b', 0}));
  const VString ax(Bytes({0xFF, 0xFE, 'a', 0, 'x', 0}));
  EXPECT_EQ(ab.Compare(ax), 0);
  EXPECT_FALSE(ab.IsEqual(ax));
}

}  // namespace
