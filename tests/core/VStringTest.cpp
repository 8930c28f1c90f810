// VString: construction from every kind of input, encodings, normalisation, editing, searching,
// comparing, numbers, lists, hexadecimal, printf-style formatting and Base64.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <Poco/Exception.h>
#include <Poco/NumberFormatter.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <vantu/VString.h>

#include "support/Bytes.h"

namespace {

using vantu::test::Bytes;
using vantu::test::Hex;

// Copies bytes to the very end of a readable page that an unreadable one follows, so that
// reading one byte past them crashes. Each call reuses the page.
const char* AtPageEnd(const std::string& bytes) {
  static const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  static char* const base = [] {
    auto* pages = static_cast<char*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(pages + page, page, PROT_NONE);
    return pages;
  }();
  return static_cast<char*>(std::memcpy(base + page - bytes.size(), bytes.data(), bytes.size()));
}

const unsigned char* Pascal(const std::string& bytes) {
  return reinterpret_cast<const unsigned char*>(AtPageEnd(static_cast<char>(bytes.size()) + bytes));
}

// A copy of `text` after `call`, and its bytes; number setters must keep a UTF16 encoding.
#define EDITED(text, call) Edited(text, [&](VString& t) { t.call; })
#define AFTER(text, call) EDITED(text, call).GetString()
#define TEXT(call)                                        \
  Edited(                                                 \
      VString(UTF16), [&](VString& t) { t.call; }, UTF16) \
      .GetString()
template <typename Edit>
VString Edited(VString text, Edit edit, int keeps = -1) {
  edit(text);
  EXPECT_TRUE(keeps < 0 || text.GetEncoding() == keeps);
  return text;
}

// Every form that knows the length of its text reads that much and no more, with the same
// byte-order-mark rules: EF BB BF makes UTF8, FF FE makes UTF16 (its bytes kept as they are, an
// odd count included), FE FF is no mark. Pointer forms get text that ends at an unreadable page;
// std::string forms a heap copy of exactly its size, which the sanitizer build watches.
TEST(VStringTest, FormsThatKnowTheLengthStopThereAndReadMarks) {
  for (const std::string mark : {"\xFF\xFE", "\xFF\xFE\x41", "\xEF\xBB\xBF", "\xFE\xFF", ""}) {
    const StringEncoding encoding = mark[0] == '\xFF' ? UTF16 : mark[0] == '\xEF' ? UTF8 : Latin1;
    const std::string input = mark + "0123456789abcdef";  // long enough for the heap
    const std::string expected = input.substr(encoding == UTF16 ? 2 : encoding == UTF8 ? 3 : 0);
    auto check = [&](const VString& text, StringEncoding fallback) {
      EXPECT_EQ(text.GetEncoding(), encoding == Latin1 ? fallback : encoding) << Hex(input);
      EXPECT_EQ(Hex(text.GetString()), Hex(expected));
    };
    check(VString(input, Latin1), Latin1);
    check(VString(Pascal(input), Latin1), Latin1);
    check(EDITED(VString(Latin9), Set(input, Latin1)), Latin1);
    check(EDITED(VString(Latin9), Set(Pascal(input), Latin1)), Latin1);
    check(VString(input), SystemCodePage);
    check(VString(Pascal(input)), SystemCodePage);
    check(EDITED(VString(Latin9), Set(AtPageEnd(input), input.size())), SystemCodePage);
    check(VString(Latin9).Assign(Pascal(input)), SystemCodePage);
    check(VString().Format("%s", input.c_str()), SystemCodePage);
    EXPECT_EQ(AFTER(VString(), SetRaw(AtPageEnd(input), input.size(), Latin9)), input);
    // The operations that build their argument with these forms.
    const VString same(input);
    EXPECT_TRUE(same.IsEqual(input) && same.IsEqual(Pascal(input)));
    EXPECT_EQ(same.Compare(input) | same.CompareN(input, 99) | same.CompareNoCase(input), 0);
    EXPECT_EQ(same.Compare(input, SystemCodePage) | same.CompareNoCaseN(input, SystemCodePage, 9),
              0);
    VString appended(same.GetEncoding());
    appended.Append(input).Append(Pascal(input)).Append(VString(Latin1).Assign(input));
    EXPECT_EQ(appended.GetString(), expected + expected + expected);
  }
}

// Bare pointers: after an FF FE mark, or with UTF16 named, 16-bit units up to a 0x0000 unit,
// converted to UTF8 (not normalised); otherwise bytes up to the first NUL. Wide text becomes
// UTF8 as converted, U+FFFD for unpaired surrogates and values past U+10FFFF.
TEST(VStringTest, BarePointersAndWideText) {
  const char marked[] = {'\xFF', '\xFE', 'A', 0, 'b', 0, 0, 0, 'c', 0};
  const char decomposed[] = {'e', 0, 0x01, 0x03, 0, 0};
  const wchar_t wide[] = {L'e', 0x301, 0x1F600, 0x110000, 0xDFFF, 0};
  const char16_t utf16[] = {u'e', 0x301, 0xD83D, 0xDE00, 0xD800, u'a', 0xDC00, 0};
  const std::string common = "e\xCC\x81\xF0\x9F\x98\x80\xEF\xBF\xBD";
  const std::pair<VString, std::string> cases[] = {
      {VString(marked, Latin1), "Ab"},
      {VString(decomposed, UTF16), "e\xCC\x81"},
      {VString(wide), common + "\xEF\xBF\xBD"},
      {VString(std::u16string(utf16)), common + "a\xEF\xBF\xBD"},
      {VString(AFTER(VString(), Set(L"abcdef", 3)), UTF8), "abc"},
      {VString(AFTER(VString(), Set(u"xyz", 2)), UTF8), "xy"},
      {VString("\xEF\xBB\xBF\x65\xCC\x81\0x"), "\xC3\xA9"}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(Hex(text.GetString()), Hex(expected));
    EXPECT_EQ(text.GetEncoding(), UTF8);
  }
  EXPECT_EQ(VString(static_cast<const char*>(nullptr)).Length(), 0u);
}

TEST(VStringTest, NormalisationAndItsMarker) {
  VString text("e\xCC\x81", UTF8);
  EXPECT_EQ(text.GetNormalization(), NFC);
  // Copies, moves and assignments carry the marker with the text, so NFC is not computed again.
  VString target("x", Latin1);
  target.Normalize(NFKD);  // recorded, nothing computed for Latin1
  VString copy(text), source(text), moved(std::move(source)), assigned, moveAssigned, temporary;
  assigned = text;
  moveAssigned = std::move(temporary.Assign(text));
  for (VString* s : {&copy, &moved, &assigned, &moveAssigned, &target.Assign(text)}) {
    EXPECT_EQ(s->GetNormalization(), NFC);
    EXPECT_TRUE(s->GetString() == "\xC3\xA9" && s->GetEncoding() == UTF8);
  }
  // SetRaw takes bytes as they are but normalises UTF8, whatever the old marker said; appended
  // text may break NFC, and the string must not still claim it.
  text.SetRaw("\xEF\xBB\xBF\x65\xCC\x81", 6, UTF8);
  EXPECT_EQ(Hex(text.GetString()), "EF BB BF C3 A9");
  EXPECT_EQ(AFTER(text, Append(VString(u"e\u0301")).Normalize(NFC)),
            "\xEF\xBB\xBF\xC3\xA9\xC3\xA9");
  text.SetRaw("\xC3\xA9\xEF\xAC\x81", 5, UTF8);  // e acute, the "fi" ligature
  EXPECT_EQ(AFTER(text, Normalize(NFD)), "e\xCC\x81\xEF\xAC\x81");
  EXPECT_EQ(AFTER(text, Normalize(NFKD)), "e\xCC\x81\x66i");
  EXPECT_EQ(AFTER(text, Normalize(NFKC)), "\xC3\xA9\x66i");
}

TEST(VStringTest, ConvertToAppendAndSwapByteOrder) {
  EXPECT_EQ(AFTER(VString(u"Gr\u00fc\u00dfe \u20ac \U0001F600"), ConvertTo(Latin9)),
            "Gr\xFC\xDF\x65 \xA4 ?");
  // An encoding outside 0 to 5 changes nothing; UTF8 text is brought into NFC even when it has
  // the target encoding already.
  VString text("\xE9", Latin1);
  EXPECT_FALSE(text.ConvertTo(static_cast<StringEncoding>(6)) ||
               VString(static_cast<StringEncoding>(-1)).ConvertTo(UTF8));
  EXPECT_TRUE(text.GetEncoding() == Latin1 && text.GetString() == "\xE9");
  EXPECT_EQ(AFTER(VString(u"e\u0301"), ConvertTo(UTF8)), "\xC3\xA9");
  EXPECT_EQ(AFTER(VString("Gr", Latin1), Append(VString("\xC3\xBC", UTF8)).Append('e').Append("!")),
            "Gr\xFC\x65!");
  EXPECT_EQ(Hex(AFTER(VString(UTF16), Append(VString("a\xE9", Latin1)))), "61 00 E9 00");
  // Only UTF16 is swapped; a trailing odd byte stays.
  EXPECT_EQ(Hex(AFTER(VString(Bytes({0xFF, 0xFE, 'A', 0, 'b'})), SwapByteOrder())), "00 41 62");
  EXPECT_EQ(AFTER(VString("ab", Latin1), SwapByteOrder()), "ab");
}

// The standard text types: every kind of text goes through std::string_view, std::u16string_view,
// std::filesystem::path and a stream unchanged, whole (also past a NUL) and from every encoding
// that holds it; decomposed UTF-8 comes in as NFC.
TEST(VStringTest, StandardTextTypesCarryEveryText) {
  const std::pair<std::string, std::u16string> texts[] = {
      {"plain ASCII", u"plain ASCII"},
      {"Gr\xC3\xBC\xC3\x9F"
       "e",
       u"Gr\u00fc\u00dfe"},
      {"\xE6\xBC\xA2\xE5\xAD\x97", u"\u6f22\u5b57"},
      {"\xF0\x9F\x98\x80!", u"\U0001F600!"},  // a surrogate pair
      {"", u""},
      {std::string("a\0\xC3\xA9", 4), std::u16string(u"a\0\u00e9", 3)},
  };
  for (const auto& [utf8, utf16] : texts) {
    const VString text = VString::FromUTF8(utf8);
    EXPECT_EQ(Hex(text.GetString()), Hex(utf8));
    EXPECT_EQ(text.GetEncoding(), UTF8);
    EXPECT_EQ(text.ToUTF16(), utf16) << Hex(utf8);
    EXPECT_EQ(Hex(VString::FromUTF16(utf16).GetString()), Hex(utf8));
    EXPECT_EQ(text.ToFilesystemPath().native(), utf8);
    EXPECT_EQ(Hex(VString::FromFilesystemPath(utf8).GetString()), Hex(utf8));
    std::string le;  // the same text in UTF16 and, where it holds it, in Latin1
    std::string latin1;
    bool inLatin1 = true;
    for (char16_t unit : utf16) {
      le += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
      latin1 += static_cast<char>(unit);
      inLatin1 = inLatin1 && unit < 0x100;
    }
    std::vector<VString> forms = {text, VString(le, UTF16)};
    if (inLatin1) forms.emplace_back(latin1, Latin1);
    for (const VString& form : forms) {
      std::ostringstream out;
      out << form;
      EXPECT_EQ(Hex(out.str()), Hex(utf8)) << form.GetEncoding();
      EXPECT_EQ(Hex(form.ToUTF8()), Hex(utf8)) << form.GetEncoding();
      EXPECT_EQ(form.ToUTF16(), utf16) << form.GetEncoding();
      EXPECT_EQ(Hex(form.ToFilesystemPath().native()), Hex(utf8)) << form.GetEncoding();
    }
  }
  EXPECT_EQ(Hex(VString::FromUTF8(std::string("e\xCC\x81\0e\xCC\x81", 7)).GetString()),
            "C3 A9 00 C3 A9");
  EXPECT_EQ(VString::FromUTF16(u"\xD800").ToUTF8(), "\xEF\xBF\xBD");
  // File-system bytes stay as they are: not normalised, and not UTF-8 at all.
  for (const char* bytes : {"e\xCC\x81", "caf\xE9"}) {
    const VString path = VString::FromFilesystemPath(bytes);
    EXPECT_TRUE(path.GetString() == bytes && path.GetEncoding() == UTF8) << bytes;
    EXPECT_EQ(path.ToFilesystemPath().native(), bytes);
  }
}

// Trim, Left and Right reach their helpers through the table of virtual operations.
class Tracing : public VString {
 public:
  using VString::VString;
  void TrimLeft(char c) override { calls += "L", VString::TrimLeft(c); }
  void TrimRight(char c) override { calls += "R", VString::TrimRight(c); }
  std::string Mid(size_t start, size_t count) const override {
    return calls += "M", VString::Mid(start, count);
  }
  mutable std::string calls;
};

TEST(VStringTest, EditingByteByByte) {
  EXPECT_EQ(
      AFTER(VString("xxaxx", UTF8), TrimLeft('x')) + AFTER(VString("xxaxx", UTF8), TrimRight('x')),
      "axxxxa");
  EXPECT_EQ(AFTER(VString("xxaxx", UTF8), Trim('x')) + AFTER(VString("xxx", UTF8), Trim('x')), "a");
  EXPECT_EQ(AFTER(VString("EUR -1,234.5e3", UTF8), KeepNumeric()), "-1234.53");
  EXPECT_EQ(AFTER(VString("hELLO w\xC3\x89RLD", UTF8), Capitalize()), "Hello w\xC3\x89rld");
  // Case mapping ends at the first zero byte: in UTF16 text only the first character changes.
  EXPECT_EQ(AFTER(VString(Bytes({0xFF, 0xFE, 'a', 0, 'b', 0})), ToUpper()),
            Bytes({'A', 0, 'b', 0}));
  EXPECT_EQ(AFTER(VString(Bytes({'A', 'B', 0, 'C'}), Latin1), ToLower()),
            Bytes({'a', 'b', 0, 'C'}));
  Tracing abc("-abc-", UTF8);
  abc.Trim('-');
  EXPECT_EQ(abc.Left(5) + "|" + abc.Right(2) + "|" + abc.Mid(3, 1) + "|" + abc.Mid(1, 9),
            "abc|bc||bc");
  EXPECT_EQ(abc.calls, "LRMMMM");
  EXPECT_THROW(abc.Right(5), std::out_of_range);  // the start is computed unsigned: no clamping
  EXPECT_THROW(abc.Mid(4, 1), std::out_of_range);
  EXPECT_EQ(abc.Replace(1, 1, "XY"), "aXYc");
  EXPECT_EQ(abc.Replace(3, 100, std::string("!")), "aXY!");
  EXPECT_THROW(abc.Replace(5, 1, "x"), std::out_of_range);
}

TEST(VStringTest, FindReplaceAllAndPercentEncoding) {
  const VString abab("abab", UTF8);
  EXPECT_EQ(VString(UTF8).Find("", 0) + abab.Find(std::string("ab"), 1), 2u);
  EXPECT_EQ(abab.Find("", 5) & abab.Find("ababa", 0), std::string::npos);
  // The last match starting at or before Length() - 1 - distance (unsigned: a distance past the
  // length searches everything); 0xFFFFFFFF when there is none.
  const std::pair<size_t, uint32_t> reverse[] = {{0, 2}, {1, 2}, {2, 0}, {3, 0}, {4, 2}, {99, 2}};
  for (const auto& [distance, index] : reverse) EXPECT_EQ(abab.ReverseFind("ab", distance), index);
  EXPECT_EQ(abab.ReverseFind(std::string("zz"), 0), 0xFFFFFFFFu);
  EXPECT_EQ(abab.ReverseFind("", 1) + VString(UTF8).ReverseFind("", 0), 2u);
  // Text, search, replacement, result: inserted text is never searched again.
  const char* const replaces[][4] = {
      {"aaa", "a", "aa", "aaaaaa"}, {"a.b.c", ".", "", "abc"}, {"ab", "", "-", "-a-b-"},
      {"ab", "", "", "ab"},         {"ab", "abc", "x", "ab"},  {"xaxbx", "x", "yx", "yxayxbyx"}};
  for (const auto& r : replaces) {
    EXPECT_EQ(AFTER(VString(r[0], UTF8), ReplaceAll(r[1], r[2])), r[3]) << r[0] << r[1] << r[2];
    EXPECT_EQ(AFTER(VString(r[0], UTF8), ReplaceAll(std::string(r[1]), std::string(r[2]))), r[3]);
  }
  // The VString form uses both texts' bytes as they are.
  EXPECT_EQ(AFTER(VString("caf\xE9", Latin1),
                  ReplaceAll(VString("\xE9", Latin1), VString("\xC3\xA9", UTF8))),
            "caf\xC3\xA9");
  EXPECT_EQ(AFTER(VString("a b/\xC3\xA4+", UTF8), URIEncode()), "a%20b/%C3%A4+");
  EXPECT_EQ(AFTER(VString("a%20b/%C3%A4+", UTF8), URIDecode()), "a b/\xC3\xA4+");  // "+" stays
  EXPECT_EQ(AFTER(VString("100% sure %zz", UTF8), URIDecode()), "100% sure %zz");  // malformed
}

TEST(VStringTest, ComparisonFamilies) {
  const VString upper("ABC", UTF8);
  const size_t wide = (size_t{1} << 32) + 2;  // narrowed to 32 bits: 2
  EXPECT_LT(upper.Compare("abc"), 0);
  EXPECT_GT(upper.CompareN(std::string("ABB"), 3) + upper.CompareNoCaseN(std::string("abB"), 3), 1);
  EXPECT_EQ(upper.CompareNoCase("abc") | upper.CompareN("ABX", 2) |
                upper.CompareN(VString("ABX", UTF8), wide),
            0);
  EXPECT_EQ(upper.CompareNoCaseN(std::string("abX"), 2) |
                upper.CompareNoCaseN(VString("abX", UTF8), wide),
            0);
  EXPECT_NE(VString("\xE9", Latin1).CompareNoCase("\xC9", Latin1), 0);  // ASCII letters only
  // The other text is brought into this string's encoding first, its own text left alone; a
  // mark decides its encoding.
  const VString latin("caf\xE9", Latin1);
  const VString utf8("caf\xC3\xA9", UTF8);
  EXPECT_EQ(latin.Compare(utf8) | utf8.Compare(latin) | utf8.Compare("caf\xE9", Latin1), 0);
  EXPECT_TRUE(latin.IsEqual(utf8) && utf8.GetString() == "caf\xC3\xA9");
  EXPECT_GT(utf8.Compare(std::string("CAF\xE9"), Latin1), 0);
  EXPECT_EQ(utf8.CompareNoCase(std::string("CAF\xE9"), Latin1) | utf8.CompareN("cafx", Latin1, 3),
            0);
  EXPECT_EQ(utf8.CompareNoCaseN("CAFx", Latin1, 3), 0);
  EXPECT_EQ(latin.Compare(std::string("\xEF\xBB\xBF") + "caf\xC3\xA9"), 0);
  // Comparisons end at the first zero byte (UTF16 text at its first character); IsEqual not.
  const VString ab(Bytes({0xFF, 0xFE, 'a', 0, 'b', 0}));
  const VString ax(Bytes({0xFF, 0xFE, 'a', 0, 'x', 0}));
  EXPECT_TRUE(ab.Compare(ax) == 0 && !ab.IsEqual(ax));
}

template <typename T>
using Limits = std::numeric_limits<T>;

std::string Fixed(double value, int precision) { return TEXT(SetDouble(value, precision)); }
std::string Fixed(float value, int precision) { return TEXT(SetFloat(value, precision)); }

// glibc's text for the exact value, or "tie" where its exact expansion ends with a 5 right after
// the last decimal kept (glibc rounds those to even, the library away from zero) and for zero
// (glibc writes the sign of a negative zero).
std::string Glibc(double value, int precision) {
  char text[1500];
  std::snprintf(text, sizeof(text), "%.1100f", value);
  const std::string exact(text);
  const size_t last = exact.find_last_not_of('0');
  if (value == 0 || (exact[last] == '5' && last == exact.find('.') + 1 + precision)) return "tie";
  std::snprintf(text, sizeof(text), "%.*f", precision, value);
  return text;
}

TEST(VStringNumbersTest, FixedTextForEveryFiniteValueAndPrecision) {
  std::mt19937_64 random(60);
  for (int i = 0; i < 20000; ++i) {
    const uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof(value));
    const int precision = static_cast<int>(random() % 70);
    const auto single = static_cast<float>(value);
    if (std::isnan(value)) continue;
    if (std::fabs(value) < 1e60 && precision <= 60) {
      // POCO's bytes wherever POCO writes them, ties rounded half away from zero included.
      ASSERT_EQ(Fixed(value, precision), Poco::NumberFormatter::format(value, precision));
      ASSERT_EQ(Fixed(single, precision), Poco::NumberFormatter::format(single, precision));
      continue;
    }
    const std::string expected = Glibc(value, precision);
    const std::string expectedSingle = Glibc(single, precision);
    ASSERT_EQ(expected == "tie" ? expected : Fixed(value, precision), expected);
    ASSERT_EQ(expectedSingle == "tie" ? expectedSingle : Fixed(single, precision), expectedSingle);
  }
  EXPECT_EQ(Fixed(std::ldexp(1.0, -62), 61),  // a tie
            "0.0000000000000000002168404344971008868014905601739883422851563");
  EXPECT_EQ(Fixed(-1e-300, 61) + Fixed(-0.0, 61),
            "-0." + std::string(61, '0') + "0." + std::string(61, '0'));
  EXPECT_EQ(Fixed(0.25, 1100), "0.25" + std::string(1098, '0'));
  // A precision below 0 counts as 0; values that are not finite keep their names.
  EXPECT_EQ(Fixed(2.5, -1) + Fixed(-1.5f, Limits<int>::min()) + Fixed(NAN, -1), "3-2nan");
  EXPECT_EQ(Fixed(1e300, -7), Glibc(1e300, 0));
}

TEST(VStringNumbersTest, IntegersAndTheirParsers) {
  EXPECT_EQ(TEXT(SetInt(Limits<int>::min())), "-2147483648");
  EXPECT_EQ(TEXT(SetInt(Limits<unsigned>::max())), "4294967295");
  EXPECT_EQ(TEXT(SetInt(Limits<long>::min())), "-9223372036854775808");
  EXPECT_EQ(TEXT(SetInt(Limits<unsigned long>::max())), "18446744073709551615");
  EXPECT_EQ(TEXT(SetInt(Limits<long long>::min())), "-9223372036854775808");
  EXPECT_EQ(TEXT(SetInt64(Limits<int64_t>::max())), "9223372036854775807");
  EXPECT_EQ(TEXT(SetInt(Limits<unsigned long long>::max())), "18446744073709551615");
  // "," separates thousands; empty text is 0.
  EXPECT_EQ(VString("-2,147,483,648", UTF8).ToInt(), Limits<int>::min());
  EXPECT_EQ(VString("4,294,967,295", UTF8).ToUInt(), Limits<unsigned>::max());
  EXPECT_EQ(VString("-9223372036854775808", UTF8).ToInt64(), Limits<long long>::min());
  EXPECT_EQ(VString("18,446,744,073,709,551,615", UTF8).ToULongLong(), Limits<uint64_t>::max());
  const VString empty(UTF8);
  EXPECT_EQ(empty.ToInt() + empty.ToInt64() + empty.ToUInt() + empty.ToUInt64() + empty.ToHex(),
            0u);
  EXPECT_EQ(empty.ToDouble() + empty.ToFloat(), 0.0);
  for (const char* bad : {"12x", "abc", "1.5", "-1", "4294967296"}) {
    EXPECT_THROW(VString(bad, UTF8).ToUInt(), Poco::SyntaxException) << bad;
  }
  EXPECT_THROW(VString("abc", UTF8).ToDouble(), Poco::SyntaxException);
  EXPECT_THROW(VString("1.5", UTF8).ToInt64(), Poco::SyntaxException);
  // A decimal integer beyond 64 bits is out of range rather than malformed.
  EXPECT_THROW(VString("9223372036854775808", UTF8).ToInt64(), std::out_of_range);
  EXPECT_THROW(VString("-99,999,999,999,999,999,999", UTF8).ToInt64(), std::out_of_range);
  double d = 7.0;
  uint64_t u = 7;
  EXPECT_FALSE(VString("abc", UTF8).TryToDouble(d) || VString("-3", UTF8).TryToUInt64(u));
  EXPECT_EQ(d + static_cast<double>(u), 14.0);  // untouched
  EXPECT_TRUE(VString("2.5", UTF8).TryToDouble(d) && VString("1,001", UTF8).TryToUInt64(u) &&
              d == 2.5 && u == 1001);
  // The default renderings: shortest text that reads back as the same value.
  EXPECT_EQ(TEXT(SetDouble(0.1)) + " " + TEXT(SetFloat(0.1f)) + " " + TEXT(SetDouble(-1e300)),
            "0.1 0.1 -1e+300");
  EXPECT_EQ(VString("-1,234.5e2", UTF8).ToDouble(), -123450.0);
  EXPECT_EQ(VString("0.1", UTF8).ToFloat(), 0.1f);
}

TEST(VStringNumbersTest, VersionsPairsHexadecimalAndFourCharacterCodes) {
  EXPECT_EQ(TEXT(SetVersion(0x00010203)), "1.2.3");
  EXPECT_EQ(TEXT(SetVersion(0xFFFFFFFF)), "65535.255.255");
  EXPECT_EQ(TEXT(SetPair(0x0001FFFF)), "1,-1");
  EXPECT_EQ(TEXT(SetPair(static_cast<int>(0x80007FFF))), "-32768,32767");
  EXPECT_EQ(TEXT(SetPair(-5, Limits<int>::min())), "-5,-2147483648");
  EXPECT_EQ(TEXT(SetPair(0xFFFFFFFE00000003ULL)), "-2,3");
  EXPECT_EQ(TEXT(SetHex(-1)), "FFFFFFFF");
  EXPECT_EQ(TEXT(SetHex(0xDE, 0xAD, 0xBE, 0xEF)), "DEADBEEF");
  EXPECT_EQ(VString("DEADBEEF", UTF8).ToHex() + VString("1f", UTF8).ToHex(), 0xDEADBEEFu + 31);
  const unsigned char bytes[] = {0x00, 0x7F, 0x80, 0xFF, 0x0A};
  const VString hex(TEXT(SetHex(bytes, 5)), UTF8);
  EXPECT_EQ(hex.GetString(), "007F80FF0A");
  EXPECT_EQ(hex.ToHexByte(3), 0xFF);
  EXPECT_THROW(hex.ToHexByte(5), std::out_of_range);
  EXPECT_THROW(VString("0G", UTF8).ToHexByte(0), Poco::SyntaxException);
  unsigned char buffer[6] = {0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
  // Too small, an odd count, not hexadecimal: nothing written.
  EXPECT_EQ(hex.GetHex(buffer, 4) + VString("ABC", UTF8).GetHex(buffer, 6), 0xFFFFFFFDu);
  EXPECT_EQ(VString("zz", UTF8).GetHex(buffer, 6) + buffer[0], 0xFFFFFFFEu + 0xAA);
  EXPECT_EQ(hex.GetHex(buffer, 5), 0u);
  EXPECT_EQ(std::string(buffer, buffer + 6), std::string(bytes, bytes + 5) + "\xAA");
  const VString riff("RIFFdata", Latin1);
  EXPECT_EQ(riff.ToFourCC(), 0x52494646u);
  EXPECT_EQ(riff.FormatFourCC(0x00FF0001u), std::string("\0\xFF\0\x01", 4));
  EXPECT_THROW(VString("abc", UTF8).ToFourCC(), std::out_of_range);
}

TEST(VStringNumbersTest, ListsRoundTripInEveryElementType) {
  const float floats[] = {1.5f, -0.25f, 1e10f};
  const uint16_t words[] = {0, 65535, 42};
  const int16_t shorts[] = {-32768, 32767};
  const uint8_t octets[] = {255, 0, 7};
  const VString floatList(TEXT(SetList(floats, 3)), UTF8);
  EXPECT_EQ(floatList.GetString(), "1.5,-0.25,1e+10");
  EXPECT_EQ(TEXT(SetList(words, 3)), "0,65535,42");
  EXPECT_EQ(TEXT(SetList(shorts, 2)), "-32768,32767");
  EXPECT_EQ(TEXT(SetList(octets, 3)) + TEXT(SetList(octets, 0)), "255,0,7");
  float floatsBack[3] = {};
  uint16_t wordsBack[3] = {};
  uint8_t octetsBack[3] = {};
  std::vector<int> ints = {99};
  EXPECT_EQ(floatList.ToList(floatsBack, 2), 2u);  // the capacity bounds the store
  EXPECT_EQ(floatList.ToList(floatsBack, 3), 3u);
  EXPECT_EQ(std::vector<float>(floatsBack, floatsBack + 3), std::vector<float>(floats, floats + 3));
  EXPECT_EQ(VString("0,65535,42", UTF8).ToList(wordsBack, 3), 3u);
  EXPECT_EQ(wordsBack[0] + wordsBack[1] + wordsBack[2], 65577);
  EXPECT_EQ(VString("255,0,7", UTF8).ToList(octetsBack, 3) + octetsBack[0] + octetsBack[2], 265);
  VString("-32768,32767", UTF8).ToList(ints);
  EXPECT_EQ(ints, (std::vector<int>{-32768, 32767}));
  VString(UTF8).ToList(ints);
  EXPECT_EQ(VString(UTF8).ToList(octetsBack, 3) + ints.size(), 0u);
  // Pieces out of the element type's range, or empty, are not numbers.
  EXPECT_THROW(VString("1,256", UTF8).ToList(octetsBack, 3), Poco::SyntaxException);
  EXPECT_THROW(VString("-1", UTF8).ToList(wordsBack, 3), Poco::SyntaxException);
  EXPECT_THROW(VString("1,,2", UTF8).ToList(ints), Poco::SyntaxException);
}

TEST(VStringNumbersTest, FormatAndBase64) {
  const VString self("unchanged", UTF8);
  const VString formatted = self.Format("%d-%s|%08.3f|%llu", 42, "x", 3.14159, 1ULL << 63);
  EXPECT_EQ(formatted.GetString(), "42-x|0003.142|9223372036854775808");
  EXPECT_EQ(formatted.GetEncoding(), SystemCodePage);
  const std::string big(70000, 'z');
  EXPECT_EQ(self.Format("<%s>", big.c_str()).GetString(), "<" + big + ">");
  const VString marked = self.Format("%s%s", "\xEF\xBB\xBF", "e\xCC\x81");
  EXPECT_TRUE(marked.GetString() == "\xC3\xA9" && marked.GetEncoding() == UTF8);  // a mark decides
  EXPECT_EQ(self.Format("%s", "").Length(), 0u);
  // Base64 of every length up to 300: lines of 72 characters ended by CR LF, decoding into a
  // buffer only when it is large enough.
  std::string data;
  for (int length = 0; length <= 300; ++length) {
    const std::string encoded = TEXT(SetBase64(data.data(), length));
    for (size_t at = 72; at < encoded.size(); at += 74) EXPECT_EQ(encoded.substr(at, 2), "\r\n");
    const VString text(encoded, Latin1);
    std::vector<unsigned char> buffer(data.size() + 1, 0xAA);
    unsigned count = static_cast<unsigned>(data.size()) - (length > 0);
    EXPECT_EQ(text.GetBase64(buffer.data(), count), length == 0) << "one byte too small";
    count = static_cast<unsigned>(buffer.size());
    ASSERT_TRUE(text.GetBase64(buffer.data(), count));
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + count) + "|", data + "|");
    EXPECT_EQ(AFTER(VString(data, Latin1), EncodeBase64()), encoded);
    EXPECT_EQ(AFTER(text, DecodeBase64()) + "|", data + "|");
    data.push_back(static_cast<char>(length * 37 + 11));
  }
  VString malformed("@@not base64@@", UTF8);
  unsigned count = 16;
  unsigned char buffer[16];
  EXPECT_FALSE(malformed.GetBase64(buffer, count));
  EXPECT_THROW(malformed.DecodeBase64(), Poco::DataFormatException);
  EXPECT_EQ(malformed.GetString(), "@@not base64@@");
}

}  // namespace
