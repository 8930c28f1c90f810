#include <gtest/gtest.h>

#include <Poco/ThreadPool.h>

#include <atomic>
#include <memory>
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

}  // namespace
