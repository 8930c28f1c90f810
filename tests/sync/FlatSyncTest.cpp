// The flat event, named-event, thread and shared-memory functions.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>

#include <vantu/vantu.h>

extern "C" int vantu_test_flat_sync_from_c(const char* name, char* failure, size_t size);

namespace {

std::string UniqueName(const char* what) {
  return "vantu-test-" + std::to_string(::getpid()) + "-flat-" + what;
}

TEST(FlatSyncTest, EveryFunctionCalledFromC) {
  char failure[512] = "";
  EXPECT_EQ(vantu_test_flat_sync_from_c(UniqueName("c").c_str(), failure, sizeof(failure)), 0)
      << failure;
}

TEST(FlatSyncTest, NullHandlesMissingObjectsAndOneDestroyFunction) {
  vantu_EventSet(nullptr);
  vantu_EventReset(nullptr);
  vantu_EventWait(nullptr);
  vantu_EventDestroy(nullptr);
  vantu_ThreadStart(nullptr, nullptr);
  vantu_ThreadSetData(nullptr, 1);
  EXPECT_EQ(vantu_ThreadGetData(nullptr), 0u);
  EXPECT_EQ(vantu_SharedMemoryBeginData(nullptr), nullptr);
  EXPECT_EQ(vantu_SharedMemoryEndData(nullptr), nullptr);
  EXPECT_EQ(&vantu_NamedEventDestroy, &vantu_EventDestroy);
  EXPECT_EQ(&vantu_SharedMemoryDestroy, &vantu_EventDestroy);
  EXPECT_EQ(&vantu_ThreadDestroy, &vantu_EventDestroy);
  // A region that was not made: a handle all the same, and int -1 at use.
  for (void* region : {vantu_SharedMemoryCreate("", 100), vantu_SharedMemoryCreate(nullptr, 100),
                       vantu_SharedMemoryCreate(UniqueName("zero").c_str(), 0)}) {
    ASSERT_NE(region, nullptr);
    EXPECT_THROW(vantu_SharedMemoryBeginData(region), int);
    EXPECT_THROW(vantu_SharedMemoryEndData(region), int);
    vantu_SharedMemoryDestroy(region);
  }
  for (void* event : {vantu_NamedEventCreate(nullptr), vantu_NamedEventCreate("")}) {
    ASSERT_NE(event, nullptr);
    vantu_NamedEventSet(event);
    vantu_NamedEventWait(event);  // no event: returns at once
    vantu_NamedEventDestroy(event);
  }
}

TEST(FlatSyncTest, ThreadsRunTheirFunctionOrNothing) {
  void* thread = vantu_ThreadCreate();
  vantu_ThreadStart(thread, nullptr);
  vantu_ThreadDestroy(thread);
  struct Events {
    void* go = vantu_EventCreate();
    void* done = vantu_EventCreate();
  } events;
  thread = vantu_ThreadCreate();
  vantu_ThreadSetData(thread, reinterpret_cast<uintptr_t>(&events));
  vantu_ThreadStart(thread, [](uintptr_t data) {
    auto* events = reinterpret_cast<Events*>(data);
    vantu_EventWait(events->go);  // runs on after its handle is gone
    vantu_EventSet(events->done);
  });
  vantu_ThreadDestroy(thread);
  vantu_EventSet(events.go);
  vantu_EventWait(events.done);
  vantu_EventDestroy(events.go);
  vantu_EventDestroy(events.done);
}

}  // namespace
