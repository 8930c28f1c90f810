// Post and Perform: request bodies, header lines, file output and its lock, the paths that end
// before any request, and what every path releases.
#include <gtest/gtest.h>

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <vantu/VURL.h>

#include "internal/CurlGlobal.h"
#include "net/NetTest.h"
#include "support/TempDir.h"

namespace {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;
using vantu::test::Crc;
using vantu::test::Get;
using vantu::test::Pattern;
using vantu::test::Perform;
using vantu::test::Received;

// Whether another open file description of `path` is refused an exclusive flock.
bool LockedElsewhere(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool locked = ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(fd);
  return locked;
}

std::string FileContent(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

const std::string kReply = Pattern(50000, 7);

struct RequestSeen {
  std::string method;
  std::vector<std::string> headers;  // "Name: value"
  vantu::test::BodySeen body;
  bool outputLocked = false;  // the output file was locked while the request ran

  bool Has(const std::string& line) const {
    return std::find(headers.begin(), headers.end(), line) != headers.end();
  }
};

class VURLUploadTest : public ::testing::Test {
 protected:
  // The requests seen so far.
  std::vector<RequestSeen> Seen() {
    std::vector<RequestSeen> seen;
    server_.Change([&] { seen = seen_; });
    return seen;
  }

  void Serve(HTTPServerRequest& request, HTTPServerResponse& response) {
    RequestSeen seen;
    seen.method = request.getMethod();
    for (const auto& header : request) seen.headers.push_back(header.first + ": " + header.second);
    if (!output_.empty()) seen.outputLocked = LockedElsewhere(output_);
    seen.body = vantu::test::ReadBody(request.stream());
    server_.Change([&] { seen_.push_back(seen); });
    if (request.getURI() == "/sink") {
      response.setContentLength(0);  // Post's response body would go to the standard output
      response.send();
    } else if (request.getURI() == "/short") {
      response.sendBuffer("short", 5);
    } else {
      response.sendBuffer(kReply.data(), kReply.size());
    }
  }

  vantu::test::TempDir dir_;
  std::string output_;  // set before the requests that write a file
  std::vector<RequestSeen> seen_;
  vantu::test::HttpTestServer server_{
      [this](HTTPServerRequest& request, HTTPServerResponse& response) {
        Serve(request, response);
      }};
};

TEST_F(VURLUploadTest, PostSendsTheWholeBlockInPiecesWithoutAnnouncingItsSize) {
  const std::string block = Pattern(100000000);
  struct Progress {
    std::vector<std::pair<size_t, size_t>> calls;
    bool increasing = true;
  } progress;
  VURL url;
  ASSERT_EQ(url.Post(
                server_.Url("/sink"), block.data(), block.size(), 60, nullptr, nullptr,
                [](size_t done, size_t total, void* data) {
                  auto& p = *static_cast<Progress*>(data);
                  p.increasing = p.increasing && (p.calls.empty() || done > p.calls.back().first);
                  p.calls.emplace_back(done, total);
                },
                &progress),
            0);
  const RequestSeen seen = Seen().at(0);
  EXPECT_EQ(seen.method, "POST");
  EXPECT_TRUE(seen.Has("Transfer-Encoding: chunked"));
  EXPECT_EQ(seen.body.size, block.size());
  EXPECT_EQ(seen.body.crc, Crc(block.data(), block.size()));
  EXPECT_GT(progress.calls.size(), 10u);
  EXPECT_TRUE(progress.increasing);
  EXPECT_EQ(progress.calls.back(), std::make_pair(block.size(), block.size()));
  EXPECT_EQ(url.GetDataSize(), 0u);
  // Cancelled on its first piece: (user data, size * count, count, the object).
  struct Asked {
    VURL* url;
    bool agree = false;
  } asked{&url};
  EXPECT_EQ(url.Post(
                server_.Url("/sink"), block.data(), block.size(), 60,
                [](void* data, size_t bytes, size_t count, VURL* object) {
                  auto& a = *static_cast<Asked*>(data);
                  a.agree = bytes == count && count > 0 && object == a.url;
                  return true;
                },
                &asked, nullptr, nullptr),
            VURL::kCancelled);
  EXPECT_TRUE(asked.agree);
}

TEST_F(VURLUploadTest, PerformToMemorySendsTheHeaderLinesAndNoExpect) {
  const std::string body = Pattern(2 << 20);  // large enough for libcurl to ask for 100-continue
  const std::vector<std::string> lines{"X-One: 1", "X-Two: two"};
  VURL url;
  ASSERT_EQ(Perform(url, server_.Url("/echo"), 0, body.data(), body.size(), &lines), 0);
  const RequestSeen seen = Seen().at(0);
  EXPECT_EQ(seen.method, "POST");
  EXPECT_TRUE(seen.Has("X-One: 1") && seen.Has("X-Two: two"));
  EXPECT_FALSE(seen.Has("Expect: 100-continue"));
  EXPECT_TRUE(seen.Has("Content-Length: " + std::to_string(body.size())));
  EXPECT_EQ(seen.body.crc, Crc(body.data(), body.size()));
  EXPECT_EQ(Received(url), kReply);
}

TEST_F(VURLUploadTest, PerformToFileHoldsAFlockAndTheSamePointerIsTheBody) {
  output_ = dir_ / "out.bin";
  // The path, its NUL, then more bytes: all of it is the body.
  std::string pathAndBody = output_ + '\0' + Pattern(2 << 20);
  VURL url;
  ASSERT_EQ(Get(url, server_.Url("/echo")), 0);
  ASSERT_EQ(
      Perform(url, server_.Url("/echo"), VURL::kToFile, pathAndBody.data(), pathAndBody.size()), 0);
  EXPECT_EQ(url.GetDataSize(), 0u);
  EXPECT_EQ(FileContent(output_), kReply);
  EXPECT_FALSE(LockedElsewhere(output_));
  // Without a body: a GET into the file, truncating it.
  std::ofstream(output_, std::ios::binary | std::ios::app) << "stale tail";
  ASSERT_EQ(Perform(url, server_.Url("/echo"), VURL::kToFile, output_.c_str()), 0);
  EXPECT_EQ(FileContent(output_), kReply);
  const std::vector<RequestSeen> seen = Seen();
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_TRUE(seen[1].outputLocked && seen[2].outputLocked);
  EXPECT_TRUE(seen[1].Has("Content-Type: application/binary"));
  EXPECT_TRUE(seen[1].Has("Expect: 100-continue"));
  EXPECT_EQ(seen[1].body.size, pathAndBody.size());
  EXPECT_EQ(seen[1].body.crc, Crc(pathAndBody.data(), pathAndBody.size()));
  EXPECT_EQ(seen[2].method, "GET");
  // A full disk: a reply too short to leave the stdio buffer before the file is closed.
  EXPECT_EQ(Perform(url, server_.Url("/short"), VURL::kToFile, "/dev/full"), CURLE_WRITE_ERROR);
}

// libcurl's entry points, counted; globalInit and easyInit can be made to fail.
struct Counted {
  int globalInits = 0, globalCleanups = 0, easyInits = 0, easyCleanups = 0;
  bool failGlobal = false, failEasy = false;
} counted;

TEST_F(VURLUploadTest, PathsThatEndBeforeAnyRequestReleaseWhatTheyTook) {
  using vantu::internal::CurlEntries;
  const vantu::internal::CurlEntryPoints saved = CurlEntries();
  counted = Counted();
  CurlEntries().globalInit = [](long flags) {
    if (counted.failGlobal) return CURLE_FAILED_INIT;
    const CURLcode code = curl_global_init(flags);
    counted.globalInits += code == CURLE_OK;
    return code;
  };
  CurlEntries().globalCleanup = [] {
    ++counted.globalCleanups;
    curl_global_cleanup();
  };
  CurlEntries().easyInit = []() -> CURL* {
    if (counted.failEasy) return nullptr;
    ++counted.easyInits;
    return curl_easy_init();
  };
  CurlEntries().easyCleanup = [](CURL* easy) {
    ++counted.easyCleanups;
    curl_easy_cleanup(easy);
  };
  const std::string held = dir_.Write("held.txt", "keep me");
  const int fd = ::open(held.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  const std::string url = server_.Url("/echo");
  VURL transfer;
  EXPECT_EQ(Get(transfer, url), 0);
  EXPECT_EQ(Perform(transfer, url, VURL::kToFile), VURL::kNoOutputPath);
  EXPECT_EQ(transfer.GetDataSize(), 0u);  // emptied before the output was looked at
  EXPECT_EQ(Perform(transfer, url, VURL::kToFile, (dir_ / "no/dir/out").c_str()),
            VURL::kOutputNotOpened);
  EXPECT_EQ(Perform(transfer, url, VURL::kToFile, held.c_str()), VURL::kOutputNotOpened);
  ::close(fd);
  EXPECT_EQ(FileContent(held), "keep me");
  counted.failEasy = true;
  EXPECT_EQ(transfer.Post(url, "x", 1, 30, nullptr, nullptr, nullptr, nullptr), 100);
  counted.failGlobal = true;
  EXPECT_EQ(Get(transfer, url), 100);
  EXPECT_EQ(transfer.GetResponseCode(), 0);
  CurlEntries() = saved;
  EXPECT_EQ(server_.Requests(), 1);
  EXPECT_EQ(counted.globalInits, 5);
  EXPECT_EQ(counted.globalCleanups, 5);
  EXPECT_EQ(counted.easyInits, 4);
  EXPECT_EQ(counted.easyCleanups, 4);
}

TEST_F(VURLUploadTest, PerformWithHeaderAndPerformSimpleCallThroughTheTable) {
  // Records what reaches the overridden slots, then lets them run.
  class Recording : public VURL {
   public:
    int Perform(std::string url, const std::vector<std::string>* headers, const char* dataOrPath,
                uint64_t size, uint32_t timeout, CancelCallback cancel, void* cancelUserData,
                ProgressCallback progress, void* progressUserData, uint32_t flags) override {
      lines = headers != nullptr ? *headers : std::vector<std::string>{"(null)"};
      arguments = {dataOrPath, size, timeout, cancelUserData, progressUserData, flags};
      return VURL::Perform(url, headers, dataOrPath, size, timeout, cancel, cancelUserData,
                           progress, progressUserData, flags);
    }
    int PerformWithHeader(std::string url, const char* header, size_t length,
                          const char* dataOrPath, uint64_t size, uint32_t timeout,
                          CancelCallback cancel, void* cancelUserData, ProgressCallback progress,
                          void* progressUserData, uint32_t flags) override {
      headerArguments = {header, length};
      return VURL::PerformWithHeader(url, header, length, dataOrPath, size, timeout, cancel,
                                     cancelUserData, progress, progressUserData, flags);
    }
    std::pair<const char*, size_t> headerArguments{"(not called)", 1};
    std::vector<std::string> lines;
    std::tuple<const char*, uint64_t, uint32_t, void*, void*, uint32_t> arguments;
  } url;
  int marker[2];
  const char* const body = "ab";
  ASSERT_EQ(url.PerformWithHeader(server_.Url("/echo"), "X-Only: one", 11, body, 2, 30, nullptr,
                                  &marker[0], nullptr, &marker[1], 0),
            0);
  EXPECT_EQ(url.lines, std::vector<std::string>{"X-Only: one"});
  EXPECT_EQ(url.arguments, std::make_tuple(body, uint64_t{2}, 30u, static_cast<void*>(&marker[0]),
                                           static_cast<void*>(&marker[1]), 0u));
  ASSERT_EQ(url.PerformSimple(server_.Url("/echo"), nullptr, 0, 31, nullptr, nullptr, nullptr,
                              nullptr, VURL::kKeepErrorBody),
            0);
  EXPECT_EQ(url.headerArguments, std::make_pair(static_cast<const char*>(nullptr), size_t{0}));
  EXPECT_EQ(url.lines, std::vector<std::string>{""});  // one empty line
  EXPECT_EQ(std::get<5>(url.arguments), VURL::kKeepErrorBody);
  EXPECT_EQ(Received(url), kReply);
  const std::vector<RequestSeen> seen = Seen();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_TRUE(seen[0].Has("X-Only: one"));
  EXPECT_EQ(seen[1].method, "GET");
}

}  // namespace
