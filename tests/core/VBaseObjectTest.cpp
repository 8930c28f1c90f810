// The root object, the exception family, and the order of virtual slots, which is part of the
// library's binary interface (see support/VTable.h for how the entries are read; each slot is
// named with its full signature).
#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <vantu/VBaseObject.h>
#include <vantu/VException.h>
#include <vantu/VString.h>

#include "support/VTable.h"

namespace {

// One class of the tree: its parent, its fixed message, and copies that keep the dynamic class.
template <typename T, typename Parent>
void ExpectClass(const char* fixed) {
  static_assert(std::is_base_of_v<Parent, T>, "the exception tree");
  const T e("the caller's text", 0);
  EXPECT_STREQ(e.what(), fixed) << typeid(T).name();
  EXPECT_EQ(e.what(), e.Name());
  EXPECT_STREQ(e.ClassName(), typeid(T).name());
  std::unique_ptr<VException> clone(static_cast<const VException&>(e).Clone());
  EXPECT_EQ(typeid(*clone), typeid(T));
  EXPECT_TRUE(clone->Message() == "the caller's text" && clone->Nested() == nullptr);
  EXPECT_THROW(clone->Rethrow(), T);
}

TEST(VExceptionTest, EveryClassKeepsItsParentMessageAndDynamicClass) {
  ExpectClass<VException, std::exception>("VException");
  ExpectClass<VantuLogicException, VException>("Logic exception");
  ExpectClass<VantuInvalidArgumentException, VantuLogicException>("Invalid argument");
  ExpectClass<VantuRuntimeException, VException>("Runtime exception");
  ExpectClass<VantuDataException, VantuRuntimeException>("Data error");
  ExpectClass<VantuSyntaxException, VantuDataException>("Syntax error");
  ExpectClass<VantuPathSyntaxException, VantuSyntaxException>("Bad path syntax");
  ExpectClass<VantuIOException, VantuRuntimeException>("I/O error");
  ExpectClass<VantuFileException, VantuIOException>("File access error");
  ExpectClass<VantuFileExistsException, VantuFileException>("File exists");
  ExpectClass<VantuFileNotFoundException, VantuFileException>("File not found");
  ExpectClass<VantuPathNotFoundException, VantuFileException>("Path not found");
  ExpectClass<VantuFileReadOnlyException, VantuFileException>("File is read-only");
  ExpectClass<VantuFileAccessDeniedException, VantuFileException>("Access to file denied");
  ExpectClass<VantuOpenFileException, VantuFileException>("Cannot open file");
  ExpectClass<VantuXMLElementException, VantuRuntimeException>("XML element exception");
  ExpectClass<VantuXMLParseException, VantuRuntimeException>("XML parse error");
  // The asymmetries a catch clause meets: XML errors are no data errors, path syntax no I/O.
  static_assert(!std::is_base_of_v<VantuDataException, VantuXMLParseException> &&
                !std::is_base_of_v<VantuDataException, VantuXMLElementException> &&
                !std::is_base_of_v<VantuIOException, VantuPathSyntaxException>);
}

TEST(VExceptionTest, NestedExceptionsAreDeepCopiedAndOwned) {
  auto outer =
      std::make_unique<VantuRuntimeException>("outer", VantuFileNotFoundException("inner", 3), 5);
  VantuRuntimeException copy(*outer);
  outer.reset();  // destroying one leaves the other's nested exception intact
  VantuRuntimeException assigned("other");
  assigned = copy;
  assigned = assigned;
  std::unique_ptr<VException> clone(copy.Clone());
  const VException* const copies[] = {&copy, &assigned, clone.get()};
  for (const VException* e : copies) {
    ASSERT_NE(e->Nested(), nullptr);
    EXPECT_EQ(e->Message() + "/" + e->Nested()->Message(), "outer/inner");
    EXPECT_EQ(e->Code() * 10 + e->Nested()->Code(), 53);
    EXPECT_EQ(typeid(*e->Nested()), typeid(VantuFileNotFoundException));
  }
  EXPECT_NE(assigned.Nested(), copy.Nested());
}

// Counts the copies made through Clone.
class Counted : public VBaseObject {
 public:
  void Clone(const VBaseObject& other) override {
    value = static_cast<const Counted&>(other).value + 1;
  }
  int value = 0;
};

TEST(VBaseObjectTest, OneClassNameAndAssignmentThroughClone) {
  Counted a;
  Counted b;
  VString text("abc", UTF8);
  EXPECT_TRUE(a.GetClassName() == "VBaseObject" && &a.GetClassName() == &text.GetClassName());
  b.value = 7;
  VBaseObject& base = a;
  base = b;
  base = a;  // onto itself: no Clone
  EXPECT_EQ(a.value, 8);
  text.VBaseObject::Clone(VString("xyz", Latin1));  // the root's Clone does nothing
  EXPECT_EQ(text.GetString(), "abc");
}

using vantu::test::EntryOf;
using vantu::test::TableEntry;
using S = VString;
using Str = const std::string&;
using Pascal = const unsigned char*;
using Enc = StringEncoding;
using UChar = unsigned char;

// The table entry of the member of class C with function type F (picks one overload).
template <typename F, typename C>
std::ptrdiff_t E(F C::*member) {
  return TableEntry(member);
}

#define M(name, ...) E<__VA_ARGS__>(&S::name)
// The four kinds of text argument of slots 3 to 14, and the five of each comparison family.
#define TEXTS(R, name, cv) \
  M(name, R(const S&) cv), M(name, R(Str) cv), M(name, R(Pascal) cv), M(name, R(const char*) cv)
#define COMPARES(name, ...)                                                                      \
  M(name, int(const char*, Enc __VA_ARGS__) const), M(name, int(const char* __VA_ARGS__) const), \
      M(name, int(Str, Enc __VA_ARGS__) const), M(name, int(Str __VA_ARGS__) const),             \
      M(name, int(const S& __VA_ARGS__) const)

TEST(VTableLayoutTest, ExceptionSlots) {
  // VException follows std::exception (destructor 0, what 1); a subclass overrides in place,
  // its covariant Clone included, and adds no slot.
#define EXCEPTION_SLOTS(X)                                                                        \
  {                                                                                               \
    TableEntry(&X::what), TableEntry(&X::Name), TableEntry(&X::ClassName), TableEntry(&X::Clone), \
        TableEntry(&X::Rethrow), TableEntry(&X::Reserved)                                         \
  }
  const std::ptrdiff_t slots[][6] = {EXCEPTION_SLOTS(VException),
                                     EXCEPTION_SLOTS(VantuFileNotFoundException)};
  for (int slot = 1; slot <= 6; ++slot) {
    EXPECT_EQ(slots[0][slot - 1], EntryOf(slot, 0)) << "VException slot " << slot;
    EXPECT_EQ(slots[1][slot - 1], EntryOf(slot, 0)) << "subclass slot " << slot;
  }
}

// 116 documented slots, the destructor's taking two entries: a class that appends one virtual
// operation puts it at entry 117 (so the UTF-16 Set forms, for one, are not virtual).
class Extended : public VString {
 public:
  virtual void Appended() {}
};

TEST(VTableLayoutTest, EveryStringSlotInOrderAndNoMore) {
  const std::ptrdiff_t slots[] = {
      M(GetClassName, const std::string&() const), -2 /* the destructor */,
      M(Clone, void(const VBaseObject&)), TEXTS(bool, IsEqual, const), TEXTS(S&, Assign, ),
      TEXTS(S&, Append, ), M(Append, S & (char)),
      // 16
      M(Set, void(Pascal, Enc)), M(Set, void(const char*, Enc)), M(Set, void(Str, Enc)),
      M(Set, void(Pascal)), M(Set, void(const wchar_t*)), M(Set, void(const char*)),
      M(Set, void(const std::wstring&)), M(Set, void(Str)),
      M(SetRaw, void(const char*, size_t, Enc)), M(Set, void(const wchar_t*, size_t)),
      M(Set, void(const char*, size_t)), M(ConvertTo, bool(Enc)), M(SwapByteOrder, void()),
      M(Normalize, void(NormalizationForm)), M(KeepNumeric, void()), M(ToUpper, void()),
      M(ToLower, void()), M(Capitalize, void()), M(Trim, void(char)), M(TrimLeft, void(char)),
      M(TrimRight, void(char)),
      // 37
      M(Mid, std::string(size_t, size_t) const), M(Left, std::string(size_t) const),
      M(Right, std::string(size_t) const), M(Find, size_t(const char*, size_t) const),
      M(Find, size_t(Str, size_t) const), M(ReverseFind, uint32_t(const char*, size_t) const),
      M(ReverseFind, uint32_t(Str, size_t) const),
      M(Replace, std::string(size_t, size_t, const char*)),
      M(Replace, std::string(size_t, size_t, Str)), M(ReplaceAll, void(const char*, const char*)),
      M(ReplaceAll, void(const S&, const S&)), M(ReplaceAll, void(Str, Str)), M(URIEncode, void()),
      M(URIDecode, void()), COMPARES(Compare, ), COMPARES(CompareN, , size_t),
      COMPARES(CompareNoCase, ), COMPARES(CompareNoCaseN, , size_t),
      // 71
      M(SetDouble, void(double)), M(SetDouble, void(double, int)), M(SetFloat, void(float)),
      M(SetFloat, void(float, int)), M(SetInt, void(int)), M(SetInt, void(unsigned)),
      M(SetInt, void(long)), M(SetInt, void(unsigned long)), M(SetInt, void(long long)),
      M(SetInt64, void(int64_t)), M(FormatFourCC, std::string(uint32_t) const),
      M(SetVersion, void(uint32_t)), M(SetHex, void(const UChar*, size_t)),
      M(SetHex, void(UChar, UChar, UChar, UChar)), M(SetHex, void(int)),
      M(SetInt, void(unsigned long long)), M(SetPair, void(int)), M(SetPair, void(int, int)),
      M(SetPair, void(unsigned long long)),
      // 90
      M(ToDouble, double() const), M(ToFloat, float() const), M(ToInt, int() const),
      M(ToFourCC, uint32_t() const), M(ToInt64, long long() const), M(ToHex, uint32_t() const),
      M(ToHexByte, UChar(uint32_t) const), M(GetHex, uint32_t(UChar*, uint32_t) const),
      M(ToUInt64, uint64_t() const), M(TryToDouble, bool(double&) const),
      M(TryToUInt64, bool(uint64_t&) const), M(SetList, void(const float*, uint8_t)),
      M(SetList, void(const uint16_t*, uint8_t)), M(SetList, void(const int16_t*, uint8_t)),
      M(SetList, void(const uint8_t*, uint8_t)), M(ToList, size_t(float*, size_t) const),
      M(ToList, size_t(uint16_t*, size_t) const), M(ToList, size_t(uint8_t*, size_t) const),
      M(ToList, void(std::vector<int>&) const),
      // 109
      M(Format, S(const char*, ...) const), M(ToUInt, uint32_t() const),
      M(ToULongLong, unsigned long long() const), M(SetBase64, void(const void*, unsigned)),
      M(EncodeBase64, void()), M(GetBase64, bool(UChar*, unsigned&) const),
      M(DecodeBase64, void())};
  static_assert(std::size(slots) == 116, "VString has 116 documented slots");
  for (int slot = 0; slot < 116; ++slot) {
    if (slot == 1) continue;
    EXPECT_EQ(slots[slot], EntryOf(slot, 1)) << "VString slot " << slot;
  }
  EXPECT_EQ(TableEntry(&Extended::Appended), 117);
}

}  // namespace
