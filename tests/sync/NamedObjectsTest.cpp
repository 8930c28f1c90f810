// Named mutexes, named events and shared memory between real processes, threads and a fork. The
// program's main also serves as the helper process of these tests (see ChildMain).
#include <gtest/gtest.h>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <vantu/VAutoNamedMutexLock.h>
#include <vantu/VException.h>
#include <vantu/VNamedEvent.h>
#include <vantu/VNamedMutex.h>
#include <vantu/VSharedMemory.h>

#include "platform/NamedObjects.h"

namespace {

namespace fs = std::filesystem;

volatile uint64_t& Counter(const VSharedMemory& region) {
  return *reinterpret_cast<volatile uint64_t*>(region.BeginData());
}

std::string Opens(const std::string& what, const std::function<void()>& open) {
  try {
    open();
    return what + ":ok";
  } catch (const VantuRuntimeException&) {
    return what + ":denied";
  } catch (int) {
    return what + ":none";
  }
}

// The helper process: opens the named mutex, the named event and the region of `size` bytes
// called `name`, says "mutex:<ok|denied> event:<ok|denied> region:<ok|none>", then answers each
// command line once it is done:
//   lock | wait  "ok"
//   count <n>    n times: lock, counter + 1 (a plain read and write), unlock; answers the counter
//   pong <n>     n times: wait for "<name>.ping", counter + 1, set "<name>.pong"; the counter
//   exit         leaves, destroying everything
int ChildMain(const std::string& name, int size) {
  ::alarm(120);  // a child left waiting by a failed test ends
  std::unique_ptr<VNamedMutex> mutex;
  std::unique_ptr<VNamedEvent> event;
  const VSharedMemory region(name.c_str(), size);
  VNamedEvent ping(name + ".ping"), pong(name + ".pong");
  std::cout << Opens("mutex", [&] { mutex = std::make_unique<VNamedMutex>(name); }) << ' '
            << Opens("event", [&] { event = std::make_unique<VNamedEvent>(name); }) << ' '
            << Opens("region", [&] { region.BeginData(); }) << std::endl;
  for (std::string line; std::getline(std::cin, line) && line != "exit";) {
    std::istringstream in(line);
    std::string command;
    long n = 0;
    in >> command >> n;
    if (command == "lock") mutex->Lock();
    if (command == "wait") event->Wait();
    for (long i = 0; command == "count" && i < n; ++i) {
      VAutoNamedMutexLock lock(mutex.get());
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

// A helper process (this program, fork + exec), driven one line at a time. With asNobody (and
// root) it runs as user and group 65534, and exits 126 when it cannot become that user.
class Child {
 public:
  Child(const std::string& name, int size, bool asNobody = false) {
    ::signal(SIGPIPE, SIG_IGN);  // a child that has gone makes Send fail, not end the test
    const std::string program = fs::read_symlink("/proc/self/exe"), sizeText = std::to_string(size);
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
    if ((pid_ = ::fork()) == 0) {
      ::dup2(in[0], 0);
      ::dup2(out[1], 1);
      if (asNobody && (::setgroups(0, nullptr) || ::setgid(65534) || ::setuid(65534))) _exit(126);
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
  std::string Ask(const std::string& command) {
    Send(command);
    return Answer();
  }
  // Sends "exit"; returns the exit status once the child has gone.
  int Exit() {
    Send("exit");
    int status = 0;
    ::waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void Kill() {
    ::kill(pid_, SIGKILL);
    Exit();
  }

 private:
  pid_t pid_ = -1;
  int to_ = -1;
  int from_ = -1;
};

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

// Each test uses names of its own and checks that it leaves nothing behind in /dev/shm or in the
// temporary folder.
class NamedObjectsTest : public ::testing::Test {
 protected:
  static constexpr int kSize = 4096;

  void SetUp() override {
    static int serial = 0;
    name_ = "vantu-test-" + std::to_string(::getpid()) + "-" + std::to_string(++serial);
  }
  void TearDown() override {
    const char* temp = std::getenv("TMPDIR");
    for (const fs::path& folder : {fs::path("/dev/shm"), fs::path(temp && *temp ? temp : "/tmp")}) {
      for (const auto& entry : fs::directory_iterator(folder)) {
        EXPECT_EQ(entry.path().filename().string().find(name_), std::string::npos) << entry.path();
      }
    }
  }
  // A helper process that has opened the mutex, the event and the region of this test.
  std::unique_ptr<Child> Opened(int size = kSize) {
    auto child = std::make_unique<Child>(name_, size);
    EXPECT_EQ(child->Answer(), "mutex:ok event:ok region:ok");
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
  waiter->Send("wait");
  EXPECT_EQ(waiter->Answer(200), "(none)") << "two sets let two waits through";
  event.Set();
  EXPECT_EQ(waiter->Answer(), "ok");
  // Waiters killed while they wait: later sets still reach later waiters.
  for (int round = 0; round < 3; ++round) {
    auto doomed = Opened();
    doomed->Send("wait");
    EXPECT_EQ(doomed->Answer(50), "(none)");
    doomed->Kill();
    waiter->Send("wait");
    event.Set();
    EXPECT_EQ(waiter->Answer(), "ok") << "round " << round;
  }
  // Four processes count under the mutex, one more through a ping-pong of events.
  std::vector<std::unique_ptr<Child>> counters;
  for (int i = 0; i < 4; ++i) counters.push_back(Opened());
  for (auto& counter : counters) counter->Send("count 10000");
  for (auto& counter : counters) EXPECT_NE(counter->Answer(), "(none)");
  EXPECT_EQ(Counter(region), 40010u);
  VNamedEvent ping(name_ + ".ping");
  VNamedEvent pong(name_ + ".pong");
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
  only->Kill();
  EXPECT_TRUE(fs::exists("/dev/shm/vantu.memory." + name_));
  // Left by a killed process that was the only holder: rebuilt as new, with any size.
  VSharedMemory region(name_.c_str(), kSize * 2);
  EXPECT_EQ(Counter(region), 0u);
  VNamedMutex mutex(name_);
  auto holder = Opened(kSize * 2);
  EXPECT_EQ(holder->Ask("count 5"), "5");  // rebuilt unlocked
  EXPECT_EQ(holder->Ask("lock"), "ok");
  EXPECT_EQ(holder->Ask("lock"), "ok");  // recursive
  holder->Kill();
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
  VNamedMutex noMutex("");  // no name: objects without a platform object
  EXPECT_TRUE(throwsMinusOne([&] { noMutex.Lock(); }));
  EXPECT_TRUE(throwsMinusOne([&] { noMutex.Unlock(); }));
  VNamedEvent noEvent("");
  noEvent.Set();
  noEvent.Wait();  // returns at once
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
  const mode_t mask = ::umask(022);  // objects readable, not writable, by other users
  VNamedMutex mutex(name_);
  VNamedEvent event(name_);
  VSharedMemory region(name_.c_str(), kSize);
  ::umask(mask);
  Child other(name_, kSize, true);
  const std::string answer = other.Answer();
  const int status = other.Exit();
  if (status == 126 || status == 127) GTEST_SKIP() << "user 65534 cannot run the helper";
  EXPECT_EQ(answer, "mutex:denied event:denied region:none");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--sync-child") == 0) {
    return ChildMain(argv[2], std::atoi(argv[3]));
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
