// VNotificationCenter: who is called, in which order, and who deletes what.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <vantu/VNotificationCenter.h>

namespace {

// Records each call as "<context>:<argument>".
std::vector<std::string> calls;

void Record(void* context, void* argument) {
  calls.push_back(std::string(static_cast<const char*>(context)) + ":" +
                  static_cast<const char*>(argument));
}

// A notification that counts its deletions.
struct Counted : VNotification {
  Counted(std::string name, int* deleted) : VNotification(std::move(name)), deleted(deleted) {}
  ~Counted() override { ++*deleted; }
  int* deleted;
};

VObserver* Observer(const char* context, const char* name) {
  return new VObserver(const_cast<char*>(context), new VNotification(name), &Record);
}

TEST(VNotificationCenterTest, PostCallsTheObserversOfThatNameInListOrder) {
  VNotificationCenter center;
  EXPECT_FALSE(center.HasObservers());
  center.GetList()->push_back(nullptr);
  EXPECT_FALSE(center.HasObservers());
  *center.GetList() = {Observer("a", "saved"), nullptr,           Observer("b", "Saved"),
                       Observer("c", "saved"), Observer("e", ""), nullptr};
  EXPECT_TRUE(center.HasObservers());
  int deleted = 0;
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"saved", {"a:1", "c:1"}}, {"Saved", {"b:1"}}, {"", {"e:1"}}, {"save", {}}};
  for (const auto& [name, expected] : cases) {
    calls.clear();
    center.PostNotification(new Counted(name, &deleted), const_cast<char*>("1"));
    EXPECT_EQ(calls, expected) << name;
  }
  EXPECT_EQ(deleted, 4);
  center.PostNotification(nullptr, nullptr);
}

TEST(VNotificationCenterTest, ThePostedNotificationIsDeletedWhenACallbackThrows) {
  VNotificationCenter center;
  center.GetList()->push_back(new VObserver(nullptr, new VNotification("boom"), [](void*, void*) {
    throw std::runtime_error("callback");
  }));
  int deleted = 0;
  EXPECT_THROW(center.PostNotification(new Counted("boom", &deleted), nullptr), std::runtime_error);
  EXPECT_EQ(deleted, 1);
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
  EXPECT_EQ(*other.GetList(), std::list<VObserver*>{shared});
  const VNotificationCenter& same = other;
  other = same;  // does nothing
  other.GetList()->clear();
  calls.clear();
  center.PostNotification(new VNotification("x"), const_cast<char*>("2"));
  EXPECT_EQ(calls, std::vector<std::string>{"s:2"});
}

}  // namespace
