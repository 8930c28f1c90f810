// Mutexes, events, threads and the notification center within one process; the flat functions;
// the virtual slots of these classes; named mutexes, named events and shared memory between real
// processes (this very program, started again as a helper: see ChildMain), threads and a fork.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <vantu/vantu.h>
#include <vantu/vantu.hpp>

#include "platform/NamedObjects.h"
#include "support/VTable.h"

extern "C" void vantu_test_set_event_from_c(uintptr_t event);

namespace {

namespace fs = std::filesystem;
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
  // Handles destroyed while their function waits, or at once, before it may even have begun.
  record.go.Reset();
  std::optional<VThread> waiting(std::in_place);
  waiting->SetData(reinterpret_cast<uintptr_t>(&record));
  waiting->Start(&Record::WaitThenCount);
  waiting.reset();
  for (int i = 0; i < 100; ++i) {
    VThread other;
    other.SetData(reinterpret_cast<uintptr_t>(&record));
    other.Start(&Record::Count);
  }
  record.go.Set();
  EXPECT_TRUE(ReachesAndStays(record.calls, 103));
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
  EXPECT_EQ(&vantu_NamedEventDestroy, &vantu_EventDestroy);  // one function destroys them all
  EXPECT_EQ(&vantu_SharedMemoryDestroy, &vantu_EventDestroy);
  EXPECT_EQ(&vantu_ThreadDestroy, &vantu_EventDestroy);
  vantu_EventSet(nullptr);
  vantu_EventReset(nullptr);
  vantu_EventWait(nullptr);
  vantu_EventDestroy(nullptr);
  vantu_ThreadStart(nullptr, nullptr);
  vantu_ThreadSetData(nullptr, 1);
  EXPECT_EQ(vantu_ThreadGetData(nullptr), 0u);
  EXPECT_EQ(vantu_SharedMemoryBeginData(nullptr), nullptr);
  EXPECT_EQ(vantu_SharedMemoryEndData(nullptr), nullptr);
  thread = vantu_ThreadCreate();
  vantu_ThreadStart(thread, nullptr);  // a thread without a function runs nothing
  vantu_ThreadDestroy(thread);
  // A region that was not made: a handle all the same, and int -1 at use.
  for (void* none : {vantu_SharedMemoryCreate("", 100), vantu_SharedMemoryCreate(nullptr, 100),
                     vantu_SharedMemoryCreate(name.c_str(), 0)}) {
    EXPECT_THROW(vantu_SharedMemoryBeginData(none), int);
    EXPECT_THROW(vantu_SharedMemoryEndData(none), int);
    vantu_SharedMemoryDestroy(none);
  }
  for (void* none : {vantu_NamedEventCreate(nullptr), vantu_NamedEventCreate("")}) {
    vantu_NamedEventSet(none);
    vantu_NamedEventWait(none);  // no event: returns at once
    vantu_NamedEventDestroy(none);
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
  // The notification center adds two slots; the thread's Clone keeps the root's.
  EXPECT_EQ(
      (std::vector<std::ptrdiff_t>{
          TableEntry(&VNotificationCenter::PostNotification),
          TableEntry(&VNotificationCenter::HasObservers), AppendedEntries<VNotificationCenter>()[0],
          TableEntry(static_cast<void (VThread::*)(const VBaseObject&)>(&VThread::Clone))}),
      (std::vector<std::ptrdiff_t>{EntryOf(3, 1), EntryOf(4, 1), 6, EntryOf(2, 1)}));
  EXPECT_EQ((AppendedEntries<VAutoMutexLock, VAutoNamedMutexLock, VObserver, VNotification>()),
            std::vector<std::ptrdiff_t>(4, 2));  // only their destructor
  EXPECT_EQ(TableEntry(&VWorker::run), EntryOf(1, 0));
  EXPECT_EQ(TableEntry(&Extended<VWorker>::Appended), 3);
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
  EXPECT_EQ(a.compare(0, 174, b, 0, 174), 0);
  EXPECT_NE(a, b);
}

volatile uint64_t& Counter(const VSharedMemory& region) {
  return *reinterpret_cast<volatile uint64_t*>(region.BeginData());
}

// The helper process: opens the named mutex, the named event and the region of `size` bytes
// called `name`, says "ok", then answers each command line once it is done:
//   lock | wait  "ok"
//   count <n>    n times: lock, counter + 1 (a plain read and write), unlock; answers the counter
//   pong <n>     n times: wait for "<name>.ping", counter + 1, set "<name>.pong"; the counter
//   exit         leaves, destroying everything
int ChildMain(const std::string& name, int size) {
  ::alarm(120);  // a child left waiting by a failed test ends
  VNamedMutex mutex(name);
  VNamedEvent event(name), ping(name + ".ping"), pong(name + ".pong");
  const VSharedMemory region(name.c_str(), size);
  std::cout << (region.BeginData() != nullptr ? "ok" : "no region") << std::endl;
  for (std::string line; std::getline(std::cin, line) && line != "exit";) {
    std::istringstream in(line);
    std::string command;
    long n = 0;
    in >> command >> n;
    if (command == "lock") mutex.Lock();
    if (command == "wait") event.Wait();
    for (long i = 0; command == "count" && i < n; ++i) {
      VAutoNamedMutexLock lock(&mutex);
      Counter(region) = Counter(region) + 1;
    }
    for (long i = 0; command == "pong" && i < n; ++i) {
      ping.Wait();
      Counter(region) = Counter(region) + 1;
      pong.Set();
    }
    std::cout << (n > 0 ? std::to_string(Counter(region)) : "ok") << std::endl;
  }
  return 0;
}

// A helper process (fork + exec), driven one line at a time.
class Child {
 public:
  Child(const std::string& name, int size) {
    ::signal(SIGPIPE, SIG_IGN);  // a child that has gone makes Send fail, not end the test
    const std::string program = fs::read_symlink("/proc/self/exe"), sizeText = std::to_string(size);
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
    if ((pid_ = ::fork()) == 0) {
      ::dup2(in[0], 0);
      ::dup2(out[1], 1);
      ::execl(program.c_str(), "child", "--sync-child", name.c_str(), sizeText.c_str(),
              static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    to_ = in[1];
    from_ = out[0];
  }
  ~Child() {
    if (pid_ > 0) Exit();
    ::close(to_);
    ::close(from_);
  }

  void Send(const std::string& command) {
    (void)!::write(to_, (command + "\n").data(), command.size() + 1);
  }
  // The next answer line; "(none)" when none comes within `milliseconds`.
  std::string Answer(int milliseconds = 20000) {
    std::string answer;
    pollfd ready{from_, POLLIN, 0};
    for (char c; ::poll(&ready, 1, milliseconds) == 1 && ::read(from_, &c, 1) == 1; answer += c) {
      if (c == '\n') return answer;
    }
    return "(none)";
  }
  std::string Ask(const std::string& command, int milliseconds = 20000) {
    Send(command);
    return Answer(milliseconds);
  }
  // Sends "exit" (after SIGKILL with `kill`); returns the exit status once the child has gone.
  int Exit(bool kill = false) {
    if (kill) ::kill(pid_, SIGKILL);
    Send("exit");
    int status = 0;
    ::waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int to_ = -1;
  int from_ = -1;
};

// Each test uses names of its own and checks that it leaves nothing behind in /dev/shm.
class NamedObjectsTest : public ::testing::Test {
 protected:
  static constexpr int kSize = 4096;

  void SetUp() override {
    static int serial = 0;
    name_ = "vantu-test-" + std::to_string(::getpid()) + "-" + std::to_string(++serial);
  }
  void TearDown() override {
    for (const auto& entry : fs::directory_iterator("/dev/shm")) {
      EXPECT_EQ(entry.path().string().find(name_), std::string::npos) << entry.path();
    }
  }
  // A helper process that has opened the mutex, the event and the region of this test.
  std::unique_ptr<Child> Opened(int size = kSize) {
    auto child = std::make_unique<Child>(name_, size);
    EXPECT_EQ(child->Answer(), "ok");
    return child;
  }

  std::string name_;
};

TEST_F(NamedObjectsTest, ProcessesShareMutexEventAndRegionAsTheyComeAndGo) {
  auto creator = Opened();
  EXPECT_EQ(creator->Ask("count 3"), "3");
  EXPECT_EQ(creator->Ask("lock"), "ok");
  VNamedMutex mutex(name_);
  VNamedEvent event(name_);
  VSharedMemory region(name_.c_str(), kSize);
  EXPECT_EQ(Counter(region), 3u);
  Counter(region) = 10;
  EXPECT_EQ(creator->Exit(), 0);  // leaves holding the lock: its last handle lets go of it
  { VAutoNamedMutexLock lock(&mutex); }
  event.Set();
  event.Set();
  auto waiter = Opened();
  EXPECT_EQ(waiter->Ask("wait"), "ok");  // the set made before it came; two sets count once
  EXPECT_EQ(waiter->Ask("wait", 200), "(none)") << "two sets let two waits through";
  event.Set();
  EXPECT_EQ(waiter->Answer(), "ok");
  // Waiters killed while they wait: later sets still reach later waiters.
  for (int round = 0; round < 3; ++round) {
    auto doomed = Opened();
    EXPECT_EQ(doomed->Ask("wait", 50), "(none)");
    doomed->Exit(true);
    waiter->Send("wait");
    event.Set();
    EXPECT_EQ(waiter->Answer(), "ok") << "round " << round;
  }
  // Four processes count under the mutex, then one more through a ping-pong of events.
  std::vector<std::unique_ptr<Child>> counters;
  for (int i = 0; i < 4; ++i) counters.push_back(Opened());
  for (auto& counter : counters) counter->Send("count 10000");
  for (auto& counter : counters) EXPECT_NE(counter->Answer(), "(none)");
  EXPECT_EQ(Counter(region), 40010u);
  VNamedEvent ping(name_ + ".ping"), pong(name_ + ".pong");
  waiter->Send("pong 10000");
  int mismatches = 0;
  for (uint64_t i = 40011; i <= 50010; ++i) {
    ping.Set();
    pong.Wait();
    mismatches += Counter(region) != i;
  }
  EXPECT_EQ(mismatches, 0);
  EXPECT_EQ(waiter->Answer(), "50010");
}

TEST_F(NamedObjectsTest, KilledHoldersLeaveObjectsToRebuildOrALockToTakeOver) {
  auto only = Opened();
  EXPECT_EQ(only->Ask("count 3"), "3");
  EXPECT_EQ(only->Ask("lock"), "ok");
  only->Exit(true);
  EXPECT_TRUE(fs::exists("/dev/shm/vantu.memory." + name_));
  // Left by a killed process that was the only holder: rebuilt as new, with any size.
  VSharedMemory region(name_.c_str(), kSize * 2);
  EXPECT_EQ(Counter(region), 0u);
  VNamedMutex mutex(name_);
  auto holder = Opened(kSize * 2);
  EXPECT_EQ(holder->Ask("count 5"), "5");  // rebuilt unlocked
  EXPECT_EQ(holder->Ask("lock"), "ok");
  EXPECT_EQ(holder->Ask("lock"), "ok");  // recursive
  holder->Exit(true);
  // Killed while it held the lock: the next Lock takes it over at once, the counter intact.
  const auto start = std::chrono::steady_clock::now();
  mutex.Lock();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(Counter(region), 5u);
  mutex.Lock();  // recursive here too, and once unlocked twice it is free for others
  mutex.Unlock();
  mutex.Unlock();
  EXPECT_EQ(Opened(kSize * 2)->Ask("count 1"), "6");
}

TEST_F(NamedObjectsTest, AForkedChildAndALastHandleLeaveWhatOthersHold) {
  auto region = std::make_unique<VSharedMemory>(name_.c_str(), kSize);
  Counter(*region) = 7;
  const pid_t child = ::fork();
  if (child == 0) {
    region.reset();  // this child's handle: the name stays
    ::_exit(0);
  }
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  auto other = Opened();
  EXPECT_EQ(other->Ask("count 1"), "8");
  // The last handle of this process gives back the levels its thread still holds.
  auto mutex = std::make_unique<VNamedMutex>(name_);
  mutex->Lock();
  mutex->Lock();
  std::thread([&] { EXPECT_THROW(mutex->Unlock(), VantuRuntimeException); }).join();
  mutex.reset();
  EXPECT_EQ(other->Ask("count 1"), "9");
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

TEST_F(NamedObjectsTest, ObjectsAnotherUserMayNotOpenGiveClearResults) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
  const mode_t mask = ::umask(022);  // the helper's objects: readable, not writable, by others
  auto owner = Opened();
  ::umask(mask);
  ASSERT_EQ(::seteuid(65534), 0);
  EXPECT_THROW(VNamedMutex{name_}, VantuRuntimeException);
  EXPECT_THROW(VNamedEvent{name_}, VantuRuntimeException);
  const VSharedMemory region(name_.c_str(), kSize);
  EXPECT_THROW(region.BeginData(), int);
  ASSERT_EQ(::seteuid(0), 0);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "--sync-child") return ChildMain(argv[2], atoi(argv[3]));
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
