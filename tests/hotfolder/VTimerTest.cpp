#include <gtest/gtest.h>

#include <Poco/ThreadPool.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <vantu/VPocoTimer.h>
#include <vantu/VTimer.h>

namespace {

TEST(VTimerTest, TicksCallTheCallbackOnAPoolThreadAndStopEndsThem) {
  VPocoTimer bare;  // without a callback it still ticks
  bare.SetStartInterval(10);
  bare.SetPeriodicInterval(10);
  bare.Start(nullptr, nullptr);
  EXPECT_TRUE(bare.WaitForTick(5000));
  bare.Stop();

  VTimer timer;
  struct Seen {
    std::atomic<int> ticks{0};
    std::atomic<bool> otherThread{false};
    std::thread::id caller = std::this_thread::get_id();
  } seen;
  timer.SetCallback(
      [](void* data) {
        auto* s = static_cast<Seen*>(data);
        s->otherThread = std::this_thread::get_id() != s->caller;
        ++s->ticks;
        return 0;
      },
      &seen);
  timer.GetTimer()->SetStartInterval(10);
  timer.SetPeriodicInterval(10);
  timer.Start();
  ASSERT_TRUE(timer.GetTimer()->WaitForTick(5000));
  ASSERT_TRUE(timer.GetTimer()->WaitForTick(5000));
  timer.Stop();
  const int afterStop = seen.ticks;
  EXPECT_GE(afterStop, 2);
  EXPECT_TRUE(seen.otherThread);
  timer.GetTimer()->WaitForTick(0);  // a tick just before Stop may have left the event set
  EXPECT_FALSE(timer.GetTimer()->WaitForTick(100));  // stopped: no more ticks
  EXPECT_EQ(seen.ticks, afterStop);
}

TEST(VTimerTest, StartingTimersGrowsAFullDefaultPool) {
  Poco::ThreadPool& pool = Poco::ThreadPool::defaultPool();
  std::vector<std::unique_ptr<VPocoTimer>> timers;
  const int count = pool.capacity() + 3;
  for (int i = 0; i < count; ++i) {
    timers.push_back(std::make_unique<VPocoTimer>());
    timers.back()->SetStartInterval(0);
    timers.back()->SetPeriodicInterval(20);
    timers.back()->Start(nullptr, nullptr);
  }
  // Every timer holds a pool thread and still ticks.
  for (auto& timer : timers) EXPECT_TRUE(timer->WaitForTick(10000));
  EXPECT_GE(pool.capacity(), static_cast<int>(timers.size()));
  timers.clear();
}

TEST(VTimerTest, CopiesOwnNoTimerAndCopyFromReadsTheirIntervalsAsAllOnes) {
  VTimer original;
  original.SetPeriodicInterval(250);
  VTimer copy(original);
  EXPECT_EQ(copy.GetTimer(), nullptr);
  copy.CopyFrom(original);  // no timer of its own: nothing written, nothing crashes
  copy.Start();
  VTimer target;
  target.CopyFrom(copy);
  EXPECT_EQ(target.GetTimer()->GetStartInterval(), 0xFFFFFFFFu);
  EXPECT_EQ(target.GetTimer()->GetPeriodicInterval(), 0xFFFFFFFFu);
}

TEST(VTimerTest, StartOnARunningTimerDoesNotRestartIt) {
  std::atomic<int> ticks{0};
  VTimer timer;
  timer.SetCallback(
      [](void* data) {
        ++*static_cast<std::atomic<int>*>(data);
        return 0;
      },
      &ticks);
  timer.GetTimer()->SetStartInterval(10);
  timer.SetPeriodicInterval(10000);
  timer.Start();
  ASSERT_TRUE(timer.GetTimer()->WaitForTick(5000));  // the first tick after 10 ms
  timer.Start();  // still running: a restart would tick again after 10 ms, not after 10 s
  EXPECT_FALSE(timer.GetTimer()->WaitForTick(300));
  timer.Stop();
  EXPECT_EQ(ticks, 1);
}

// The callable forms tick; a running timer's callable may be replaced from another thread and
// from inside itself, and the replaced ones are destroyed once no tick uses them.
TEST(VTimerTest, CallablesTickAndMayBeReplacedWhileTheTimerRuns) {
  std::atomic<int> bare{0};
  VPocoTimer poco;
  poco.SetStartInterval(1);
  poco.SetPeriodicInterval(1);
  poco.Start([&bare] { ++bare; });
  ASSERT_TRUE(poco.WaitForTick(5000));
  poco.Stop();
  EXPECT_GT(bare, 0);

  VTimer timer;
  timer.GetTimer()->SetStartInterval(1);
  timer.SetPeriodicInterval(1);
  const auto token = std::make_shared<int>(0);
  std::atomic<int> first{0}, second{0};
  const auto counting = [&first, token] { ++first; };
  timer.SetCallback(counting);
  timer.Start();
  ASSERT_TRUE(timer.GetTimer()->WaitForTick(5000));
  std::thread replacer([&] {
    for (int i = 0; i < 200; ++i) {
      if (i % 2 == 0) {
        timer.SetCallback(counting);
      } else {
        timer.SetCallback([](void* data) { return ++*static_cast<std::atomic<int>*>(data); },
                          &first);
      }
    }
  });
  replacer.join();
  // A callable that replaces itself, while it runs, by one counting the second.
  timer.SetCallback([&timer, &second, token] { timer.SetCallback([&second] { ++second; }); });
  // A stale tick event, then the tick that may have been running the replaced callable.
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(timer.GetTimer()->WaitForTick(5000));
  const int firstNow = first;
  ASSERT_TRUE(timer.GetTimer()->WaitForTick(5000));
  ASSERT_TRUE(timer.GetTimer()->WaitForTick(5000));
  timer.Stop();
  EXPECT_EQ(first, firstNow);
  EXPECT_GT(second, 0);
  EXPECT_EQ(token.use_count(), 2);  // this test's and `counting`'s
}

}  // namespace
