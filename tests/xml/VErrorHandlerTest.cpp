// The process-wide error handler.
#include <gtest/gtest.h>

#include <vantu/VErrorHandler.h>

#include <iostream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

TEST(VErrorHandlerTest, TheDefaultHandlerWritesToStandardError) {
  std::ostringstream captured;
  std::streambuf* original = std::cerr.rdbuf(captured.rdbuf());
  VErrorHandler::Report(VantuFileNotFoundException("File x not found"));
  VErrorHandler::Report(std::runtime_error("plain"));
  VErrorHandler::Report();
  std::cerr.rdbuf(original);
  EXPECT_EQ(captured.str(), "File not found: File x not found\nplain\nunknown exception\n");
}

// Counts without a lock of its own: reports are serialised by the library.
struct CountingHandler : VErrorHandler {
  void Exception(const VException&) override {
    if (++count % 100 == 0) throw std::runtime_error("swallowed");
  }
  int count = 0;
};

TEST(VErrorHandlerTest, ReportsFromManyThreadsReachTheInstalledHandlerOneAtATime) {
  CountingHandler handler;
  VErrorHandler* previous = VErrorHandler::Set(&handler);
  EXPECT_EQ(VErrorHandler::Get(), &handler);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 1000; ++i) VErrorHandler::Report(VantuDataException("x"));
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(VErrorHandler::Set(nullptr), &handler);
  EXPECT_EQ(VErrorHandler::Get(), previous);
  EXPECT_EQ(handler.count, 4000);
}

}  // namespace
