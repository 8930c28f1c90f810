#include <gtest/gtest.h>

#include <vantu/VBaseObject.h>
#include <vantu/VString.h>

namespace {

class Counted : public VBaseObject {
 public:
  ~Counted() override = default;
  void Clone(const VBaseObject& other) override {
    ++clones;
    value = static_cast<const Counted&>(other).value;
  }
  int clones = 0;
  int value = 0;
};

TEST(VBaseObjectTest, EveryClassAnswersTheRootsName) {
  Counted counted;
  VString text("abc");
  const VBaseObject& asBase = text;
  EXPECT_EQ(counted.GetClassName(), "VBaseObject");
  EXPECT_EQ(asBase.GetClassName(), "VBaseObject");
  // One shared text, not a copy per object.
  EXPECT_EQ(&counted.GetClassName(), &text.GetClassName());
}

TEST(VBaseObjectTest, AssignmentGoesThroughCloneExceptOntoItself) {
  Counted a;
  Counted b;
  b.value = 7;
  VBaseObject& baseA = a;
  baseA = b;
  EXPECT_EQ(a.clones, 1);
  EXPECT_EQ(a.value, 7);

  baseA = a;  // self-assignment
  EXPECT_EQ(a.clones, 1);
  EXPECT_EQ(a.value, 7);
}

TEST(VBaseObjectTest, CloneOfTheRootDoesNothing) {
  VString text("abc", UTF8);
  VString other("xyz", Latin1);
  text.VBaseObject::Clone(other);
  EXPECT_EQ(text.GetString(), "abc");
  EXPECT_EQ(text.GetEncoding(), UTF8);
}

}  // namespace
