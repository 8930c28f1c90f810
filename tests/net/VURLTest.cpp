// Transfers against HTTP(S) servers inside the test process, and the transfer class's table of
// virtual operations.
#include <gtest/gtest.h>

#include <Poco/Net/Context.h>
#include <Poco/Net/SecureServerSocket.h>
#include <Poco/StreamCopier.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <vantu/VURL.h>

#include "net/internal/CurlGlobal.h"
#include "net/internal/ReceiveBuffer.h"
#include "support/HttpTestServer.h"
#include "support/TempDir.h"
#include "support/VTable.h"

namespace {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;
using Pairs = std::vector<std::pair<size_t, size_t>>;

// n bytes that differ from one position to the next.
std::string Pattern(size_t n) {
  std::string bytes(n, '\0');
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<char>((i * 2654435761u) >> 13);
  return bytes;
}
std::string Received(const VURL& url) { return std::string(url.GetData(), url.GetDataSize()); }
std::string FileContent(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
int Get(VURL& url, const std::string& address) {
  return url.Get(address, 30, nullptr, nullptr, nullptr, nullptr);
}
int Perform(VURL& url, const std::string& address, uint32_t flags, const char* data = nullptr,
            uint64_t size = 0, const std::vector<std::string>* headers = nullptr) {
  return url.Perform(address, headers, data, size, 30, nullptr, nullptr, nullptr, nullptr, flags);
}
// Whether another open file description of `path` is refused an exclusive flock.
bool LockedElsewhere(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool locked = fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (fd >= 0) ::close(fd);
  return locked;
}

// What the callbacks of one transfer saw; the cancel callback answers true on chunk `cancelAt`.
struct Watch {
  explicit Watch(VURL* url, size_t cancelAt = SIZE_MAX) : url(url), cancelAt(cancelAt) {}
  VURL* url;
  size_t cancelAt;
  bool agree = true;           // bytes == count (element size 1) and the object, every time
  std::vector<size_t> chunks;  // the byte count of each cancel call for a chunk
  Pairs progress;
  static bool Cancel(void* data, size_t bytes, size_t count, VURL* url) {
    auto& watch = *static_cast<Watch*>(data);
    watch.agree = watch.agree && bytes == count && url == watch.url;
    if (count == 0) return false;  // asked from libcurl's progress callback
    watch.chunks.push_back(bytes);
    return watch.chunks.size() - 1 == watch.cancelAt;
  }
  static void Progress(size_t done, size_t total, void* data) {
    static_cast<Watch*>(data)->progress.emplace_back(done, total);
  }
};

// libcurl's global references and easy handles held through the library's entry points, which
// every test counts; their initialisation can be made to fail.
std::atomic<int> globalHeld{0}, easyHeld{0};
std::atomic<bool> failGlobal{false}, failEasy{false};

struct RequestSeen {
  std::string method;
  std::set<std::string> headers;  // "Name: value"
  std::string body;
  bool outputLocked;  // the output file was locked while the request ran
  std::string uri;
  uint16_t port;  // the client's: one per connection
};

class VURLTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vantu::internal::CurlEntries() = {
        [](long flags) {
          return failGlobal ? CURLE_FAILED_INIT : (++globalHeld, curl_global_init(flags));
        },
        [] { --globalHeld, curl_global_cleanup(); },
        []() -> CURL* { return failEasy ? nullptr : (++easyHeld, curl_easy_init()); },
        [](CURL* easy) { --easyHeld, curl_easy_cleanup(easy); }};
  }
  void TearDown() override {  // every path released what it took
    vantu::internal::CurlEntries() = {};
    failGlobal = failEasy = false;
    EXPECT_EQ(std::make_pair(globalHeld.load(), easyHeld.load()), std::make_pair(0, 0));
  }
  std::vector<RequestSeen> Seen() {
    std::lock_guard<std::mutex> lock(mutex_);
    return seen_;
  }
  void Serve(HTTPServerRequest& request, HTTPServerResponse& response) {
    const bool locked = !output_.empty() && LockedElsewhere(output_);
    RequestSeen seen{request.getMethod(),           {}, {}, locked, request.getURI(),
                     request.clientAddress().port()};
    for (const auto& header : request) seen.headers.insert(header.first + ": " + header.second);
    Poco::StreamCopier::copyToString(request.stream(), seen.body);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      seen_.push_back(std::move(seen));
    }
    const std::string path = request.getURI();
    if (path.rfind("/bytes/", 0) == 0) {
      response.send() << Pattern(std::stoul(path.substr(7)));
    } else if (path == "/missing") {
      response.setStatusAndReason(Poco::Net::HTTPResponse::HTTP_NOT_FOUND);
      response.send() << "missing";
    } else if (path.rfind("/go/", 0) == 0) {  // "/go/<status>?<location>"
      response.redirect(
          path.substr(path.find('?') + 1),
          static_cast<Poco::Net::HTTPResponse::HTTPStatus>(std::stoi(path.substr(4))));
    } else if (path == "/kept") {  // a length, so the connection stays open
      response.sendBuffer("kept", 4);
    } else if (path == "/hop/0") {
      response.send() << "landed";
    } else if (path.rfind("/hop/", 0) == 0 || path == "/loop") {
      response.redirect(path == "/loop" ? path : "/hop/" + std::to_string(path[5] - '1'));
    } else if (path == "/stall" || path == "/cut") {  // 100000 bytes announced
      response.setContentLength(100000);
      response.setKeepAlive(false);  // the connection ends with the handler
      std::ostream& out = response.send();
      if (path == "/cut") out << Pattern(40000);  // 40000 of them, then the end
      // A slow server: a byte every 100 ms until the client goes.
      while (path == "/stall" && out << 's' << std::flush) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
      }
    } else {
      response.send() << "answer to " << path;
    }
  }

  vantu::test::TempDir dir_;
  std::string output_;  // set before the requests that write a file
  std::mutex mutex_;
  std::vector<RequestSeen> seen_;
  vantu::test::HttpTestServer server_{
      [this](HTTPServerRequest& request, HTTPServerResponse& response) {
        Serve(request, response);
      }};
};
class VURLConcurrencyTest : public VURLTest {};

TEST_F(VURLTest, EachChunkIsOfferedToCancelThenStoredAndReported) {
  // The buffer grows in steps of 10 KiB, always past what it holds: on the heap, then in an
  // address range, then in a larger range when the first 64 MiB are used up.
  const size_t sizes[] = {1, 10240, 300000, 70 << 20, 100};
  std::vector<VURL> copies;  // of each transfer, which the later ones leave alone
  VURL url;
  size_t capacity = 0;  // a later transfer empties the buffer but keeps its capacity
  for (size_t size : sizes) {
    Watch watch(&url);
    ASSERT_EQ(url.Get(server_.Url("/bytes/" + std::to_string(size)), 30, Watch::Cancel, &watch,
                      Watch::Progress, &watch),
              0);
    EXPECT_TRUE(Received(url) == Pattern(size));
    EXPECT_TRUE(watch.agree && url.GetResponseCode() == 200);
    Pairs expected;
    for (size_t i = 0, held = 0; i < watch.chunks.size(); held += watch.chunks[i++]) {
      const size_t n = watch.chunks[i];
      if (capacity - held < n) capacity = ((capacity + n) / 10240 + 1) * 10240;
      expected.emplace_back(held + n, capacity);
    }
    EXPECT_EQ(watch.progress, expected);
    copies.push_back(url);
  }
  copies[1] = copies[1];
  copies[0] = copies[2];  // a heap block replaced by an address range, and a range by another
  copies[2] = copies[4];
  const int source[] = {2, 1, 4, 3, 4};
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(Received(copies[i]) == Pattern(sizes[source[i]])) << i;
  // Cancelled before a chunk is stored: on the first, nothing is left; on the third, two chunks.
  for (size_t cancelAt : {0, 2}) {
    Watch watch(&url, cancelAt);
    ASSERT_EQ(
        url.Get(server_.Url("/bytes/300000"), 30, Watch::Cancel, &watch, Watch::Progress, &watch),
        VURL::kCancelled);
    ASSERT_EQ(watch.chunks.size(), cancelAt + 1);
    EXPECT_EQ(watch.progress.size(), cancelAt);
    EXPECT_TRUE(Received(url) == Pattern(cancelAt == 0 ? 0 : watch.chunks[0] + watch.chunks[1]));
  }
}

// The callables are asked and told beside the call's pointers, with the same values, in every
// later transfer; either kind stops it; one replaced from inside applies from the next transfer;
// a copy of the object has copies of them.
TEST_F(VURLTest, CallablesAreAskedAndToldBesideTheCallsPointers) {
  VURL url;
  Watch watch(&url);
  std::vector<size_t> chunks;
  Pairs progress;
  size_t stopAt = SIZE_MAX;
  bool dropProgress = false;
  url.SetCancelFunction([&](size_t bytes) {
    if (bytes != 0) chunks.push_back(bytes);
    return chunks.size() == stopAt;
  });
  url.SetProgressFunction([&](uint64_t done, uint64_t total) {
    progress.emplace_back(done, total);
    if (dropProgress) url.SetProgressFunction(nullptr);
  });
  const std::string address = server_.Url("/bytes/300000");
  ASSERT_EQ(url.Get(address, 30, Watch::Cancel, &watch, Watch::Progress, &watch), 0);
  EXPECT_GT(chunks.size(), 2u);
  EXPECT_EQ(chunks, watch.chunks);
  EXPECT_EQ(progress, watch.progress);
  dropProgress = true;
  progress.clear();
  ASSERT_EQ(Get(url, address), 0);
  EXPECT_GT(progress.size(), 2u);  // told to the end of the transfer that removed it
  stopAt = 2;
  chunks.clear();
  progress.clear();
  EXPECT_EQ(Get(url, address), VURL::kCancelled);
  ASSERT_EQ(chunks.size(), 2u);
  EXPECT_TRUE(progress.empty());
  EXPECT_EQ(Received(url).size(), chunks[0]);
  VURL copy(url);
  url.SetCancelFunction(nullptr);
  chunks.clear();
  EXPECT_EQ(Get(copy, address), VURL::kCancelled);
  chunks.clear();
  EXPECT_EQ(Perform(url, address, 0), 0);
  EXPECT_TRUE(chunks.empty());
  EXPECT_EQ(Received(url), Pattern(300000));
}

// Fourteen transfers at once, each on its own thread with its own object.
TEST_F(VURLConcurrencyTest, ResultsOfErrorsRedirectsCutsTimeOutsAndBadAddresses) {
  using Clock = std::chrono::steady_clock;
  constexpr uint32_t kGet = 0x100;  // Get rather than Perform with these flags
  // A server that takes connections (the system's backlog does) and never answers.
  const Poco::Net::ServerSocket silent = vantu::test::HttpTestServer::Loopback();
  const std::string silentUrl = "http://127.0.0.1:" + std::to_string(silent.address().port());
  const std::tuple<uint32_t, uint32_t, std::string, int, std::string, int, std::string> cases[] = {
      // flags, time-out, a path on the server or a whole address; result, body, status, a part
      // of the error text (none: the text is empty)
      {kGet, 30, "/missing", CURLE_HTTP_RETURNED_ERROR, "", 404, "returned error: 404"},
      {0, 30, "/missing", CURLE_HTTP_RETURNED_ERROR, "", 404, "returned error: 404"},
      {VURL::kKeepErrorBody, 30, "/missing", 0, "missing", 404, ""},
      {kGet, 30, "/hop/3", 0, "", 302, ""},  // Get does not follow redirects; Perform does
      {0, 30, "/hop/3", 0, "landed", 200, ""},
      {0, 30, "/loop", CURLE_TOO_MANY_REDIRECTS, "", 302, "(50) redirects"},
      {kGet, 30, "/cut", CURLE_PARTIAL_FILE, Pattern(40000), 200, "60000 bytes remaining"},
      {kGet, 30, "nonsense://127.0.0.1/", CURLE_UNSUPPORTED_PROTOCOL, "", 0, "http and https"},
      {0, 30, "http://127.0.0.1:99999/", CURLE_URL_MALFORMAT, "", 0, "bad/illegal format"},
      // From a server that never ends: no time-out (either way) runs until cancelled at 2.5 s.
      {kGet, 1, "/stall", CURLE_OPERATION_TIMEDOUT, "", 200, "timed out"},
      {kGet, VURL::kNoTimeout, "/stall", VURL::kCancelled, "", 200, "cancel callback"},
      {kGet, 0, "/stall", VURL::kCancelled, "", 200, "cancel callback"},
      // From one that never answers, cancelled at 2.5 s long before the time-out.
      {kGet, 60, silentUrl, VURL::kCancelled, "", 0, "cancel callback"},
      {VURL::kToFile, 60, silentUrl, VURL::kCancelled, "", 0, "cancel callback"},
  };
  std::vector<std::thread> threads;
  for (const auto& c : cases) {
    threads.emplace_back([&, row = &c] {
      const auto& [flags, timeout, where, result, body, status, text] = *row;
      const bool stalls = where == "/stall" || where == silentUrl;
      const Clock::time_point start = Clock::now();
      Clock::time_point cancel =
          stalls ? start + std::chrono::milliseconds(2500) : Clock::time_point::max();
      auto late = [](void* end, size_t, size_t, VURL*) {
        return Clock::now() > *static_cast<Clock::time_point*>(end);
      };
      VURL url;
      const std::string address = where[0] == '/' ? server_.Url(where) : where;
      const std::string output = dir_ / ("out" + std::to_string(row - cases));
      const int code = flags == kGet ? url.Get(address, timeout, late, &cancel, nullptr, nullptr)
                                     : url.Perform(address, nullptr, output.c_str(), 0, timeout,
                                                   late, &cancel, nullptr, nullptr, flags);
      const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
      const std::string said = url.GetLastErrorText().GetString();
      EXPECT_EQ(std::make_tuple(code, stalls ? "" : Received(url), url.GetResponseCode(),
                                said.find(text) != std::string::npos, said.empty()),
                std::make_tuple(result, body, status, true, text.empty()))
          << where << " flags " << flags << " time-out " << timeout << ": " << said;
      EXPECT_GE(seconds, !stalls ? 0 : timeout == 1 ? 0.9 : 2.5) << timeout;
      EXPECT_LT(seconds, 20) << where << " " << timeout;  // a cancel is heard within a second
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Seen().size(), 3u + 1 + 4 + 51 + 1 + 3);
}

TEST_F(VURLTest, PostSendsTheWholeBlockInPiecesWithoutAnnouncingItsSize) {
  const std::string block = Pattern(100000000);
  VURL url;
  for (size_t cancelAt : {SIZE_MAX, size_t{0}}) {  // the second is cancelled on its first piece
    Watch watch(&url, cancelAt);
    EXPECT_EQ(url.Post(server_.Url("/bytes/0"), block.data(), block.size(), 60, Watch::Cancel,
                       &watch, Watch::Progress, &watch),
              cancelAt == 0 ? VURL::kCancelled : 0);
    EXPECT_TRUE(watch.agree);
    Pairs expected;  // after each piece: (the bytes handed over, the block's size)
    for (size_t i = 0, done = 0; done < block.size() && i < watch.chunks.size() && i != cancelAt;
         ++i) {
      expected.emplace_back(done += std::min(watch.chunks[i], block.size() - done), block.size());
    }
    EXPECT_EQ(watch.progress, expected);
    EXPECT_EQ(url.GetDataSize(), 0u);
  }
  const RequestSeen seen = Seen().at(0);
  EXPECT_EQ(seen.method, "POST");
  EXPECT_EQ(seen.headers.count("Transfer-Encoding: chunked"), 1u);
  EXPECT_TRUE(seen.body == block);
}

TEST_F(VURLTest, PerformSendsTheLinesAndWritesToMemoryOrToAFileItLocks) {
  VURL url;
  const std::string body = Pattern(2 << 20);  // large enough for libcurl to ask for 100-continue
  const std::vector<std::string> lines{"X-One: 1", "X-Two: two"};
  const std::string address = server_.Url("/bytes/50000");
  output_ = dir_ / "out.bin";
  const std::string pathAndBody = output_ + '\0' + body;  // to a file, all of it is the body
  ASSERT_EQ(Perform(url, address, 0, body.data(), body.size(), &lines), 0);
  EXPECT_EQ(Received(url), Pattern(50000));
  EXPECT_EQ(Perform(url, address, VURL::kToFile), VURL::kNoOutputPath);
  EXPECT_EQ(url.GetDataSize(), 0u);  // emptied before the output was looked at
  ASSERT_EQ(
      url.PerformWithHeader(address, "X-Three: 3!", 10, pathAndBody.data(), pathAndBody.size(), 30,
                            nullptr, nullptr, nullptr, nullptr, VURL::kToFile),
      0);
  EXPECT_EQ(FileContent(output_), Pattern(50000));
  EXPECT_FALSE(LockedElsewhere(output_));
  std::ofstream(output_, std::ios::app) << "stale tail";  // a GET into the file truncates it
  ASSERT_EQ(url.PerformSimple(address, output_.c_str(), 0, 30, nullptr, nullptr, nullptr, nullptr,
                              VURL::kToFile),
            0);
  EXPECT_EQ(FileContent(output_), Pattern(50000));
  const std::vector<RequestSeen> seen = Seen();
  ASSERT_EQ(seen.size(), 3u);
  const std::set<std::string> expected[] = {
      {"X-One: 1", "X-Two: two", "Content-Length: 2097152"},
      {"X-Three: 3", "Expect: 100-continue", "Content-Type: application/binary"}};
  for (int i = 0; i < 2; ++i) {
    for (const std::string& line : expected[i]) EXPECT_EQ(seen[i].headers.count(line), 1u) << line;
  }
  EXPECT_EQ(seen[0].headers.count("Expect: 100-continue"), 0u);
  EXPECT_TRUE(seen[0].body == body && seen[1].body == pathAndBody && seen[2].method == "GET");
  EXPECT_TRUE(seen[1].outputLocked && seen[2].outputLocked);
  // A full disk: a reply too short to leave the stdio buffer before the file is closed.
  EXPECT_EQ(Perform(url, server_.Url("/"), VURL::kToFile, "/dev/full"), CURLE_WRITE_ERROR);
  // Outputs that cannot be opened, also one another process holds a flock on, are left alone.
  const std::string held = dir_.Write("held.txt", "keep me");
  const int fd = ::open(held.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  for (const std::string& path : {held, dir_ / "no/dir/out"}) {
    EXPECT_EQ(Perform(url, address, VURL::kToFile, path.c_str()), VURL::kOutputNotOpened);
    EXPECT_NE(url.GetLastErrorText().GetString().find("output file"), std::string::npos);
  }
  ::close(fd);
  EXPECT_EQ(FileContent(held), "keep me");
  EXPECT_EQ(Seen().size(), 4u);
}

TEST_F(VURLTest, WhenLibcurlCannotStartNothingIsSent) {
  VURL url;
  ASSERT_EQ(Get(url, server_.Url("/")), 0);
  failEasy = true;
  EXPECT_EQ(url.Post(server_.Url("/"), "x", 1, 30, nullptr, nullptr, nullptr, nullptr), 100);
  failGlobal = true;
  EXPECT_EQ(Get(url, server_.Url("/")), VURL::kInitFailed);
  EXPECT_EQ(url.GetLastErrorText().GetString(), "libcurl could not start");
  EXPECT_EQ(std::make_pair(url.GetResponseCode(), Seen().size()), std::make_pair(0, size_t{1}));
}

// The fixture's handler also behind https, with a self-signed certificate for 127.0.0.1 made
// with openssl(1).
class VURLTlsTest : public VURLTest {
 protected:
  void SetUp() override {
    VURLTest::SetUp();
    const std::string make =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1 -subj "
        "/CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout " +
        (dir_ / "server.key") + " -out " + (dir_ / "server.pem") + " 2>/dev/null";
    ASSERT_EQ(std::system(make.c_str()), 0);
    tls_ = std::make_unique<vantu::test::HttpTestServer>(
        [this](HTTPServerRequest& request, HTTPServerResponse& response) {
          Serve(request, response);
        },
        Poco::Net::SecureServerSocket(
            {"127.0.0.1", 0}, 64,
            new Poco::Net::Context(Poco::Net::Context::TLS_SERVER_USE, dir_ / "server.key",
                                   dir_ / "server.pem", "", Poco::Net::Context::VERIFY_NONE)),
        "https");
  }
  void TearDown() override {
    tls_.reset();
    VURLTest::TearDown();
  }
  std::unique_ptr<vantu::test::HttpTestServer> tls_;
};

TEST_F(VURLTlsTest, ChainsAreVerifiedOnlyWhenAskedAndHostNamesAlways) {
  VURL url;
  const std::tuple<bool, std::string, std::string, int, std::string> cases[] = {
      // verify, bundle, host; result, a part of the error text
      {false, dir_ / "none.pem", "127.0.0.1", 0, ""},  // the bundle is not consulted
      {false, "", "localhost", CURLE_PEER_FAILED_VERIFICATION, "'localhost'"},
      {true, dir_ / "none.pem", "127.0.0.1", CURLE_SSL_CACERT_BADFILE, "none.pem"},
      {true, "", "127.0.0.1", CURLE_PEER_FAILED_VERIFICATION,
       "self-signed"},  // not in libcurl's store
      {true, dir_ / "server.pem", "127.0.0.1", 0, ""}};
  for (const auto& [verify, bundle, host, result, text] : cases) {
    url.SetVerifyPeer(verify);
    url.SetCABundle(VPath(bundle));
    std::string address = tls_->Url("/");
    address.replace(address.find("127.0.0.1"), 9, host);
    EXPECT_EQ(Get(url, address), result) << verify << " " << bundle << " " << host;
    const std::string said = url.GetLastErrorText().GetString();
    EXPECT_TRUE(said.find(text) != std::string::npos && said.empty() == text.empty()) << said;
    EXPECT_EQ(Received(url), result == 0 ? "answer to /" : "");
  }
}

// A thread's transfers, by any of its objects, reuse a connection to the same server only with
// the same TLS settings: a verifying transfer never takes one made without verifying (it fails
// as a fresh one would). A forked child makes connections of its own and leaves the parent's.
TEST_F(VURLTlsTest, ConnectionsAreReusedOnlyWithTheSameTlsSettings) {
  const std::string pem = dir_ / "server.pem", https = tls_->Url("/kept");
  const std::string http = server_.Url("/kept");
  const std::tuple<int, std::string, bool, std::string, int, int> steps[] = {
      // object, address, verify, bundle; result, the connection of step n (-1: a new one)
      {0, https, false, "", 0, -1},
      {1, https, false, "", 0, 0},
      {0, https, true, "", CURLE_PEER_FAILED_VERIFICATION, -1},
      {0, https, true, pem, 0, -1},
      {1, https, true, pem, 0, 3},
      {1, https, false, "", 0, 0},
      {0, http, false, "", 0, -1},
      {1, http, true, pem, 0, 6}};  // no TLS: the verification settings do not matter
  std::thread([&] {  // a thread of its own: it starts with no connection and closes its own
    VURL urls[2];
    std::vector<uint16_t> ports;
    for (const auto& [object, address, verify, bundle, result, connection] : steps) {
      urls[object].SetVerifyPeer(verify);
      urls[object].SetCABundle(VPath(bundle));
      const size_t before = Seen().size();
      EXPECT_EQ(Get(urls[object], address), result) << ports.size();
      const std::vector<RequestSeen> seen = Seen();
      ports.push_back(seen.size() > before ? seen.back().port : 0);
      if (result != 0) continue;
      if (connection < 0) {
        EXPECT_EQ(std::count(ports.begin(), ports.end(), ports.back()), 1) << ports.size();
      } else {
        EXPECT_EQ(ports.back(), ports[connection]) << ports.size();
      }
    }
    const uint16_t parent = ports[0];
    EXPECT_TRUE(vantu::test::InChild([&] { return Get(urls[0], https) == 0; }));
    EXPECT_NE(Seen().back().port, parent);
    ASSERT_EQ(Get(urls[0], https), 0);  // the parent's connection still serves it
    EXPECT_EQ(Seen().back().port, parent);
  })
      .join();
}

// Refused before any connection: other schemes and header lines with CR, LF or NUL. Followed:
// 307 and 308 with the body sent again; redirects to http or https only, never down from https.
TEST_F(VURLTlsTest, RefusesOtherSchemesDowngradesAndBrokenHeaderLines) {
  const std::string body = Pattern(100000), http = server_.Url(""), https = tls_->Url("");
  const std::string refused = "only http and https", broken = "CR, LF or NUL";
  const std::tuple<bool, std::string, std::string, int, std::string, size_t> cases[] = {
      // Get or Perform (with the body), the address ("{L}": a listener that must see no
      // connection), a header line; result, a part of the error text, requests that arrive
      {true, "file:///etc/hostname", "", CURLE_UNSUPPORTED_PROTOCOL, refused, 0},
      {true, "dict://{L}/d", "", CURLE_UNSUPPORTED_PROTOCOL, refused, 0},
      {false, "http://{L}/", "X-A: 1\r\nX-B: 2", CURLE_BAD_FUNCTION_ARGUMENT, broken, 0},
      {false, "http://{L}/", "X-A: 1\nX-B: 2", CURLE_BAD_FUNCTION_ARGUMENT, broken, 0},
      {false, "http://{L}/", "X-A: 1\r", CURLE_BAD_FUNCTION_ARGUMENT, broken, 0},
      {false, "http://{L}/", std::string("X-A: 1\0X-B: 2", 13), CURLE_BAD_FUNCTION_ARGUMENT, broken,
       0},
      {false, http + "/go/302?ftp://{L}/f", "", CURLE_UNSUPPORTED_PROTOCOL, "\"ftp\"", 1},
      {false, http + "/go/302?file:///etc/hostname", "", CURLE_UNSUPPORTED_PROTOCOL, "\"file\"", 1},
      {false, https + "/go/302?http://{L}/go/302?" + https + "/bytes/5", "",
       CURLE_UNSUPPORTED_PROTOCOL, "\"http\"", 1},
      {false, http + "/go/302?" + https + "/go/302?" + http + "/bytes/5", "",
       CURLE_UNSUPPORTED_PROTOCOL, "https to http", 2},
      {false, http + "/go/307?/bytes/5", "", 0, "", 2},
      {false, http + "/go/308?/bytes/5", "", 0, "", 2},
      {false, https + "/go/308?/bytes/5", "", 0, "", 2},
  };
  for (const auto& [get, where, header, result, text, requests] : cases) {
    const Poco::Net::ServerSocket listener = vantu::test::HttpTestServer::Loopback();
    std::string address = where;
    const size_t at = address.find("{L}");
    if (at != std::string::npos) {
      address.replace(at, 3, "127.0.0.1:" + std::to_string(listener.address().port()));
    }
    const size_t before = Seen().size();
    VURL url;
    const int code =
        get ? url.Get(address, 5, nullptr, nullptr, nullptr, nullptr)
            : url.PerformWithHeader(address, header.data(), header.size(), body.data(), body.size(),
                                    5, nullptr, nullptr, nullptr, nullptr, 0);
    const std::string said = url.GetLastErrorText().GetString();
    const std::vector<RequestSeen> seen = Seen();
    EXPECT_EQ(
        std::make_tuple(code, said.find(text) != std::string::npos, said.empty(),
                        seen.size() - before, Received(url),
                        listener.poll(Poco::Timespan(0), Poco::Net::Socket::SELECT_READ)),
        std::make_tuple(result, true, text.empty(), requests, result == 0 ? Pattern(5) : "", false))
        << address << " " << said;
    if (result == 0) {  // the body arrived again at the second location
      EXPECT_TRUE(seen.back().uri == "/bytes/5" && seen.back().method == "POST" &&
                  seen.back().body == body);
    }
  }
}

// When growth fails, the held bytes are dropped for a fresh block of the rule's first size.
TEST(ReceiveBufferTest, AFailedGrowthDropsTheHeldBytesForAFreshBlock) {
  vantu::internal::ReceiveBuffer buffer(30000);  // no capacity above 30000 can be had
  ASSERT_TRUE(buffer.Append(Pattern(20000).data(), 20000));
  EXPECT_EQ(buffer.Capacity(), 20480u);
  // 35000 would need 40960: the 20000 bytes are lost, the new ones get 20480.
  const std::string fresh(15000, 'n');
  ASSERT_TRUE(buffer.Append(fresh.data(), fresh.size()));
  EXPECT_EQ(buffer.Capacity(), 20480u);
  EXPECT_EQ(std::string(buffer.Data(), buffer.Length()), fresh);
  // Neither 51200 nor the fallback's 30720 can be had: nothing is left.
  EXPECT_FALSE(buffer.Append(Pattern(30000).data(), 30000));
  EXPECT_EQ(buffer.Data(), nullptr);
  EXPECT_EQ(buffer.Capacity(), 0u);
  ASSERT_TRUE(buffer.Append("x", 1));
  EXPECT_EQ(buffer.Capacity(), 10240u);
}

TEST(VURLLayoutTest, TransferOperationsTakeSlotsThreeToNine) {
  // Entries: the destructor (slot 1) takes two; an appended operation comes right after slot 9,
  // so the additions are not virtual.
  using vantu::test::TableEntry;
  EXPECT_EQ(std::vector<std::ptrdiff_t>(
                {TableEntry(&VURL::GetClassName), TableEntry(&VURL::Clone), TableEntry(&VURL::Get),
                 TableEntry(&VURL::Post), TableEntry(&VURL::Perform),
                 TableEntry(&VURL::PerformWithHeader), TableEntry(&VURL::PerformSimple),
                 TableEntry(&VURL::GetData), TableEntry(&VURL::GetDataSize),
                 TableEntry(&vantu::test::Extended<VURL>::Appended)}),
            (std::vector<std::ptrdiff_t>{0, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
}

}  // namespace
