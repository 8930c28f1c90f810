// VMutex, VEvent, VThread and VNotificationCenter within one process, the flat functions, and
// the virtual slots of the synchronisation classes.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <vantu/vantu.h>
#include <vantu/vantu.hpp>

#include "support/VTable.h"

extern "C" int vantu_test_flat_sync_from_c(const char* name);

namespace {

using vantu::test::EntryOf;
using vantu::test::Extended;
using vantu::test::TableEntry;

// Waits up to 10 s until `count` reaches `expected`, then gives more a while to get through:
// true when exactly `expected` got through.
bool ReachesAndStays(const std::atomic<int>& count, int expected) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (count < expected && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  return count == expected;
}

TEST(VMutexTest, CopiesShareOneRecursiveMutexAcrossThreads) {
  auto original = std::make_unique<VMutex>();
  std::vector<VMutex> copies(8, *original);
  original.reset();  // the copies keep the mutex alive
  long counter = 0;
  std::vector<std::thread> threads;
  for (VMutex& copy : copies) {
    threads.emplace_back([&counter, copy]() mutable {
      for (int i = 0; i < 10000; ++i) {
        VAutoMutexLock outer(&copy);
        VAutoMutexLock inner(&copy);
        counter = counter + 1;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, 80000);
}

// Misuse on purpose: kept out of the ThreadSanitizer run, which reports it as such.
TEST(VMutexMisuseTest, UnlockingAMutexNotHeldThrows) {
  VMutex mutex;
  EXPECT_THROW(mutex.Unlock(), VantuRuntimeException);
  VAutoMutexLock nothing(nullptr);  // neither locks nor unlocks
}

TEST(VEventTest, AutoResetLetsOneWaiterThroughPerSetManualResetAllUntilReset) {
  for (const bool autoReset : {true, false}) {
    VEvent event(true, autoReset);
    event.Wait();  // set from the start
    if (!autoReset) event.Reset();
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 2; ++i) {
      waiters.emplace_back([&, copy = event]() mutable {
        copy.Wait();
        ++released;
      });
    }
    EXPECT_TRUE(ReachesAndStays(released, 0));
    event.Set();
    EXPECT_TRUE(ReachesAndStays(released, autoReset ? 1 : 2)) << autoReset;
    event.Set();
    EXPECT_TRUE(ReachesAndStays(released, 2));
    for (std::thread& waiter : waiters) waiter.join();
  }
}

// Thread functions: count a call (after `go` when they wait). Static in the tests: a thread
// that outlives a failing test must not write into a finished stack frame.
struct Record {
  VEvent go{false, false};  // manual reset: lets every waiting function go
  std::atomic<int> calls{0};
  static void Count(uintptr_t self) { ++reinterpret_cast<Record*>(self)->calls; }
  static void WaitThenCount(uintptr_t self) {
    reinterpret_cast<Record*>(self)->go.Wait();
    Count(self);
  }
};

TEST(VThreadTest, DataReachesTheFunctionAndAFinishedThreadStartsAgain) {
  static Record record;
  VThread thread;
  EXPECT_EQ(thread.GetData(), 0u);
  thread.SetData(reinterpret_cast<uintptr_t>(&record));
  VThread copy(thread);  // shares the thread; the data is copied
  copy.Start(&Record::WaitThenCount);
  EXPECT_THROW(thread.Start(&Record::Count), VantuRuntimeException);  // still running
  record.go.Set();
  // Once the function has returned, the thread starts again.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (bool started = false; !started;) {
    try {
      thread.Start(&Record::Count);
      started = true;
    } catch (const VantuRuntimeException&) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    }
  }
  EXPECT_TRUE(ReachesAndStays(record.calls, 2));
}

TEST(VThreadTest, DestroyedThreadsLeaveTheirFunctionsRunningAndThenNothing) {
  static Record record;
  std::optional<VThread> waiting(std::in_place);
  waiting->SetData(reinterpret_cast<uintptr_t>(&record));
  waiting->Start(&Record::WaitThenCount);
  waiting.reset();                 // the function still waits for go
  for (int i = 0; i < 100; ++i) {  // destroyed at once, before the threads may even have begun
    VThread thread;
    thread.SetData(reinterpret_cast<uintptr_t>(&record));
    thread.Start(&Record::Count);
  }
  record.go.Set();
  EXPECT_TRUE(ReachesAndStays(record.calls, 101));
}

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

TEST(VNotificationCenterTest, PostCallsTheObserversOfThatNameInOrderAndCopiesShareThem) {
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
  // A copy shares the observers; an assignment deletes only those the source does not have.
  VNotificationCenter copy(center);
  EXPECT_EQ(*copy.GetList(), *center.GetList());
  EXPECT_NE(copy.GetList(), center.GetList());
  copy.GetList()->push_back(Observer("o", "x"));  // deleted by the assignment (LeakSanitizer)
  copy = static_cast<const VNotificationCenter&>(copy);  // does nothing
  copy = center;
  EXPECT_EQ(*copy.GetList(), *center.GetList());
  copy.GetList()->clear();  // only one of the two may delete the shared observers
}

TEST(FlatSyncTest, EveryFunctionCalledFromC) {
  const std::string name = "vantu-test-" + std::to_string(::getpid()) + "-flat";
  EXPECT_EQ(vantu_test_flat_sync_from_c(name.c_str()), 0) << "the failing line of FlatSyncC.c";
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
  void* thread = vantu_ThreadCreate();
  vantu_ThreadStart(thread, nullptr);  // a thread without a function runs nothing
  vantu_ThreadDestroy(thread);
  // A region that was not made: a handle all the same, and int -1 at use.
  for (void* region : {vantu_SharedMemoryCreate("", 100), vantu_SharedMemoryCreate(nullptr, 100),
                       vantu_SharedMemoryCreate("vantu-test-flat-zero", 0)}) {
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

template <typename... Classes>
std::vector<std::ptrdiff_t> AppendedEntries() {
  return {TableEntry(&Extended<Classes>::Appended)...};
}

// A class appending one virtual operation puts it right after its base's last entry.
TEST(SyncClassLayoutTest, EachClassKeepsItsSlots) {
  EXPECT_EQ((AppendedEntries<VMutex, VEvent, VNamedMutex, VNamedEvent, VSharedMemory, VThread,
                             VProcess>()),
            std::vector<std::ptrdiff_t>(7, 4));  // the root's three slots
  EXPECT_EQ(TableEntry(static_cast<void (VThread::*)(const VBaseObject&)>(&VThread::Clone)),
            EntryOf(2, 1));
  EXPECT_EQ(TableEntry(&VNotificationCenter::PostNotification), EntryOf(3, 1));
  EXPECT_EQ(TableEntry(&VNotificationCenter::HasObservers), EntryOf(4, 1));
  EXPECT_EQ(TableEntry(&Extended<VNotificationCenter>::Appended), 6);
  EXPECT_EQ((AppendedEntries<VAutoMutexLock, VAutoNamedMutexLock, VObserver, VNotification>()),
            std::vector<std::ptrdiff_t>(4, 2));  // only their destructor
  EXPECT_EQ(TableEntry(&VWorker::run), EntryOf(1, 0));
  EXPECT_EQ(TableEntry(&Extended<VWorker>::Appended), 3);
}

}  // namespace
