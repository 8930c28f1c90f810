// VThread: data, start, restart, and destruction while the function runs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

#include <vantu/VEvent.h>
#include <vantu/VException.h>
#include <vantu/VThread.h>

#include "sync/FailingNew.h"
#include "sync/ThreadCount.h"

namespace {

using vantu::test::ThreadCount;
using vantu::test::ThreadCountReturnsTo;

// What a thread function reports back to the test.
struct Report {
  VEvent go{false, false};  // manual reset: lets the function finish
  VEvent done;
  std::atomic<uintptr_t> data{0};
  std::atomic<int> calls{0};

  static void Record(uintptr_t self) {
    auto* report = reinterpret_cast<Report*>(self);
    report->data = self;
    ++report->calls;
    report->done.Set();
  }
  static void WaitThenRecord(uintptr_t self) {
    reinterpret_cast<Report*>(self)->go.Wait();
    Record(self);
  }
};

TEST(VThreadTest, DataSetBeforeStartReachesTheFunction) {
  Report report;
  VThread thread;
  EXPECT_EQ(thread.GetData(), 0u);
  thread.SetData(reinterpret_cast<uintptr_t>(&report));
  VThread copy(thread);  // shares the thread; the data is copied
  copy.Start(&Report::Record);
  report.done.Wait();
  EXPECT_EQ(report.data.load(), reinterpret_cast<uintptr_t>(&report));
  EXPECT_EQ(copy.GetData(), reinterpret_cast<uintptr_t>(&report));
}

TEST(VThreadTest, StartWhileRunningThrowsAndAFinishedThreadStartsAgain) {
  Report report;
  VThread thread;
  thread.SetData(reinterpret_cast<uintptr_t>(&report));
  thread.Start(&Report::WaitThenRecord);
  EXPECT_THROW(thread.Start(&Report::Record), VantuRuntimeException);
  report.go.Set();
  report.done.Wait();
  // The function has signalled; it returns a moment later, and then the thread starts again.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (;;) {
    try {
      thread.Start(&Report::Record);
      break;
    } catch (const VantuRuntimeException&) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
      std::this_thread::yield();
    }
  }
  report.done.Wait();
  EXPECT_EQ(report.calls.load(), 2);
}

TEST(VThreadTest, DestroyedThreadsLeaveTheirFunctionsRunningAndThenNothing) {
  const int before = ThreadCount();
  // Static: a thread that outlives a failing test must not write into a finished stack frame.
  static Report report;
  static std::atomic<int> ran{0};
  std::optional<VThread> waiting;
  waiting.emplace();
  waiting->SetData(reinterpret_cast<uintptr_t>(&report));
  waiting->Start(&Report::WaitThenRecord);
  waiting.reset();  // the function still waits for go
  // Destroyed at once after Start, before the new threads may even have begun.
  for (int i = 0; i < 100; ++i) {
    VThread thread;
    thread.SetData(reinterpret_cast<uintptr_t>(&ran));
    thread.Start([](uintptr_t count) { ++*reinterpret_cast<std::atomic<int>*>(count); });
  }
  report.go.Set();
  report.done.Wait();
  EXPECT_EQ(report.data.load(), reinterpret_cast<uintptr_t>(&report));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (ran.load() < 100 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  EXPECT_EQ(ran.load(), 100);
  EXPECT_TRUE(ThreadCountReturnsTo(before));
}

TEST(VThreadTest, WithoutPlatformThreadStartThrowsMinusOne) {
  std::optional<VThread> thread;
  {
    vantu::test::FailingNew failing;
    thread.emplace();
  }
  thread->SetData(7);
  EXPECT_EQ(thread->GetData(), 7u);
  EXPECT_THROW(thread->Start(nullptr), int);
}

}  // namespace
