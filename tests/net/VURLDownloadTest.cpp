// Downloads into memory: chunks and capacities, the callbacks, HTTP errors, redirects,
// time-outs and broken connections, against a server inside the test process.
#include <gtest/gtest.h>

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <vantu/VURL.h>

#include "net/NetTest.h"

namespace {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;
using vantu::test::Get;
using vantu::test::Pattern;
using vantu::test::Perform;
using vantu::test::Received;
using vantu::test::SendHead;
using vantu::test::SendRaw;

// What the callbacks of one transfer saw.
struct Seen {
  VURL* url = nullptr;
  size_t cancelAt = SIZE_MAX;  // index of the chunk on which the cancel callback answers true
  std::vector<size_t> chunks;  // the byte count of each cancel call
  bool argumentsAgree = true;  // bytes == count (element size 1) and the object itself
  std::vector<std::pair<size_t, size_t>> progress;
  vantu::test::HttpTestServer* server = nullptr;
  int stored = 0;  // chunks stored so far, under the server's lock
};

bool Cancel(void* data, size_t bytes, size_t count, VURL* url) {
  auto& seen = *static_cast<Seen*>(data);
  seen.argumentsAgree = seen.argumentsAgree && bytes == count && url == seen.url;
  seen.chunks.push_back(bytes);
  return seen.chunks.size() - 1 == seen.cancelAt;
}

void Progress(size_t done, size_t total, void* data) {
  auto& seen = *static_cast<Seen*>(data);
  seen.progress.emplace_back(done, total);
  seen.server->Change([&] { ++seen.stored; });
}

class VURLDownloadTest : public ::testing::Test {
 protected:
  // Downloads `body` sent in `pieces`, each sent once the previous one is stored, so that each
  // reaches the memory writer as one chunk.
  int Paced(VURL& url, std::vector<size_t> body, size_t cancelAt = SIZE_MAX) {
    server_.Change([&] {
      pieces_ = std::move(body);
      seen_ = Seen();
    });
    seen_.url = &url;
    seen_.cancelAt = cancelAt;
    seen_.server = &server_;
    return url.Get(server_.Url("/paced"), 30, Cancel, &seen_, Progress, &seen_);
  }

  void Serve(HTTPServerRequest& request, HTTPServerResponse& response) {
    const std::string path = request.getURI();
    if (path == "/paced") {
      std::vector<size_t> pieces;
      server_.Change([&] { pieces = pieces_; });
      if (!SendHead(request, response, std::accumulate(pieces.begin(), pieces.end(), size_t{0})))
        return;
      size_t offset = 0;
      for (size_t i = 0; i < pieces.size(); ++i) {
        if (i > 0 && !server_.Await([&] { return seen_.stored >= static_cast<int>(i); })) return;
        if (!SendRaw(request, Pattern(pieces[i], offset).data(), pieces[i])) return;
        offset += pieces[i];
      }
    } else if (path == "/missing") {
      response.setStatusAndReason(Poco::Net::HTTPResponse::HTTP_NOT_FOUND);
      response.sendBuffer("missing", 7);
    } else if (path.rfind("/hop/", 0) == 0) {
      const int left = std::stoi(path.substr(5));
      if (left == 0) {
        response.sendBuffer("landed", 6);
      } else {
        response.redirect("/hop/" + std::to_string(left - 1));
      }
    } else if (path == "/loop") {
      response.redirect("/loop");
    } else if (path == "/stall") {  // one byte now, then one every 100 ms until the end
      if (!SendHead(request, response, 100000)) return;
      while (SendRaw(request, "s", 1) &&
             !server_.Await([&] { return released_; }, std::chrono::milliseconds(100))) {
      }
    } else if (path == "/cut") {  // 40000 of the 100000 bytes announced, then the end
      if (SendHead(request, response, 100000) && SendRaw(request, Pattern(40000).data(), 40000)) {
        vantu::test::HttpTestServer::SocketOf(request).shutdown();
      }
    }
  }

  std::vector<size_t> pieces_;
  Seen seen_;
  bool released_ = false;
  vantu::test::HttpTestServer server_{
      [this](HTTPServerRequest& request, HTTPServerResponse& response) {
        Serve(request, response);
      }};
};

TEST_F(VURLDownloadTest, ChunksGrowTheBufferInStepsOfTenKibibytes) {
  struct Case {
    std::vector<size_t> pieces;
    std::vector<size_t> capacities;  // the progress total after each chunk
  };
  const Case cases[] = {
      {{10240}, {20480}},
      {{1, 1, 1}, {10240, 10240, 10240}},
      {{1, 1, 1, 10237, 1, 16384, 5000, 10240},
       {10240, 10240, 10240, 10240, 20480, 40960, 40960, 61440}},
  };
  for (const Case& c : cases) {
    VURL url;
    ASSERT_EQ(Paced(url, c.pieces), 0);
    EXPECT_EQ(seen_.chunks, c.pieces);
    EXPECT_TRUE(seen_.argumentsAgree);
    size_t done = 0;
    ASSERT_EQ(seen_.progress.size(), c.pieces.size());
    for (size_t i = 0; i < c.pieces.size(); ++i) {
      done += c.pieces[i];
      EXPECT_EQ(seen_.progress[i], std::make_pair(done, c.capacities[i])) << "chunk " << i;
    }
    EXPECT_EQ(Received(url), Pattern(done));
    EXPECT_EQ(url.GetResponseCode(), 200);
  }
  // A later transfer empties the buffer but keeps its capacity.
  VURL url;
  ASSERT_EQ(Paced(url, {1, 10240, 16384}), 0);
  ASSERT_EQ(Paced(url, {100}), 0);
  EXPECT_EQ(seen_.progress, (std::vector<std::pair<size_t, size_t>>{{100, 30720}}));
  EXPECT_EQ(Received(url), Pattern(100));
}

TEST_F(VURLDownloadTest, CancelStopsBeforeTheChunkIsStored) {
  VURL url;
  ASSERT_EQ(Paced(url, {5000, 3000, 7000}), 0);  // leaves bytes a cancelled transfer must drop
  ASSERT_EQ(Paced(url, {5000, 3000, 7000}, 0), VURL::kCancelled);
  EXPECT_EQ(url.GetDataSize(), 0u);
  EXPECT_TRUE(seen_.progress.empty());
  ASSERT_EQ(Paced(url, {5000, 3000, 7000}, 2), -2);
  EXPECT_EQ(seen_.chunks, (std::vector<size_t>{5000, 3000, 7000}));
  EXPECT_EQ(seen_.progress.size(), 2u);
  EXPECT_EQ(Received(url), Pattern(8000));
  EXPECT_TRUE(seen_.argumentsAgree);
}

TEST_F(VURLDownloadTest, HttpErrorsFailUnlessFlagBitZeroKeepsTheBody) {
  VURL url;
  EXPECT_EQ(Get(url, server_.Url("/missing")), CURLE_HTTP_RETURNED_ERROR);
  EXPECT_EQ(url.GetDataSize(), 0u);
  EXPECT_EQ(url.GetResponseCode(), 404);
  EXPECT_EQ(Perform(url, server_.Url("/missing"), 0), CURLE_HTTP_RETURNED_ERROR);
  EXPECT_EQ(Perform(url, server_.Url("/missing"), VURL::kKeepErrorBody), 0);
  EXPECT_EQ(Received(url), "missing");
  EXPECT_EQ(url.GetResponseCode(), 404);
}

TEST_F(VURLDownloadTest, PerformFollowsRedirectsUpToFiftyAndGetDoesNot) {
  VURL url;
  EXPECT_EQ(Get(url, server_.Url("/hop/3")), 0);
  EXPECT_EQ(url.GetResponseCode(), 302);
  EXPECT_EQ(server_.Requests(), 1);
  EXPECT_EQ(Perform(url, server_.Url("/hop/3"), 0), 0);
  EXPECT_EQ(Received(url), "landed");
  EXPECT_EQ(server_.Requests(), 5);
  // A loop ends after 50 redirects, long before the time-out.
  EXPECT_EQ(Perform(url, server_.Url("/loop"), 0), CURLE_TOO_MANY_REDIRECTS);
  EXPECT_EQ(server_.Requests(), 5 + 51);
}

TEST_F(VURLDownloadTest, TimeOutIsHonouredAndAllOnesMeansNone) {
  using Clock = std::chrono::steady_clock;
  struct Run {
    uint32_t timeout;
    double cancelAfter;  // seconds; the test's own bound on a transfer without a time-out
    int result = 0;
    double seconds = 0;
    Clock::time_point start = Clock::now();
  };
  std::vector<Run> runs{{1, 20}, {VURL::kNoTimeout, 2.5}, {0, 2.5}};
  auto late = [](void* data, size_t, size_t, VURL*) {
    const Run& run = *static_cast<Run*>(data);
    return std::chrono::duration<double>(Clock::now() - run.start).count() > run.cancelAfter;
  };
  std::vector<std::thread> threads;
  for (Run& run : runs) {
    threads.emplace_back([&] {
      VURL url;
      run.result = url.Get(server_.Url("/stall"), run.timeout, late, &run, nullptr, nullptr);
      run.seconds = std::chrono::duration<double>(Clock::now() - run.start).count();
    });
  }
  for (std::thread& thread : threads) thread.join();
  server_.Change([&] { released_ = true; });
  EXPECT_EQ(runs[0].result, CURLE_OPERATION_TIMEDOUT);
  EXPECT_GT(runs[0].seconds, 0.9);
  for (size_t i = 1; i < runs.size(); ++i) {
    EXPECT_EQ(runs[i].result, VURL::kCancelled) << "time-out " << runs[i].timeout;
    EXPECT_GE(runs[i].seconds, 2.5);
  }
}

TEST_F(VURLDownloadTest, AConnectionCutMidBodyKeepsTheBytesReceived) {
  VURL url;
  EXPECT_EQ(Get(url, server_.Url("/cut")), CURLE_PARTIAL_FILE);
  EXPECT_EQ(Received(url), Pattern(40000));
}

TEST_F(VURLDownloadTest, CopiesOwnTheirReceivedBytes) {
  auto overwrite = [&](VURL& url) {
    ASSERT_EQ(Perform(url, server_.Url("/missing"), VURL::kKeepErrorBody), 0);
  };
  for (size_t size : {size_t{20}, size_t{300000}}) {  // on the heap; in an address range
    VURL first;
    ASSERT_EQ(Paced(first, {size}), 0);
    VURL copy(first);
    VURL assigned;
    overwrite(assigned);
    assigned = first;
    first = first;
    overwrite(first);
    EXPECT_EQ(Received(first), "missing");
    for (const VURL* other : {&copy, &assigned}) EXPECT_EQ(Received(*other), Pattern(size));
  }
}

}  // namespace
