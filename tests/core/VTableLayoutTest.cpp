// The order of virtual slots is part of the library's binary interface (see support/VTable.h
// for how the entries are read).
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include <vantu/VBaseObject.h>
#include <vantu/VException.h>
#include <vantu/VString.h>

#include "support/VTable.h"

namespace {

using vantu::test::EntryOf;
using vantu::test::TableEntry;

#define EXPECT_SLOT(Class, slot, Signature, name)                               \
  EXPECT_EQ(TableEntry(static_cast<Signature>(&Class::name)), EntryOf(slot, 1)) \
      << #name " slot " #slot

TEST(VTableLayoutTest, BaseObjectKeepsItsThreeSlots) {
  EXPECT_SLOT(VBaseObject, 0, const std::string& (VBaseObject::*)() const, GetClassName);
  EXPECT_SLOT(VBaseObject, 2, void(VBaseObject::*)(const VBaseObject&), Clone);
}

TEST(VTableLayoutTest, ExceptionSlotsFollowTheStandardBase) {
  using E = VException;
  EXPECT_EQ(TableEntry(&E::what), EntryOf(1, 0));
  EXPECT_EQ(TableEntry(&E::Name), EntryOf(2, 0));
  EXPECT_EQ(TableEntry(&E::ClassName), EntryOf(3, 0));
  EXPECT_EQ(TableEntry(static_cast<VException* (E::*)() const>(&E::Clone)), EntryOf(4, 0));
  EXPECT_EQ(TableEntry(&E::Rethrow), EntryOf(5, 0));
  EXPECT_EQ(TableEntry(&E::Reserved), EntryOf(6, 0));
  // A subclass overrides in place and adds no slot: its covariant Clone reuses slot 4.
  using F = VantuFileNotFoundException;
  EXPECT_EQ(TableEntry(&F::Name), EntryOf(2, 0));
  EXPECT_EQ(TableEntry(static_cast<F* (F::*)() const>(&F::Clone)), EntryOf(4, 0));
  EXPECT_EQ(TableEntry(&F::Rethrow), EntryOf(5, 0));
  EXPECT_EQ(TableEntry(&F::Reserved), EntryOf(6, 0));
}

TEST(VTableLayoutTest, StringSlotsZeroToSeventy) {
  using S = VString;
  using Pascal = const unsigned char*;
  using Enc = StringEncoding;
  EXPECT_SLOT(S, 0, const std::string& (S::*)() const, GetClassName);
  EXPECT_SLOT(S, 2, void(S::*)(const VBaseObject&), Clone);
  EXPECT_SLOT(S, 3, bool(S::*)(const VString&) const, IsEqual);
  EXPECT_SLOT(S, 4, bool(S::*)(const std::string&) const, IsEqual);
  EXPECT_SLOT(S, 5, bool(S::*)(Pascal) const, IsEqual);
  EXPECT_SLOT(S, 6, bool(S::*)(const char*) const, IsEqual);
  EXPECT_SLOT(S, 7, VString & (S::*)(const VString&), Assign);
  EXPECT_SLOT(S, 8, VString & (S::*)(const std::string&), Assign);
  EXPECT_SLOT(S, 9, VString & (S::*)(Pascal), Assign);
  EXPECT_SLOT(S, 10, VString & (S::*)(const char*), Assign);
  EXPECT_SLOT(S, 11, VString & (S::*)(const VString&), Append);
  EXPECT_SLOT(S, 12, VString & (S::*)(const std::string&), Append);
  EXPECT_SLOT(S, 13, VString & (S::*)(Pascal), Append);
  EXPECT_SLOT(S, 14, VString & (S::*)(const char*), Append);
  EXPECT_SLOT(S, 15, VString & (S::*)(char), Append);
  EXPECT_SLOT(S, 16, void(S::*)(Pascal, Enc), Set);
  EXPECT_SLOT(S, 17, void(S::*)(const char*, Enc), Set);
  EXPECT_SLOT(S, 18, void(S::*)(const std::string&, Enc), Set);
  EXPECT_SLOT(S, 19, void(S::*)(Pascal), Set);
  EXPECT_SLOT(S, 20, void(S::*)(const wchar_t*), Set);
  EXPECT_SLOT(S, 21, void(S::*)(const char*), Set);
  EXPECT_SLOT(S, 22, void(S::*)(const std::wstring&), Set);
  EXPECT_SLOT(S, 23, void(S::*)(const std::string&), Set);
  EXPECT_SLOT(S, 24, void(S::*)(const char*, size_t, Enc), SetRaw);
  EXPECT_SLOT(S, 25, void(S::*)(const wchar_t*, size_t), Set);
  EXPECT_SLOT(S, 26, void(S::*)(const char*, size_t), Set);
  EXPECT_SLOT(S, 27, bool(S::*)(Enc), ConvertTo);
  EXPECT_SLOT(S, 28, void(S::*)(), SwapByteOrder);
  EXPECT_SLOT(S, 29, void(S::*)(NormalizationForm), Normalize);
  EXPECT_SLOT(S, 30, void(S::*)(), KeepNumeric);
  EXPECT_SLOT(S, 31, void(S::*)(), ToUpper);
  EXPECT_SLOT(S, 32, void(S::*)(), ToLower);
  EXPECT_SLOT(S, 33, void(S::*)(), Capitalize);
  EXPECT_SLOT(S, 34, void(S::*)(char), Trim);
  EXPECT_SLOT(S, 35, void(S::*)(char), TrimLeft);
  EXPECT_SLOT(S, 36, void(S::*)(char), TrimRight);
  EXPECT_SLOT(S, 37, std::string(S::*)(size_t, size_t) const, Mid);
  EXPECT_SLOT(S, 38, std::string(S::*)(size_t) const, Left);
  EXPECT_SLOT(S, 39, std::string(S::*)(size_t) const, Right);
  EXPECT_SLOT(S, 40, size_t(S::*)(const char*, size_t) const, Find);
  EXPECT_SLOT(S, 41, size_t(S::*)(const std::string&, size_t) const, Find);
  EXPECT_SLOT(S, 42, uint32_t(S::*)(const char*, size_t) const, ReverseFind);
  EXPECT_SLOT(S, 43, uint32_t(S::*)(const std::string&, size_t) const, ReverseFind);
  EXPECT_SLOT(S, 44, std::string(S::*)(size_t, size_t, const char*), Replace);
  EXPECT_SLOT(S, 45, std::string(S::*)(size_t, size_t, const std::string&), Replace);
  EXPECT_SLOT(S, 46, void(S::*)(const char*, const char*), ReplaceAll);
  EXPECT_SLOT(S, 47, void(S::*)(const VString&, const VString&), ReplaceAll);
  EXPECT_SLOT(S, 48, void(S::*)(const std::string&, const std::string&), ReplaceAll);
  EXPECT_SLOT(S, 49, void(S::*)(), URIEncode);
  EXPECT_SLOT(S, 50, void(S::*)(), URIDecode);
  // The four comparison families, each: cstr + enc, cstr, std + enc, std, VString.
  EXPECT_SLOT(S, 51, int(S::*)(const char*, Enc) const, Compare);
  EXPECT_SLOT(S, 52, int(S::*)(const char*) const, Compare);
  EXPECT_SLOT(S, 53, int(S::*)(const std::string&, Enc) const, Compare);
  EXPECT_SLOT(S, 54, int(S::*)(const std::string&) const, Compare);
  EXPECT_SLOT(S, 55, int(S::*)(const VString&) const, Compare);
  EXPECT_SLOT(S, 56, int(S::*)(const char*, Enc, size_t) const, CompareN);
  EXPECT_SLOT(S, 57, int(S::*)(const char*, size_t) const, CompareN);
  EXPECT_SLOT(S, 58, int(S::*)(const std::string&, Enc, size_t) const, CompareN);
  EXPECT_SLOT(S, 59, int(S::*)(const std::string&, size_t) const, CompareN);
  EXPECT_SLOT(S, 60, int(S::*)(const VString&, size_t) const, CompareN);
  EXPECT_SLOT(S, 61, int(S::*)(const char*, Enc) const, CompareNoCase);
  EXPECT_SLOT(S, 62, int(S::*)(const char*) const, CompareNoCase);
  EXPECT_SLOT(S, 63, int(S::*)(const std::string&, Enc) const, CompareNoCase);
  EXPECT_SLOT(S, 64, int(S::*)(const std::string&) const, CompareNoCase);
  EXPECT_SLOT(S, 65, int(S::*)(const VString&) const, CompareNoCase);
  EXPECT_SLOT(S, 66, int(S::*)(const char*, Enc, size_t) const, CompareNoCaseN);
  EXPECT_SLOT(S, 67, int(S::*)(const char*, size_t) const, CompareNoCaseN);
  EXPECT_SLOT(S, 68, int(S::*)(const std::string&, Enc, size_t) const, CompareNoCaseN);
  EXPECT_SLOT(S, 69, int(S::*)(const std::string&, size_t) const, CompareNoCaseN);
  EXPECT_SLOT(S, 70, int(S::*)(const VString&, size_t) const, CompareNoCaseN);
}

TEST(VTableLayoutTest, StringSlotsSeventyOneToTheLast) {
  using S = VString;
  using UChar = unsigned char;
  EXPECT_SLOT(S, 71, void(S::*)(double), SetDouble);
  EXPECT_SLOT(S, 72, void(S::*)(double, int), SetDouble);
  EXPECT_SLOT(S, 73, void(S::*)(float), SetFloat);
  EXPECT_SLOT(S, 74, void(S::*)(float, int), SetFloat);
  EXPECT_SLOT(S, 75, void(S::*)(int), SetInt);
  EXPECT_SLOT(S, 76, void(S::*)(unsigned int), SetInt);
  EXPECT_SLOT(S, 77, void(S::*)(long), SetInt);
  EXPECT_SLOT(S, 78, void(S::*)(unsigned long), SetInt);
  EXPECT_SLOT(S, 79, void(S::*)(long long), SetInt);
  EXPECT_SLOT(S, 80, void(S::*)(int64_t), SetInt64);
  EXPECT_SLOT(S, 81, std::string(S::*)(uint32_t) const, FormatFourCC);
  EXPECT_SLOT(S, 82, void(S::*)(uint32_t), SetVersion);
  EXPECT_SLOT(S, 83, void(S::*)(const UChar*, size_t), SetHex);
  EXPECT_SLOT(S, 84, void(S::*)(UChar, UChar, UChar, UChar), SetHex);
  EXPECT_SLOT(S, 85, void(S::*)(int), SetHex);
  EXPECT_SLOT(S, 86, void(S::*)(unsigned long long), SetInt);
  EXPECT_SLOT(S, 87, void(S::*)(int), SetPair);
  EXPECT_SLOT(S, 88, void(S::*)(int, int), SetPair);
  EXPECT_SLOT(S, 89, void(S::*)(unsigned long long), SetPair);
  EXPECT_SLOT(S, 90, double(S::*)() const, ToDouble);
  EXPECT_SLOT(S, 91, float(S::*)() const, ToFloat);
  EXPECT_SLOT(S, 92, int(S::*)() const, ToInt);
  EXPECT_SLOT(S, 93, uint32_t(S::*)() const, ToFourCC);
  EXPECT_SLOT(S, 94, long long (S::*)() const, ToInt64);
  EXPECT_SLOT(S, 95, uint32_t(S::*)() const, ToHex);
  EXPECT_SLOT(S, 96, UChar(S::*)(uint32_t) const, ToHexByte);
  EXPECT_SLOT(S, 97, uint32_t(S::*)(UChar*, uint32_t) const, GetHex);
  EXPECT_SLOT(S, 98, uint64_t(S::*)() const, ToUInt64);
  EXPECT_SLOT(S, 99, bool(S::*)(double&) const, TryToDouble);
  EXPECT_SLOT(S, 100, bool(S::*)(uint64_t&) const, TryToUInt64);
  EXPECT_SLOT(S, 101, void(S::*)(const float*, uint8_t), SetList);
  EXPECT_SLOT(S, 102, void(S::*)(const uint16_t*, uint8_t), SetList);
  EXPECT_SLOT(S, 103, void(S::*)(const int16_t*, uint8_t), SetList);
  EXPECT_SLOT(S, 104, void(S::*)(const uint8_t*, uint8_t), SetList);
  EXPECT_SLOT(S, 105, size_t(S::*)(float*, size_t) const, ToList);
  EXPECT_SLOT(S, 106, size_t(S::*)(uint16_t*, size_t) const, ToList);
  EXPECT_SLOT(S, 107, size_t(S::*)(uint8_t*, size_t) const, ToList);
  EXPECT_SLOT(S, 108, void(S::*)(std::vector<int>&) const, ToList);
  EXPECT_SLOT(S, 109, VString(S::*)(const char*, ...) const, Format);
  EXPECT_SLOT(S, 110, uint32_t(S::*)() const, ToUInt);
  EXPECT_SLOT(S, 111, unsigned long long (S::*)() const, ToULongLong);
  EXPECT_SLOT(S, 112, void(S::*)(const void*, unsigned int), SetBase64);
  EXPECT_SLOT(S, 113, void(S::*)(), EncodeBase64);
  EXPECT_SLOT(S, 114, bool(S::*)(UChar*, unsigned int&) const, GetBase64);
  EXPECT_SLOT(S, 115, void(S::*)(), DecodeBase64);
}

// 116 documented slots, one of them the destructor's two entries: 117 entries in all. A class
// that appends one virtual operation puts it at entry 117.
class Extended : public VString {
 public:
  virtual void Appended() {}
};

TEST(VTableLayoutTest, StringHasExactlyOneHundredSixteenSlots) {
  EXPECT_EQ(TableEntry(&Extended::Appended), 117);
}

TEST(VTableLayoutTest, TheUtf16SetFormsAreNotVirtual) {
  EXPECT_EQ(TableEntry(static_cast<void (VString::*)(const char16_t*)>(&VString::Set)), -1);
  EXPECT_EQ(TableEntry(static_cast<void (VString::*)(const std::u16string&)>(&VString::Set)), -1);
}

}  // namespace
