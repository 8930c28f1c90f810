// Transfers on several threads at once, each thread with its own object.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <vantu/VURL.h>

#include "support/HttpTestServer.h"

namespace {

TEST(VURLConcurrencyTest, EightThreadsRunAHundredTransfersEach) {
  // Each answer names its request, so a transfer that received another's bytes shows.
  vantu::test::HttpTestServer server(
      [](Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response) {
        const std::string body = "answer to " + request.getURI();
        response.sendBuffer(body.data(), body.size());
      });
  constexpr int kThreads = 8;
  constexpr int kTransfers = 100;
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      VURL url;
      for (int i = 0; i < kTransfers; ++i) {
        const std::string path = "/" + std::to_string(t) + "/" + std::to_string(i);
        // Alternate the memory writer's two callers: Get and Perform.
        const int code = i % 2 == 0
                             ? url.Get(server.Url(path), 30, nullptr, nullptr, nullptr, nullptr)
                             : url.PerformSimple(server.Url(path), nullptr, 0, 30, nullptr, nullptr,
                                                 nullptr, nullptr, 0);
        good += code == 0 && std::string(url.GetData(), url.GetDataSize()) == "answer to " + path;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, kThreads * kTransfers);
  EXPECT_EQ(server.Requests(), kThreads * kTransfers);
}

}  // namespace
