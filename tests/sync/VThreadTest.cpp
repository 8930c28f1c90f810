// VThread: data, start, restart, and destruction while the function runs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

#include <vantu/VEvent.h>
#include <vantu/VException.h>
#include <vantu/VThread.h>

namespace {

// What a thread function reports back. Static in the tests: a thread that outlives a failing
// test must not write into a finished stack frame.
struct Report {
  VEvent go{false, false};  // manual reset: lets WaitThenRecord finish
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

TEST(VThreadTest, DataReachesTheFunctionAndAFinishedThreadStartsAgain) {
  static Report report;
  VThread thread;
  EXPECT_EQ(thread.GetData(), 0u);
  thread.SetData(reinterpret_cast<uintptr_t>(&report));
  VThread copy(thread);  // shares the thread; the data is copied
  copy.Start(&Report::WaitThenRecord);
  EXPECT_THROW(thread.Start(&Report::Record), VantuRuntimeException);  // still running
  report.go.Set();
  report.done.Wait();
  EXPECT_EQ(report.data.load(), reinterpret_cast<uintptr_t>(&report));
  // The function has signalled; it returns a moment later, and then the thread starts again.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (bool started = false; !started;) {
    try {
      thread.Start(&Report::Record);
      started = true;
    } catch (const VantuRuntimeException&) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    }
  }
  report.done.Wait();
  EXPECT_EQ(report.calls.load(), 2);
}

TEST(VThreadTest, DestroyedThreadsLeaveTheirFunctionsRunningAndThenNothing) {
  static Report report;
  static std::atomic<int> ran{0};
  std::optional<VThread> waiting(std::in_place);
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
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (ran.load() < 100 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  EXPECT_EQ(ran.load(), 100);
}

}  // namespace
