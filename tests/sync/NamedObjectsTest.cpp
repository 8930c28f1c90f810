// Named mutexes, named events and shared memory between real processes.
#include <gtest/gtest.h>

#include <sys/stat.h>
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

// Each test uses names of its own and checks that it leaves nothing behind: no object in
// /dev/shm, no file in the temporary folder, no System V object.
class NamedObjectsTest : public ::testing::Test {
 protected:
  static constexpr int kSize = 4096;

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
  // A helper process that has opened the mutex, the event and the region of this test.
  std::unique_ptr<ChildProcess> Opened(int size = kSize) {
    auto child = std::make_unique<ChildProcess>();
    EXPECT_EQ(child->Ask("open " + name_ + " " + std::to_string(size)), "ok");
    return child;
  }
  static volatile uint64_t& Counter(VSharedMemory& region) {
    return *reinterpret_cast<volatile uint64_t*>(region.BeginData());
  }
  static std::string Text(VSharedMemory& region) { return region.BeginData() + 64; }

  std::string name_;
  int systemV_ = 0;
  std::string answer_;
};

TEST_F(NamedObjectsTest, OthersKeepSharingAfterTheCreatorLeavesAndANewcomerJoins) {
  auto creator = Opened();
  EXPECT_EQ(creator->Ask("write from-creator"), "ok");
  EXPECT_EQ(creator->Ask("lock"), "ok");
  VNamedMutex mutex(name_);
  VNamedEvent event(name_);
  VSharedMemory region(name_.c_str(), kSize);
  EXPECT_EQ(Text(region), "from-creator");
  std::strcpy(region.BeginData() + 64, "from-second");
  EXPECT_EQ(creator->Exit(), 0);  // leaves holding the lock: its last handle lets go of it
  { VAutoNamedMutexLock lock(&mutex); }
  event.Set();
  auto newcomer = Opened();
  EXPECT_EQ(newcomer->Ask("read"), "from-second");
  EXPECT_EQ(newcomer->Ask("wait"), "ok");  // the set made before it came
  EXPECT_EQ(newcomer->Ask("lock"), "ok");
  EXPECT_EQ(newcomer->Ask("write from-newcomer"), "ok");
  EXPECT_EQ(newcomer->Ask("unlock"), "ok");
  EXPECT_EQ(Text(region), "from-newcomer");
  EXPECT_EQ(newcomer->Exit(), 0);
}

TEST_F(NamedObjectsTest, AKilledHolderPassesTheLockOnWithTheCounterIntact) {
  VNamedMutex mutex(name_);
  VSharedMemory region(name_.c_str(), kSize);
  auto holder = Opened();
  EXPECT_EQ(holder->Ask("count 5"), "ok");
  EXPECT_EQ(holder->Ask("lock"), "ok");
  EXPECT_EQ(holder->Ask("lock"), "ok");  // recursive
  holder->Kill();
  const auto start = std::chrono::steady_clock::now();
  mutex.Lock();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(Counter(region), 5u);
  mutex.Lock();  // recursive here too, and once unlocked twice it is free for others
  mutex.Unlock();
  mutex.Unlock();
  EXPECT_EQ(Opened()->Ask("count 1"), "ok");
  EXPECT_EQ(Counter(region), 6u);
}

TEST_F(NamedObjectsTest, FourProcessesCountExactly) {
  VSharedMemory region(name_.c_str(), kSize);
  std::vector<std::unique_ptr<ChildProcess>> counters;
  for (int i = 0; i < 4; ++i) counters.push_back(Opened());
  for (auto& counter : counters) counter->Send("count 10000");
  for (auto& counter : counters) EXPECT_EQ(counter->Answer(), "ok");
  EXPECT_EQ(Counter(region), 40000u);
}

TEST_F(NamedObjectsTest, EventPingPongLosesAndDoublesNothing) {
  VSharedMemory region(name_.c_str(), kSize);
  VNamedEvent ping(name_ + ".ping");
  VNamedEvent pong(name_ + ".pong");
  auto partner = Opened();
  partner->Send("pong 10000");
  int mismatches = 0;
  for (uint64_t i = 1; i <= 10000; ++i) {
    ping.Set();
    pong.Wait();
    if (Counter(region) != i) ++mismatches;
  }
  EXPECT_EQ(mismatches, 0);
  EXPECT_EQ(partner->Answer(), "ok");
}

TEST_F(NamedObjectsTest, EventDoesNotCountSetsAndSurvivesKilledWaiters) {
  VNamedEvent event(name_);
  event.Set();
  event.Set();
  auto waiter = Opened();
  EXPECT_EQ(waiter->Ask("wait"), "ok");
  waiter->Send("wait");
  EXPECT_FALSE(waiter->AnswerWithin(200, answer_)) << "two sets let two waits through";
  event.Set();
  EXPECT_TRUE(waiter->AnswerWithin(10000, answer_));
  // Waiters killed while they wait: later sets still reach later waiters.
  for (int round = 0; round < 3; ++round) {
    auto doomed = Opened();
    doomed->Send("wait");
    EXPECT_FALSE(doomed->AnswerWithin(50, answer_));
    doomed->Kill();
    waiter->Send("wait");
    event.Set();
    EXPECT_TRUE(waiter->AnswerWithin(10000, answer_)) << "round " << round;
  }
}

TEST_F(NamedObjectsTest, ObjectsLeftByKilledProcessesAreRebuiltAsNew) {
  auto only = Opened();
  EXPECT_EQ(only->Ask("count 3"), "ok");
  EXPECT_EQ(only->Ask("write stale"), "ok");
  EXPECT_EQ(only->Ask("lock"), "ok");
  only->Kill();
  EXPECT_TRUE(fs::exists("/dev/shm/vantu.memory." + name_));
  VSharedMemory region(name_.c_str(), kSize * 2);  // a new region may have any size
  EXPECT_EQ(Counter(region), 0u);
  EXPECT_EQ(Text(region), "");
  VNamedMutex mutex(name_);
  EXPECT_EQ(Opened(kSize * 2)->Ask("count 1"), "ok");  // rebuilt unlocked
}

TEST_F(NamedObjectsTest, AForkedChildThatLeavesDoesNotRemoveTheName) {
  auto region = std::make_unique<VSharedMemory>(name_.c_str(), kSize);
  std::strcpy(region->BeginData() + 64, "parent");
  const pid_t child = ::fork();
  if (child == 0) {
    region.reset();
    ::_exit(0);
  }
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_EQ(Opened()->Ask("read"), "parent");
}

TEST_F(NamedObjectsTest, TheLastHandleReleasesALockItsThreadStillHolds) {
  auto other = Opened();  // holds the mutex open, so it outlives this process's handle
  auto mutex = std::make_unique<VNamedMutex>(name_);
  mutex->Lock();
  mutex->Lock();
  std::thread([&] { EXPECT_THROW(mutex->Unlock(), VantuRuntimeException); }).join();
  mutex.reset();
  other->Send("lock");
  EXPECT_TRUE(other->AnswerWithin(10000, answer_));
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
  VNamedMutex noMutex("");  // no name: objects without a platform object
  EXPECT_TRUE(throwsMinusOne([&] { noMutex.Lock(); }));
  EXPECT_TRUE(throwsMinusOne([&] { noMutex.Unlock(); }));
  VNamedEvent noEvent("");
  noEvent.Set();
  noEvent.Wait();  // returns at once
  // Odd names work, and two handles of one name share the object.
  for (const std::string& odd : {name_ + "/a/../b", name_ + std::string(300, 'x'), name_ + "\t%"}) {
    VSharedMemory first(odd.c_str(), 10);
    VSharedMemory second(odd.c_str(), 10);
    first.BeginData()[9] = 'z';
    EXPECT_EQ(second.BeginData()[9], 'z');
    VNamedMutex mutex(odd);
    VAutoNamedMutexLock lock(&mutex);
  }
  // Sizes below 1 or above the region's, a null or empty name: no region.
  VSharedMemory region(name_.c_str(), 100);
  EXPECT_EQ(VSharedMemory(name_.c_str(), 50).EndData() - region.BeginData(), 50);
  const std::vector<std::pair<const char*, int>> bad = {
      {name_.c_str(), 0},   {name_.c_str(), -1}, {name_.c_str(), INT_MIN},
      {name_.c_str(), 101}, {nullptr, 100},      {"", 100}};
  for (const auto& [name, size] : bad) {
    VSharedMemory none(name, size);
    EXPECT_TRUE(throwsMinusOne([&] { none.BeginData(); })) << size;
    EXPECT_TRUE(throwsMinusOne([&] { none.EndData(); })) << size;
  }
  // More than the machine holds: refused at once, not at use.
  EXPECT_THROW(vantu::platform::SharedRegion(name_ + ".huge", std::size_t(1) << 50),
               std::system_error);
}

TEST_F(NamedObjectsTest, ObjectsAnotherUserMayNotOpenGiveClearResults) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
  const mode_t mask = ::umask(022);  // objects readable, not writable, by other users
  VNamedMutex mutex(name_);
  VSharedMemory region(name_.c_str(), kSize);
  ::umask(mask);
  ChildProcess other(true);
  const std::string answer = other.Ask("try " + name_ + " " + std::to_string(kSize));
  const int status = other.Exit();
  if (status == 126 || status == 127) GTEST_SKIP() << "user 65534 cannot run the helper";
  EXPECT_EQ(answer, "mutex:denied region:none");
}

}  // namespace
