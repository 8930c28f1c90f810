// VMutex, VAutoMutexLock and VEvent between threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include <vantu/VAutoMutexLock.h>
#include <vantu/VEvent.h>
#include <vantu/VException.h>
#include <vantu/VMutex.h>

namespace {

// Waits until `count` reaches `expected`, then gives more a while to get through: true when
// exactly `expected` got through.
bool ReachesAndStays(const std::atomic<int>& count, int expected) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (count.load() < expected && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  return count.load() == expected;
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

}  // namespace
