// VMutex, VAutoMutexLock and VEvent between threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <vantu/VAutoMutexLock.h>
#include <vantu/VEvent.h>
#include <vantu/VException.h>
#include <vantu/VMutex.h>

#include "sync/FailingNew.h"

namespace {

// Waits until `count` reaches `expected` (true), or 10 s (false).
bool Reaches(const std::atomic<int>& count, int expected) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (count.load() != expected) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

// `count` keeps its value for a while: nothing more got through.
bool Stays(const std::atomic<int>& count, int expected) {
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
  mutex.Lock();
  std::thread([&] { EXPECT_THROW(mutex.Unlock(), VantuRuntimeException); }).join();
  mutex.Unlock();
}

TEST(VMutexTest, WithoutPlatformObjectsMutexThrowsAndEventDoesNothing) {
  std::optional<VMutex> mutex;
  std::optional<VEvent> event;
  {
    vantu::test::FailingNew failing;
    mutex.emplace();
    event.emplace(true);
  }
  EXPECT_THROW(mutex->Lock(), int);
  try {
    mutex->Unlock();
    ADD_FAILURE() << "no exception";
  } catch (int value) {
    EXPECT_EQ(value, -1);
  }
  EXPECT_THROW(VAutoMutexLock lock(&*mutex), int);
  VAutoMutexLock nothing(nullptr);
  event->Set();
  event->Reset();
  event->Wait();  // returns at once
}

TEST(VEventTest, AutoResetLetsOneWaiterThroughPerSet) {
  VEvent event;
  std::atomic<int> released{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 2; ++i) {
    waiters.emplace_back([&, copy = event]() mutable {
      copy.Wait();
      ++released;
    });
  }
  EXPECT_TRUE(Stays(released, 0));
  event.Set();
  EXPECT_TRUE(Reaches(released, 1));
  EXPECT_TRUE(Stays(released, 1));
  event.Set();
  EXPECT_TRUE(Reaches(released, 2));
  for (std::thread& waiter : waiters) waiter.join();
}

TEST(VEventTest, InitialStateAndManualReset) {
  VEvent set(true);
  set.Wait();  // returns at once
  VEvent manual(true, false);
  manual.Wait();
  manual.Wait();  // still set
  manual.Reset();
  std::atomic<int> released{0};
  std::thread waiter([&] {
    manual.Wait();
    ++released;
  });
  EXPECT_TRUE(Stays(released, 0));
  manual.Set();
  EXPECT_TRUE(Reaches(released, 1));
  waiter.join();
}

}  // namespace
