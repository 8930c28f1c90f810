#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include <vantu/VException.h>

namespace {

template <typename T>
void ExpectFixedMessage(const char* fixed) {
  const T e("the caller's text", 0);
  EXPECT_STREQ(e.what(), fixed) << typeid(T).name();
  EXPECT_EQ(e.what(), e.Name());
  EXPECT_EQ(e.Message(), "the caller's text");
  EXPECT_STREQ(e.ClassName(), typeid(T).name());
  // Clone and Rethrow keep the dynamic class.
  std::unique_ptr<VException> clone(static_cast<const VException&>(e).Clone());
  EXPECT_EQ(typeid(*clone), typeid(T));
  EXPECT_EQ(clone->Message(), "the caller's text");
  EXPECT_THROW(clone->Rethrow(), T);
}

TEST(VExceptionTest, WhatAndNameGiveTheClassMessageNotTheText) {
  ExpectFixedMessage<VException>("VException");
  ExpectFixedMessage<VantuLogicException>("Logic exception");
  ExpectFixedMessage<VantuInvalidArgumentException>("Invalid argument");
  ExpectFixedMessage<VantuRuntimeException>("Runtime exception");
  ExpectFixedMessage<VantuDataException>("Data error");
  ExpectFixedMessage<VantuSyntaxException>("Syntax error");
  ExpectFixedMessage<VantuPathSyntaxException>("Bad path syntax");
  ExpectFixedMessage<VantuIOException>("I/O error");
  ExpectFixedMessage<VantuFileException>("File access error");
  ExpectFixedMessage<VantuFileExistsException>("File exists");
  ExpectFixedMessage<VantuFileNotFoundException>("File not found");
  ExpectFixedMessage<VantuPathNotFoundException>("Path not found");
  ExpectFixedMessage<VantuFileReadOnlyException>("File is read-only");
  ExpectFixedMessage<VantuFileAccessDeniedException>("Access to file denied");
  ExpectFixedMessage<VantuOpenFileException>("Cannot open file");
  ExpectFixedMessage<VantuXMLElementException>("XML element exception");
  ExpectFixedMessage<VantuXMLParseException>("XML parse error");
}

TEST(VExceptionTest, TheTreeKeepsItsAsymmetries) {
  auto thrown = [](const VException& e) {
    try {
      e.Rethrow();
    } catch (const VantuDataException&) {
      return std::string("data");
    } catch (const VantuIOException&) {
      return std::string("io");
    } catch (const VantuRuntimeException&) {
      return std::string("runtime");
    } catch (const VantuLogicException&) {
      return std::string("logic");
    } catch (const std::exception&) {
      return std::string("std");
    }
    return std::string("nothing thrown");
  };
  EXPECT_EQ(thrown(VantuPathSyntaxException("p")), "data");
  EXPECT_EQ(thrown(VantuFileNotFoundException("f")), "io");
  EXPECT_EQ(thrown(VantuXMLParseException("x")), "runtime");
  EXPECT_EQ(thrown(VantuXMLElementException("x")), "runtime");
  EXPECT_EQ(thrown(VantuInvalidArgumentException("a")), "logic");
  EXPECT_EQ(thrown(VException("v")), "std");
}

TEST(VExceptionTest, RethrowThroughTheBaseThrowsTheDynamicClass) {
  const VantuFileNotFoundException original("missing.txt");
  const VException& base = original;
  try {
    base.Rethrow();
    FAIL() << "Rethrow returned";
  } catch (const VantuFileNotFoundException& e) {
    EXPECT_EQ(e.Message(), "missing.txt");
  }
}

TEST(VExceptionTest, NestedExceptionsAreDeepCopiedAndOwned) {
  auto outer =
      std::make_unique<VantuRuntimeException>("outer", VantuFileNotFoundException("inner", 3), 5);
  ASSERT_NE(outer->Nested(), nullptr);
  EXPECT_EQ(outer->Code(), 5);
  VantuRuntimeException copy(*outer);
  ASSERT_NE(copy.Nested(), nullptr);
  EXPECT_NE(copy.Nested(), outer->Nested());
  outer.reset();  // destroying one leaves the other's nested exception intact
  EXPECT_EQ(copy.Nested()->Message(), "inner");
  EXPECT_EQ(copy.Nested()->Code(), 3);
  EXPECT_STREQ(copy.Nested()->what(), "File not found");

  VantuRuntimeException assigned("other");
  assigned = copy;
  ASSERT_NE(assigned.Nested(), nullptr);
  EXPECT_NE(assigned.Nested(), copy.Nested());
  EXPECT_EQ(assigned.Message(), "outer");
  assigned = assigned;
  EXPECT_EQ(assigned.Nested()->Message(), "inner");

  std::unique_ptr<VException> clone(copy.Clone());
  EXPECT_EQ(typeid(*clone->Nested()), typeid(VantuFileNotFoundException));
}

TEST(VExceptionTest, ConstructorsLeaveNoNestedException) {
  VantuFileException e("x", 0);
  EXPECT_EQ(e.Nested(), nullptr);
  EXPECT_EQ(e.Code(), 0);
}

}  // namespace
