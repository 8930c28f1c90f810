// Named mutexes, named events and shared memory between real processes.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <vantu/VAutoNamedMutexLock.h>
#include <vantu/VException.h>
#include <vantu/VNamedEvent.h>
#include <vantu/VNamedMutex.h>
#include <vantu/VSharedMemory.h>

#include "platform/NamedObjects.h"
#include "sync/ChildProcess.h"

namespace {

using vantu::test::ChildProcess;
namespace fs = std::filesystem;

constexpr int kSize = 4096;

TEST(NamedObjectNameTest, EscapesOddBytesAndHashesLongNames) {
  using vantu::platform::NamedObjectSystemName;
  EXPECT_EQ(NamedObjectSystemName("mutex", "Job-1_a.b"), "/vantu.mutex.Job-1_a.b");
  EXPECT_EQ(NamedObjectSystemName("event", ""), "/vantu.event.");
  EXPECT_EQ(NamedObjectSystemName("memory", "a/b %\xC3\xBC"), "/vantu.memory.a%2Fb%20%25%C3%BC");
  // 200 escaped bytes stay whole; longer names keep 160 bytes, a dot and 16 digits of a hash.
  EXPECT_EQ(NamedObjectSystemName("event", std::string(200, 'x')),
            "/vantu.event." + std::string(200, 'x'));
  const std::string a = NamedObjectSystemName("event", std::string(300, 'x'));
  const std::string b = NamedObjectSystemName("event", std::string(299, 'x') + "y");
  const std::string c = NamedObjectSystemName("event", std::string(67, '/'));  // 201 escaped
  for (const std::string& name : {a, b, c}) {
    EXPECT_EQ(name.size(), std::string("/vantu.event.").size() + 160 + 1 + 16) << name;
    EXPECT_EQ(name.find_first_not_of("/.abcdefghijklmnopqrstuvwxyzABCDEF0123456789%"),
              std::string::npos);
  }
  EXPECT_NE(a, b);
  EXPECT_EQ(a.compare(0, 173, b, 0, 173), 0);
}

// Each test uses names of its own and checks that it leaves nothing behind: no object in
// /dev/shm, no file in the temporary folder, no System V object.
class NamedObjectsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    static int serial = 0;
    name_ = "vantu-test-" + std::to_string(::getpid()) + "-" + std::to_string(++serial);
    systemV_ = SystemVObjects();
  }
  void TearDown() override {
    const char* temp = std::getenv("TMPDIR");
    for (const fs::path& folder : {fs::path("/dev/shm"), fs::path(temp && *temp ? temp : "/tmp")}) {
      for (const auto& entry : fs::directory_iterator(folder)) {
        EXPECT_EQ(entry.path().filename().string().find(name_), std::string::npos)
            << "left behind: " << entry.path();
      }
    }
    EXPECT_EQ(SystemVObjects(), systemV_);
  }

  static int SystemVObjects() {
    int lines = 0;
    for (const char* table : {"/proc/sysvipc/sem", "/proc/sysvipc/shm", "/proc/sysvipc/msg"}) {
      std::ifstream in(table);
      for (std::string line; std::getline(in, line);) ++lines;
    }
    return lines;
  }

  static volatile uint64_t& Counter(VSharedMemory& region) {
    return *reinterpret_cast<volatile uint64_t*>(region.BeginData());
  }
  static std::string Text(VSharedMemory& region) { return region.BeginData() + 64; }

  std::string name_;
  int systemV_ = 0;
};

TEST_F(NamedObjectsTest, OthersKeepSharingAfterTheCreatorLeavesAndANewcomerJoins) {
  ChildProcess creator;
  ASSERT_EQ(creator.Ask("open " + name_ + " " + std::to_string(kSize)), "ok");
  ASSERT_EQ(creator.Ask("write from-creator"), "ok");
  ASSERT_EQ(creator.Ask("lock"), "ok");
  VNamedMutex mutex(name_);
  VNamedEvent event(name_);
  VSharedMemory region(name_.c_str(), kSize);
  EXPECT_EQ(Text(region), "from-creator");
  std::strcpy(region.BeginData() + 64, "from-second");
  EXPECT_EQ(creator.Exit(), 0);  // exits holding the lock: it passes on
  { VAutoNamedMutexLock lock(&mutex); }
  event.Set();
  ChildProcess newcomer;
  ASSERT_EQ(newcomer.Ask("open " + name_ + " " + std::to_string(kSize)), "ok");
  EXPECT_EQ(newcomer.Ask("read"), "from-second");
  EXPECT_EQ(newcomer.Ask("wait"), "ok");  // the set made before it came
  EXPECT_EQ(newcomer.Ask("lock"), "ok");
  EXPECT_EQ(newcomer.Ask("write from-newcomer"), "ok");
  EXPECT_EQ(newcomer.Ask("unlock"), "ok");
  EXPECT_EQ(Text(region), "from-newcomer");
  EXPECT_EQ(newcomer.Exit(), 0);
}

TEST_F(NamedObjectsTest, AKilledHolderPassesTheLockOnWithTheCounterIntact) {
  VNamedMutex mutex(name_);
  VSharedMemory region(name_.c_str(), kSize);
  ChildProcess holder;
  ASSERT_EQ(holder.Ask("open " + name_ + " " + std::to_string(kSize)), "ok");
  ASSERT_EQ(holder.Ask("count 5"), "ok");
  ASSERT_EQ(holder.Ask("lock"), "ok");
  ASSERT_EQ(holder.Ask("lock"), "ok");  // recursive
  holder.Kill();
  const auto start = std::chrono::steady_clock::now();
  mutex.Lock();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(Counter(region), 5u);
  mutex.Lock();  // recursive here too, and once unlocked twice it is free for others
  mutex.Unlock();
  mutex.Unlock();
  ChildProcess next;
  ASSERT_EQ(next.Ask("open " + name_ + " " + std::to_string(kSize)), "ok");
  EXPECT_EQ(next.Ask("count 1"), "ok");
  EXPECT_EQ(Counter(region), 6u);
  EXPECT_EQ(next.Exit(), 0);
}

TEST_F(NamedObjectsTest, FourProcessesCountExactly) {
  VSharedMemory region(name_.c_str(), kSize);
  std::vector<std::unique_ptr<ChildProcess>> counters;
  for (int i = 0; i < 4; ++i) {
    counters.push_back(std::make_unique<ChildProcess>());
    ASSERT_EQ(counters.back()->Ask("open " + name_ + " " + std::to_string(kSize)), "ok");
  }
  for (auto& counter : counters) counter->Send("count 10000");
  for (auto& counter : counters) EXPECT_EQ(counter->Answer(), "ok");
  EXPECT_EQ(Counter(region), 40000u);
  for (auto& counter : counters) EXPECT_EQ(counter->Exit(), 0);
}

TEST_F(NamedObjectsTest, EventPingPongLosesAndDoublesNothing) {
  VSharedMemory region(name_.c_str(), kSize);
  VNamedEvent ping(name_ + ".ping");
  VNamedEvent pong(name_ + ".pong");
  ChildProcess partner;
  ASSERT_EQ(partner.Ask("open " + name_ + " " + std::to_string(kSize)), "ok");
  partner.Send("pong 10000");
  int mismatches = 0;
  for (uint64_t i = 1; i <= 10000; ++i) {
    ping.Set();
    pong.Wait();
    if (Counter(region) != i) ++mismatches;
  }
  EXPECT_EQ(mismatches, 0);
  EXPECT_EQ(partner.Answer(), "ok");
  EXPECT_EQ(partner.Exit(), 0);
}

TEST_F(NamedObjectsTest, EventDoesNotCountSetsAndSurvivesKilledWaiters) {
  VNamedEvent event(name_);
  event.Set();
  event.Set();
  ChildProcess waiter;
  ASSERT_EQ(waiter.Ask("open " + name_ + " " + std::to_string(kSize)), "ok");
  EXPECT_EQ(waiter.Ask("wait"), "ok");
  waiter.Send("wait");
  std::string answer;
  EXPECT_FALSE(waiter.AnswerWithin(200, answer)) << "two sets let two waits through";
  event.Set();
  EXPECT_TRUE(waiter.AnswerWithin(10000, answer));
  // Waiters killed while they wait: later sets still reach later waiters.
  for (int round = 0; round < 3; ++round) {
    ChildProcess doomed;
    ASSERT_EQ(doomed.Ask("open " + name_ + " " + std::to_string(kSize)), "ok");
    doomed.Send("wait");
    EXPECT_FALSE(doomed.AnswerWithin(50, answer));
    doomed.Kill();
    waiter.Send("wait");
    event.Set();
    EXPECT_TRUE(waiter.AnswerWithin(10000, answer)) << "round " << round;
  }
  EXPECT_EQ(waiter.Exit(), 0);
}

TEST_F(NamedObjectsTest, ObjectsLeftByKilledProcessesAreRebuiltAsNew) {
  {
    ChildProcess only;
    ASSERT_EQ(only.Ask("open " + name_ + " " + std::to_string(kSize)), "ok");
    ASSERT_EQ(only.Ask("count 3"), "ok");
    ASSERT_EQ(only.Ask("write stale"), "ok");
    ASSERT_EQ(only.Ask("lock"), "ok");
    ASSERT_EQ(only.Ask("set"), "ok");
    only.Kill();
  }
  EXPECT_TRUE(fs::exists("/dev/shm/vantu.memory." + name_));
  VSharedMemory region(name_.c_str(), kSize / 2);  // a new region may have any size
  EXPECT_EQ(Counter(region), 0u);
  EXPECT_EQ(Text(region), "");
  VNamedMutex mutex(name_);
  mutex.Lock();  // rebuilt unlocked: does not wait for the dead holder
  mutex.Unlock();
  VNamedEvent event(name_);
  ChildProcess waiter;
  ASSERT_EQ(waiter.Ask("open " + name_ + " " + std::to_string(kSize / 2)), "ok");
  waiter.Send("wait");
  std::string answer;
  EXPECT_FALSE(waiter.AnswerWithin(200, answer)) << "the event kept its old state";
  event.Set();
  EXPECT_TRUE(waiter.AnswerWithin(10000, answer));
  EXPECT_EQ(waiter.Exit(), 0);
}

TEST_F(NamedObjectsTest, AForkedChildThatLeavesDoesNotRemoveTheName) {
  auto region = std::make_unique<VSharedMemory>(name_.c_str(), kSize);
  std::strcpy(region->BeginData() + 64, "parent");
  const pid_t child = ::fork();
  if (child == 0) {
    region.reset();
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ChildProcess reader;
  ASSERT_EQ(reader.Ask("open " + name_ + " " + std::to_string(kSize)), "ok");
  EXPECT_EQ(reader.Ask("read"), "parent");
  EXPECT_EQ(reader.Exit(), 0);
}

TEST_F(NamedObjectsTest, TheLastHandleReleasesALockItsThreadStillHolds) {
  ChildProcess other;  // holds the mutex open, so it outlives this process's handle
  ASSERT_EQ(other.Ask("open " + name_ + " " + std::to_string(kSize)), "ok");
  auto mutex = std::make_unique<VNamedMutex>(name_);
  mutex->Lock();
  mutex->Lock();
  std::thread([&] { EXPECT_THROW(mutex->Unlock(), VantuRuntimeException); }).join();
  mutex.reset();
  other.Send("lock");
  std::string answer;
  EXPECT_TRUE(other.AnswerWithin(10000, answer));
  EXPECT_EQ(other.Exit(), 0);
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
  // No name: objects without a platform object.
  VNamedMutex noMutex("");
  EXPECT_TRUE(throwsMinusOne([&] { noMutex.Lock(); }));
  EXPECT_TRUE(throwsMinusOne([&] { noMutex.Unlock(); }));
  VNamedEvent noEvent("");
  noEvent.Set();
  noEvent.Wait();  // returns at once
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    VSharedMemory none(name, 100);
    EXPECT_TRUE(throwsMinusOne([&] { none.BeginData(); }));
    EXPECT_TRUE(throwsMinusOne([&] { none.EndData(); }));
  }
  // Odd names work, and two handles of one name share the object.
  for (const std::string& odd : {name_ + "/a/../b", name_ + std::string(300, 'x'), name_ + "\t%"}) {
    VSharedMemory first(odd.c_str(), 10);
    VSharedMemory second(odd.c_str(), 10);
    ASSERT_EQ(first.EndData() - first.BeginData(), 10);
    first.BeginData()[9] = 'z';
    EXPECT_EQ(second.BeginData()[9], 'z');
    VNamedMutex mutex(odd);
    VAutoNamedMutexLock lock(&mutex);
  }
  // Sizes: below 1, more than an existing region of the name, more than the machine holds.
  for (int size : {0, -1, INT_MIN}) {
    VSharedMemory none(name_.c_str(), size);
    EXPECT_TRUE(throwsMinusOne([&] { none.BeginData(); })) << size;
  }
  VSharedMemory small(name_.c_str(), 100);
  VSharedMemory smaller(name_.c_str(), 50);
  EXPECT_EQ(smaller.EndData() - smaller.BeginData(), 50);
  VSharedMemory larger(name_.c_str(), 101);
  EXPECT_TRUE(throwsMinusOne([&] { larger.BeginData(); }));
  EXPECT_THROW(vantu::platform::SharedRegion(name_ + ".huge", std::size_t(1) << 50),
               std::system_error);
  EXPECT_THROW(vantu::platform::SharedRegion(name_ + ".zero", 0), std::system_error);
}

}  // namespace
