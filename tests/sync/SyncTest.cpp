// Mutexes, events, threads and the notification center within one process; the flat functions;
// the virtual slots of these classes; named mutexes, named events and shared memory between real
// processes and threads.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <vantu/vantu.hpp>

#include "platform/NamedObjects.h"
#include "support/VTable.h"

extern "C" void vantu_test_set_event_from_c(uintptr_t event);

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using vantu::test::Extended;
using vantu::test::TableEntry;

// Waits up to 10 s until `count` reaches `expected`, then gives more a while to get through:
// true when exactly `expected` got through.
template <typename Count>
bool ReachesAndStays(const Count& count, uint64_t expected) {
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (uint64_t(count) < expected && Clock::now() < deadline) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  return uint64_t(count) == expected;
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

// An auto-reset event lets one waiter through per Set, among several that wait; a Set while it is
// set changes nothing; a manual-reset event lets every Wait through until Reset. A thread released
// by Set may destroy the event at once (AddressSanitizer sees a Set that touches it later).
TEST(VEventTest, EachSetReleasesOneWaiterAndTheReleasedMayDestroyTheEvent) {
  VEvent event, taken;
  std::atomic<int> released{0}, left{0};
  std::atomic<bool> stop{false};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 3; ++i) {
    waiters.emplace_back([&] {
      while (event.Wait(), ++released, taken.Set(), !stop) {
      }
      ++left;
    });
  }
  int first = 0;  // the first Set after which the count was wrong
  for (int i = 1; i <= 3000 && first == 0; ++i) {
    event.Set();
    taken.Wait();
    if (released != i) first = i;  // a second waiter let through is counted here
  }
  EXPECT_EQ(first, 0);
  stop = true;
  while (left < 3) event.Set(), std::this_thread::yield();
  for (std::thread& waiter : waiters) waiter.join();
  VEvent manual(true, false);
  manual.Wait(), manual.Wait();  // stays set
  for (int i = 0; i < 2000; ++i) {
    auto* once = new VEvent(false, i % 2 == 0);
    std::thread setter([once] { once->Set(); });
    once->Wait();
    delete once;
    setter.join();
  }
}

// Thread functions that count their calls, once `go` is set when they wait. Static in the test:
// a thread that outlives a failing test must not write into a finished stack frame.
struct Record {
  VEvent go{false, false};  // manual reset: lets every waiting function go
  std::atomic<int> calls{0};
  static void Count(uintptr_t self) { ++reinterpret_cast<Record*>(self)->calls; }
  static void WaitThenCount(uintptr_t self) {
    reinterpret_cast<Record*>(self)->go.Wait();
    Count(self);
  }
};

TEST(VThreadTest, RunsOneFunctionAtATimeWithItsDataAndOutlivesItsHandles) {
  static Record record;
  VThread thread;
  thread.SetData(reinterpret_cast<uintptr_t>(&record));
  VThread copy(thread);  // shares the thread; the data is copied
  copy.Start(&Record::WaitThenCount);
  EXPECT_THROW(thread.Start(&Record::Count), VantuRuntimeException);  // still running
  record.go.Set();
  // Once the function has returned, the thread starts again.
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  for (bool started = false; !started;) {
    try {
      thread.Start(&Record::Count);
      started = true;
    } catch (const VantuRuntimeException&) {
      ASSERT_LT(Clock::now(), deadline);
    }
  }
  EXPECT_TRUE(ReachesAndStays(record.calls, 2));
  // Handles destroyed while their function waits, or at once, before it may even have begun.
  record.go.Reset();
  for (const VThread::Function function : {&Record::WaitThenCount, &Record::Count}) {
    VThread other;
    other.SetData(reinterpret_cast<uintptr_t>(&record));
    other.Start(function);
  }
  record.go.Set();
  EXPECT_TRUE(ReachesAndStays(record.calls, 4));
}

// A function that destroys its own handle, often before Start has returned.
TEST(VThreadTest, AFunctionMayDestroyItsOwnHandle) {
  static std::atomic<int> done{0};
  constexpr int kThreads = 300;
  for (int i = 0; i < kThreads; ++i) {
    auto* thread = new VThread;
    thread->SetData(reinterpret_cast<uintptr_t>(thread));
    thread->Start([](uintptr_t self) {
      delete reinterpret_cast<VThread*>(self);
      ++done;
    });
  }
  EXPECT_TRUE(ReachesAndStays(done, kThreads));
}

// A callable body runs on the new thread and is destroyed there once it has returned; the
// handle may go at once.
TEST(VThreadTest, ACallableBodyRunsAndIsDestroyedOnTheThread) {
  struct Done {
    std::promise<void> destroyed;
    ~Done() { destroyed.set_value(); }
  };
  std::promise<std::thread::id> ran;
  auto done = std::make_shared<Done>();
  std::future<void> destroyed = done->destroyed.get_future();
  {
    VThread thread;
    thread.Start([&ran, done = std::move(done)] { ran.set_value(std::this_thread::get_id()); });
  }
  std::future<std::thread::id> where = ran.get_future();
  ASSERT_EQ(where.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_NE(where.get(), std::this_thread::get_id());
  EXPECT_EQ(destroyed.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  VThread empty;
  empty.Start(VThread::Body());  // ends at once
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
  using VNotification::VNotification;
  ~Counted() override { ++deleted; }
  static inline int deleted = 0;
};

TEST(VNotificationCenterTest, PostCallsTheObserversOfThatNameInOrderAndCopiesShareThem) {
  VNotificationCenter center;
  center.GetList()->push_back(nullptr);
  EXPECT_FALSE(center.HasObservers());
  *center.GetList() = {Observer("a", "saved"), nullptr, Observer("b", "Saved"),
                       Observer("c", "saved"), Observer("e", "")};
  EXPECT_TRUE(center.HasObservers());
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"saved", {"a:1", "c:1"}}, {"Saved", {"b:1"}}, {"", {"e:1"}}, {"save", {}}};
  for (const auto& [name, expected] : cases) {
    calls.clear();
    center.PostNotification(new Counted(name), const_cast<char*>("1"));
    EXPECT_EQ(calls, expected) << name;
  }
  EXPECT_THROW(center.PostNotification(new Counted("saved"), const_cast<char*>("throw")),
               std::runtime_error);
  EXPECT_EQ(Counted::deleted, 5);
  center.PostNotification(nullptr, nullptr);
  // A copy shares the observers; an assignment deletes only those the source does not have.
  VNotificationCenter copy(center);
  EXPECT_NE(copy.GetList(), center.GetList());
  copy.GetList()->push_back(Observer("o", "x"));  // deleted by the assignment (LeakSanitizer)
  copy = static_cast<const VNotificationCenter&>(copy);  // does nothing
  copy = center;
  EXPECT_EQ(*copy.GetList(), *center.GetList());
  copy.GetList()->clear();  // only one of the two may delete the shared observers
}

// A callable observer gets the argument alone, in list order with the classic ones, and goes
// with the observer.
TEST(VNotificationCenterTest, ACallableObserverIsCalledInTurnAndOwnedByTheObserver) {
  const auto token = std::make_shared<int>(0);
  {
    VNotificationCenter center;
    auto* callable = new VObserver(new VNotification("saved"), [token](void* argument) {
      calls.push_back(std::string("f:") + static_cast<char*>(argument));
    });
    EXPECT_TRUE(callable->GetCallback() == nullptr && callable->GetContext() == nullptr);
    *center.GetList() = {Observer("a", "saved"), callable,
                         new VObserver(new VNotification("saved"), VObserver::Function())};
    calls.clear();
    center.PostNotification(new VNotification("saved"), const_cast<char*>("1"));
    EXPECT_EQ(calls, (std::vector<std::string>{"a:1", "f:1"}));
    EXPECT_EQ(token.use_count(), 2);
  }
  EXPECT_EQ(token.use_count(), 1);
}

TEST(FlatSyncTest, HandlesWorkAndNullHandlesOrMissingObjectsDoNoHarm) {
  const std::string name = "vantu-test-" + std::to_string(::getpid()) + "-flat";
  void* event = vantu_EventCreate();
  void* named = vantu_NamedEventCreate(name.c_str());
  void* region = vantu_SharedMemoryCreate(name.c_str(), 64);
  void* thread = vantu_ThreadCreate();
  vantu_NamedEventSet(named);  // a set with nobody waiting is kept for the next wait
  vantu_NamedEventWait(named);
  EXPECT_EQ(vantu_SharedMemoryEndData(region) - vantu_SharedMemoryBeginData(region), 64);
  vantu_ThreadSetData(thread, reinterpret_cast<uintptr_t>(event));
  EXPECT_EQ(vantu_ThreadGetData(thread), reinterpret_cast<uintptr_t>(event));
  vantu_ThreadStart(thread, vantu_test_set_event_from_c);
  vantu_EventWait(event);
  vantu_EventWait(event);  // manual reset: stays set until reset
  vantu_EventReset(event);
  for (void* handle : {thread, region, named, event}) vantu_EventDestroy(handle);
  EXPECT_EQ((std::vector<void (*)(void*)>{&vantu_NamedEventDestroy, &vantu_SharedMemoryDestroy,
                                          &vantu_ThreadDestroy}),
            std::vector<void (*)(void*)>(3, &vantu_EventDestroy));  // one function destroys all
  for (auto call : {&vantu_EventSet, &vantu_EventReset, &vantu_EventWait, &vantu_EventDestroy}) {
    call(nullptr);
  }
  vantu_ThreadStart(nullptr, nullptr);
  vantu_ThreadSetData(nullptr, 1);
  EXPECT_EQ(vantu_ThreadGetData(nullptr), 0u);
  EXPECT_EQ(vantu_SharedMemoryBeginData(nullptr), nullptr);
  EXPECT_EQ(vantu_SharedMemoryEndData(nullptr), nullptr);
  thread = vantu_ThreadCreate();
  vantu_ThreadStart(thread, nullptr);  // a thread without a function runs nothing
  vantu_ThreadDestroy(thread);
  // A region that was not made: a handle all the same, and int -1 at use.
  void* none = vantu_SharedMemoryCreate(nullptr, 100);
  EXPECT_THROW(vantu_SharedMemoryBeginData(none), int);
  EXPECT_THROW(vantu_SharedMemoryEndData(none), int);
  vantu_SharedMemoryDestroy(none);
  for (void* noEvent : {vantu_NamedEventCreate(nullptr), vantu_NamedEventCreate("")}) {
    vantu_NamedEventSet(noEvent);
    vantu_NamedEventWait(noEvent);  // no event: returns at once
    vantu_NamedEventDestroy(noEvent);
  }
}

template <typename... Classes>
std::vector<std::ptrdiff_t> AppendedEntries() {
  return {TableEntry(&Extended<Classes>::Appended)...};
}

// A class appending one virtual operation puts it right after its base's last entry: the handle
// classes keep the root's three slots, the lockers, observers and notifications only have their
// destructor, the notification center adds PostNotification and HasObservers, the worker run.
TEST(SyncClassLayoutTest, EachClassKeepsItsSlots) {
  EXPECT_EQ((AppendedEntries<VMutex, VEvent, VNamedMutex, VNamedEvent, VSharedMemory, VThread,
                             VProcess, VAutoMutexLock, VAutoNamedMutexLock, VObserver,
                             VNotification, VNotificationCenter, VWorker>()),
            (std::vector<std::ptrdiff_t>{4, 4, 4, 4, 4, 4, 4, 2, 2, 2, 2, 6, 3}));
}

TEST(NamedObjectNameTest, EscapesOddBytesAndHashesLongNames) {
  using vantu::platform::NamedObjectSystemName;
  EXPECT_EQ(NamedObjectSystemName("mutex", "Job-1_a.b"), "/vantu.mutex.Job-1_a.b");
  EXPECT_EQ(NamedObjectSystemName("memory", "a/b %\xC3\xBC"), "/vantu.memory.a%2Fb%20%25%C3%BC");
  // 200 escaped bytes stay whole; longer names keep 160 bytes, a dot and 16 digits of a hash.
  EXPECT_EQ(NamedObjectSystemName("event", std::string(200, 'x')),
            "/vantu.event." + std::string(200, 'x'));
  const std::string a = NamedObjectSystemName("event", std::string(300, 'x'));
  const std::string b = NamedObjectSystemName("event", std::string(299, 'x') + "y");
  EXPECT_EQ(a.size(), 13u + 160 + 1 + 16);
  EXPECT_EQ(a.compare(0, 173, b, 0, 173), 0);
  EXPECT_NE(a, b);
  // No name spells a shortened one: the marker after the 160 bytes is never written unescaped.
  EXPECT_EQ(a[173], '~');
  EXPECT_NE(NamedObjectSystemName("event", a.substr(13)), a);
}

volatile uint64_t& Counter(const VSharedMemory& region) {
  return *reinterpret_cast<volatile uint64_t*>(region.BeginData());
}

// Runs `body` in a child process (fork), which then leaves without running destructors: the
// handles it inherited stay open unless the body closes them. A child left waiting by a failed
// test ends after a minute.
pid_t Spawn(const std::function<void()>& body) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::alarm(60);
    body();
    ::_exit(0);
  }
  return pid;
}

// Waits for the child (killing it first with `kill`) and returns its exit status.
int Reap(pid_t pid, bool kill = false) {
  if (kill) ::kill(pid, SIGKILL);
  int status = -1;
  ::waitpid(pid, &status, 0);
  return status;
}

// Each test uses names of its own and checks that it leaves nothing behind in /dev/shm.
class NamedObjectsTest : public ::testing::Test {
 protected:
  static constexpr int kSize = 4096;

  void TearDown() override {
    for (const auto& entry : fs::directory_iterator("/dev/shm")) {
      EXPECT_EQ(entry.path().string().find(name_), std::string::npos) << entry.path();
    }
  }

  const std::string name_ = "vantu-test-" + std::to_string(::getpid()) + "-" +
                            ::testing::UnitTest::GetInstance()->current_test_info()->name();
};

TEST_F(NamedObjectsTest, ProcessesShareObjectsAsTheyComeAndGoAndOtherUsersMayNotOpenThem) {
  VNamedEvent ready(name_ + ".ready"), leave(name_ + ".leave");
  const pid_t creator = Spawn([&] {
    ::umask(0);  // the objects are made 0600 all the same
    VNamedMutex mutex(name_);
    VNamedEvent event(name_);
    VSharedMemory region(name_.c_str(), kSize);
    mutex.Lock();
    Counter(region) = 3;
    ready.Set();
    leave.Wait();  // then leaves holding the lock: its last handle lets go of it
  });
  ready.Wait();
  for (const char* kind : {"mutex", "event", "memory"}) {
    EXPECT_EQ(fs::status(std::string("/dev/shm/vantu.") + kind + "." + name_).permissions(),
              fs::perms::owner_read | fs::perms::owner_write)
        << kind;
  }
  if (::geteuid() == 0) {  // root can act as another user, who may not open them
    ASSERT_EQ(::seteuid(65534), 0);
    EXPECT_THROW(VNamedMutex{name_}, VantuRuntimeException);
    EXPECT_THROW(VNamedEvent{name_}, VantuRuntimeException);
    EXPECT_THROW(VSharedMemory(name_.c_str(), kSize).BeginData(), int);
    ASSERT_EQ(::seteuid(0), 0);
  }
  VNamedMutex mutex(name_);
  VNamedEvent event(name_);
  VSharedMemory region(name_.c_str(), kSize);
  EXPECT_EQ(Counter(region), 3u);
  leave.Set();
  EXPECT_EQ(Reap(creator), 0);
  { VAutoNamedMutexLock lock(&mutex); }
  // Two sets before anyone waits count once; waiters killed while they wait take no set.
  event.Set();
  event.Set();
  auto waits = [&] {
    for (;;) {
      event.Wait();
      Counter(region) = Counter(region) + 1;
    }
  };
  const pid_t waiter = Spawn(waits);
  EXPECT_TRUE(ReachesAndStays(Counter(region), 4)) << "two sets let two waits through";
  const pid_t doomed = Spawn(waits);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  Reap(doomed, true);
  event.Set();
  EXPECT_TRUE(ReachesAndStays(Counter(region), 5));
  Reap(waiter, true);
  // Four processes count under the mutex; one more counts in a ping-pong of events.
  std::vector<pid_t> counters;
  for (int i = 0; i < 4; ++i) {
    counters.push_back(Spawn([&] {
      for (int j = 0; j < 10000; ++j) {
        VAutoNamedMutexLock lock(&mutex);
        Counter(region) = Counter(region) + 1;
      }
    }));
  }
  for (const pid_t counter : counters) EXPECT_EQ(Reap(counter), 0);
  EXPECT_EQ(Counter(region), 40005u);
  VNamedEvent ping(name_ + ".ping"), pong(name_ + ".pong");
  const pid_t partner = Spawn([&] {
    for (int i = 0; i < 10000; ++i) {
      ping.Wait();
      Counter(region) = Counter(region) + 1;
      pong.Set();
    }
  });
  int mismatches = 0;
  for (uint64_t i = 40006; i <= 50005; ++i) {
    ping.Set();
    pong.Wait();
    mismatches += Counter(region) != i;
  }
  EXPECT_EQ(mismatches, 0);
  EXPECT_EQ(Reap(partner), 0);
}

// Files planted under an object's name before it is opened: another user's (whose lock must not
// hold the opener up), or this user's with another mode or size. Each is refused at once.
TEST_F(NamedObjectsTest, AFilePlantedByAnotherUserOrWithAnotherModeOrSizeIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
  struct Plant {
    uid_t owner;
    mode_t mode;
    off_t size;
    bool locked;
  } const plants[] = {
      {65534, 0666, 0, true}, {65534, 0600, 0, false}, {0, 0644, 0, false}, {0, 0600, 5, false}};
  const std::pair<std::string, std::function<void()>> opens[] = {
      {"mutex", [&] { EXPECT_THROW(VNamedMutex{name_}, VantuRuntimeException); }},
      {"event",
       [&] {
         EXPECT_THROW(VNamedEvent{name_}, VantuRuntimeException);
         EXPECT_EQ(vantu_NamedEventCreate(name_.c_str()), nullptr);
       }},
      {"memory", [&] { EXPECT_THROW(VSharedMemory(name_.c_str(), kSize).BeginData(), int); }}};
  VNamedEvent ready(name_ + ".ready");
  ::alarm(120);  // an opener that waits for the planted lock ends the test
  for (const Plant& plant : plants) {
    for (const auto& [kind, open] : opens) {
      const std::string path = "/dev/shm/vantu." + kind + "." + name_;
      SCOPED_TRACE(path + " of " + std::to_string(plant.owner) + ", mode " +
                   std::to_string(plant.mode) + ", size " + std::to_string(plant.size));
      const pid_t planter = Spawn([&] {
        const int fd = ::setresgid(plant.owner, plant.owner, plant.owner) == 0 &&
                               ::setresuid(plant.owner, plant.owner, plant.owner) == 0
                           ? ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, plant.mode)
                           : -1;
        if (fd < 0 || ::fchmod(fd, plant.mode) != 0 || ::ftruncate(fd, plant.size) != 0 ||
            (plant.locked && ::flock(fd, LOCK_EX) != 0)) {
          ::_exit(1);
        }
        ready.Set();
        ::pause();
      });
      ready.Wait();
      open();
      Reap(planter, true);
      EXPECT_EQ(::unlink(path.c_str()), 0);
    }
  }
  ::alarm(0);
}

TEST_F(NamedObjectsTest, KilledHoldersLeaveObjectsToRebuildOrALockToTakeOver) {
  VNamedEvent ready(name_ + ".ready");
  auto holder = [&] {  // locks twice, adds 5 and waits to be killed
    VNamedMutex mutex(name_);
    VSharedMemory region(name_.c_str(), kSize);
    mutex.Lock();
    mutex.Lock();
    Counter(region) = Counter(region) + 5;
    ready.Set();
    ::pause();
  };
  const pid_t only = Spawn(holder);
  ready.Wait();
  Reap(only, true);
  EXPECT_TRUE(fs::exists("/dev/shm/vantu.memory." + name_));
  // Left by a killed process that was the only holder: rebuilt as new, with any size.
  VSharedMemory region(name_.c_str(), kSize * 2);
  EXPECT_EQ(Counter(region), 0u);
  VNamedMutex mutex(name_);
  const pid_t second = Spawn(holder);
  EXPECT_TRUE(ReachesAndStays(Counter(region), 5));  // rebuilt unlocked
  Reap(second, true);
  // Killed while it held the lock: the next Lock takes it over at once, the counter intact.
  const auto start = Clock::now();
  mutex.Lock();
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(Counter(region), 5u);
  mutex.Lock();  // recursive here too, and once unlocked twice it is free for others
  mutex.Unlock();
  mutex.Unlock();
  EXPECT_EQ(Reap(Spawn([&] { VAutoNamedMutexLock lock(&mutex); })), 0);
}

TEST_F(NamedObjectsTest, AForkedChildAndALastHandleLeaveWhatOthersHold) {
  auto region = std::make_unique<VSharedMemory>(name_.c_str(), kSize);
  EXPECT_EQ(Reap(Spawn([&] { region.reset(); })), 0);  // the child's handle: the name stays
  EXPECT_TRUE(fs::exists("/dev/shm/vantu.memory." + name_));
  // The last handle of this process gives back the levels its thread still holds.
  auto mutex = std::make_unique<VNamedMutex>(name_);
  VNamedEvent go(name_ + ".go");
  const pid_t other = Spawn([&] {
    go.Wait();
    mutex->Lock();
    Counter(*region) = 9;
    mutex.reset();  // the last handle: it goes with the lock
  });
  mutex->Lock();
  mutex->Lock();
  std::thread([&] { EXPECT_THROW(mutex->Unlock(), VantuRuntimeException); }).join();
  mutex.reset();
  go.Set();
  EXPECT_TRUE(ReachesAndStays(Counter(*region), 9));
  EXPECT_EQ(Reap(other), 0);
}

// Between threads of one process; also run under ThreadSanitizer.
class NamedObjectThreadsTest : public NamedObjectsTest {};

// Two threads lock and close one mutex while a third keeps making a large region, which in turn
// holds up the others' opens and closes: a close still pending when an open of the same name
// comes must finish first, or the descriptor leaks and the name stays.
TEST_F(NamedObjectThreadsTest, OpeningAndClosingOneNameFromTwoThreadsLeavesNothingOpen) {
  const auto descriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto before = descriptors();
  std::atomic<bool> stop{false};
  auto lockAndClose = [&] {
    while (!stop) {
      VNamedMutex mutex(name_);
      VAutoNamedMutexLock lock(&mutex);
      std::this_thread::sleep_for(std::chrono::microseconds(100));  // a while at work
    }
  };
  std::thread first(lockAndClose), second(lockAndClose);
  for (int i = 0; i < 50; ++i) VSharedMemory((name_ + ".large").c_str(), 16 << 20);
  stop = true;
  first.join();
  second.join();
  EXPECT_EQ(descriptors(), before);
}

// A lock held elsewhere, here through a descriptor of this process's own: the opener waits a
// bounded time, then throws, and opens of other names go on meanwhile.
TEST_F(NamedObjectThreadsTest, AnOpenWaitsBoundedlyForALockAndHoldsUpNoOtherOpen) {
  const std::string path = "/dev/shm/vantu.mutex." + name_;
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  ::alarm(60);
  const auto start = Clock::now();
  std::thread waiter([&] { EXPECT_THROW(VNamedMutex{name_}, VantuRuntimeException); });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the waiter is in its wait
  VNamedMutex other(name_ + ".other");                          // opens while the waiter waits
  { VAutoNamedMutexLock lock(&other); }
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  // A child forked meanwhile waits for the name itself, not for the waiter, which it lacks.
  const pid_t child = Spawn([&] {
    try {
      VNamedMutex mutex(name_);
      ::_exit(1);
    } catch (const VantuRuntimeException&) {
      ::_exit(0);
    }
  });
  waiter.join();
  EXPECT_EQ(Reap(child), 0);
  ::alarm(0);
  EXPECT_GT(Clock::now() - start, std::chrono::seconds(5));
  ::close(fd);
  EXPECT_EQ(::unlink(path.c_str()), 0);
}

TEST_F(NamedObjectsTest, BadNamesAndSizesGiveClearResults) {
  auto throwsMinusOne = [](auto call) {
    try {
      call();
    } catch (int value) {
      return value == -1;
    }
    return false;
  };
  VNamedMutex noMutex("");  // no name: a mutex without a platform object
  EXPECT_TRUE(throwsMinusOne([&] { noMutex.Lock(); }));
  EXPECT_TRUE(throwsMinusOne([&] { noMutex.Unlock(); }));
  // Odd names work, and two handles of one name share the object.
  for (const std::string& odd : {name_ + "/a/../b", name_ + std::string(300, 'x'), name_ + "\t%"}) {
    VSharedMemory first(odd.c_str(), 10);
    first.BeginData()[9] = 'z';
    EXPECT_EQ(VSharedMemory(odd.c_str(), 10).BeginData()[9], 'z');
    VNamedMutex mutex(odd);
    VAutoNamedMutexLock lock(&mutex);
  }
  // Sizes below 1 or above the region's, a null or empty name: no region.
  VSharedMemory region(name_.c_str(), 100);
  EXPECT_EQ(VSharedMemory(name_.c_str(), 50).EndData() - region.BeginData(), 50);
  for (const auto& [name, size] : std::vector<std::pair<const char*, int>>{{name_.c_str(), 0},
                                                                           {name_.c_str(), -1},
                                                                           {name_.c_str(), INT_MIN},
                                                                           {name_.c_str(), 101},
                                                                           {nullptr, 100},
                                                                           {"", 100}}) {
    const VSharedMemory none(name, size);
    EXPECT_TRUE(throwsMinusOne([&] { none.BeginData(); })) << size;
    EXPECT_TRUE(throwsMinusOne([&] { none.EndData(); })) << size;
  }
  // More than the machine holds: refused at once, not at use.
  EXPECT_THROW(vantu::platform::SharedRegion(name_ + ".huge", std::size_t(1) << 50),
               std::system_error);
}

}  // namespace
