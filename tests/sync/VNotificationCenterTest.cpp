// VNotificationCenter: who is called, in which order, and who deletes what.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <vantu/VNotificationCenter.h>

namespace {

std::vector<std::string> calls;  // "<context>:<argument>" per call

VObserver* Observer(const char* context, const char* name) {
  return new VObserver(const_cast<char*>(context), new VNotification(name), [](void* c, void* a) {
    if (std::string(static_cast<char*>(a)) == "throw") throw std::runtime_error("callback");
    calls.push_back(std::string(static_cast<char*>(c)) + ":" + static_cast<char*>(a));
  });
}

// A notification that counts its deletions.
struct Counted : VNotification {
  Counted(std::string name, int* deleted) : VNotification(std::move(name)), deleted(deleted) {}
  ~Counted() override { ++*deleted; }
  int* deleted;
};

TEST(VNotificationCenterTest, PostCallsTheObserversOfThatNameInListOrderAndDeletesIt) {
  VNotificationCenter center;
  center.GetList()->push_back(nullptr);
  EXPECT_FALSE(center.HasObservers());
  *center.GetList() = {Observer("a", "saved"), nullptr, Observer("b", "Saved"),
                       Observer("c", "saved"), Observer("e", "")};
  EXPECT_TRUE(center.HasObservers());
  int deleted = 0;
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"saved", {"a:1", "c:1"}}, {"Saved", {"b:1"}}, {"", {"e:1"}}, {"save", {}}};
  for (const auto& [name, expected] : cases) {
    calls.clear();
    center.PostNotification(new Counted(name, &deleted), const_cast<char*>("1"));
    EXPECT_EQ(calls, expected) << name;
  }
  EXPECT_THROW(center.PostNotification(new Counted("saved", &deleted), const_cast<char*>("throw")),
               std::runtime_error);
  EXPECT_EQ(deleted, 5);
  center.PostNotification(nullptr, nullptr);
}

TEST(VNotificationCenterTest, CopiesShareObserversAndAssignmentFreesOnlyItsOwn) {
  VNotificationCenter center;
  VObserver* shared = Observer("s", "x");
  center.GetList()->push_back(shared);
  {
    VNotificationCenter copy(center);
    EXPECT_EQ(*copy.GetList(), *center.GetList());
    EXPECT_NE(copy.GetList(), center.GetList());
    copy.GetList()->clear();  // only one of the two may delete the shared observer
  }
  VNotificationCenter other;
  other.GetList()->push_back(Observer("o", "x"));  // deleted by the assignment (LeakSanitizer)
  other = center;
  const VNotificationCenter& same = other;
  other = same;  // does nothing
  EXPECT_EQ(*other.GetList(), std::list<VObserver*>{shared});
  other.GetList()->clear();
}

}  // namespace
