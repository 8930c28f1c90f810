// HTTP transfers against a POCO server on loopback, beside curl(1) and plain libcurl on the
// same server in the same run:
//   - downloads of 64 MiB, 256 MiB and 1 GiB into memory (a new object each time, so the
//     buffer grows from nothing; and a reused object, whose buffer has grown already) beside
//     `curl -s -o /dev/null`;
//   - 1,000 sequential GETs of 1 KiB, over http and over https (a self-signed certificate made
//     with openssl(1); no side verifies the chain), beside a libcurl loop that reuses one easy
//     handle, and one with a fresh easy handle per request, both setting the options VURL sets;
//   - a 100 MB Post beside `curl --data-binary @file`.
#include <Poco/Exception.h>
#include <Poco/Net/Context.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
#include <Poco/Net/SecureServerSocket.h>
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include <vantu/VURL.h>

#include "support/HttpTestServer.h"
#include "support/TempDir.h"

namespace {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

constexpr size_t kPostSize = 100000000;

// Sends bytes straight to the connection, without the response stream's buffer. False once the
// client has gone.
bool SendRaw(HTTPServerRequest& request, const char* bytes, size_t n) {
  Poco::Net::StreamSocket& socket =
      static_cast<Poco::Net::HTTPServerRequestImpl&>(request).socket();
  try {
    while (n > 0) {
      const int sent = socket.sendBytes(bytes, static_cast<int>(n));
      if (sent <= 0) return false;
      bytes += sent;
      n -= static_cast<size_t>(sent);
    }
  } catch (const Poco::Exception&) {
    return false;
  }
  return true;
}

// Starts a "200 OK" response of `length` body bytes for SendRaw; the connection closes after it.
bool SendHead(HTTPServerRequest& request, HTTPServerResponse& response, uint64_t length) {
  response.setKeepAlive(false);
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(length) +
                           "\r\nConnection: close\r\n\r\n";
  return SendRaw(request, head.data(), head.size());
}

// GET /bytes/<n>: n bytes in 1 MiB writes. GET /small: 1 KiB. POST /sink: reads the body.
void Serve(HTTPServerRequest& request, HTTPServerResponse& response) {
  static const std::string block(1 << 20, 'v');
  const std::string path = request.getURI();
  if (path.rfind("/bytes/", 0) == 0) {
    size_t left = std::stoull(path.substr(7));
    if (!SendHead(request, response, left)) return;
    while (left > 0) {
      const size_t n = std::min(left, block.size());
      if (!SendRaw(request, block.data(), n)) return;
      left -= n;
    }
  } else if (path == "/small") {
    response.sendBuffer(block.data(), 1024);
  } else {
    std::istream& in = request.stream();
    std::string sink(1 << 20, '\0');
    while (in.read(sink.data(), static_cast<std::streamsize>(sink.size())) || in.gcount() > 0) {
    }
    response.setContentLength(0);
    response.send();
  }
}

vantu::test::HttpTestServer& Server() {
  static vantu::test::HttpTestServer server(Serve);
  return server;
}

std::string BytesUrl(const benchmark::State& state) {
  return Server().Url("/bytes/" + std::to_string(state.range(0) << 20));
}

void RunCurl(benchmark::State& state, const std::string& arguments) {
  const std::string command = "curl -s -o /dev/null " + arguments;
  if (std::system(command.c_str()) != 0) state.SkipWithError(("failed: " + command).c_str());
}

void BM_VURLGetNewObject(benchmark::State& state) {
  const std::string url = BytesUrl(state);
  for (auto _ : state) {
    VURL transfer;
    if (transfer.Get(url, VURL::kNoTimeout, nullptr, nullptr, nullptr, nullptr) != 0) {
      state.SkipWithError("transfer failed");
    }
  }
  state.SetBytesProcessed(state.iterations() * (state.range(0) << 20));
}

void BM_VURLGetReusedObject(benchmark::State& state) {
  const std::string url = BytesUrl(state);
  VURL transfer;
  transfer.Get(url, VURL::kNoTimeout, nullptr, nullptr, nullptr, nullptr);  // grows the buffer
  for (auto _ : state) {
    if (transfer.Get(url, VURL::kNoTimeout, nullptr, nullptr, nullptr, nullptr) != 0) {
      state.SkipWithError("transfer failed");
    }
  }
  state.SetBytesProcessed(state.iterations() * (state.range(0) << 20));
}

void BM_CurlToDevNull(benchmark::State& state) {
  const std::string url = BytesUrl(state);
  for (auto _ : state) RunCurl(state, url);
  state.SetBytesProcessed(state.iterations() * (state.range(0) << 20));
}

#define VANTU_DOWNLOAD_SIZES(bench)                                                   \
  BENCHMARK(bench)->Arg(64)->Arg(256)->Arg(1024)->Iterations(3)->UseRealTime()->Unit( \
      benchmark::kMillisecond)
VANTU_DOWNLOAD_SIZES(BM_CurlToDevNull);
VANTU_DOWNLOAD_SIZES(BM_VURLGetNewObject);
VANTU_DOWNLOAD_SIZES(BM_VURLGetReusedObject);

// The same handler behind https, with a certificate for 127.0.0.1 made once per run.
vantu::test::HttpTestServer& TlsServer() {
  static vantu::test::TempDir dir;
  static vantu::test::HttpTestServer server = [] {
    const std::string make =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1 -subj "
        "/CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout " +
        (dir / "server.key") + " -out " + (dir / "server.pem") + " 2>/dev/null";
    if (std::system(make.c_str()) != 0) std::abort();
    return vantu::test::HttpTestServer(
        Serve,
        Poco::Net::SecureServerSocket(
            {"127.0.0.1", 0}, 64,
            new Poco::Net::Context(Poco::Net::Context::TLS_SERVER_USE, dir / "server.key",
                                   dir / "server.pem", "", Poco::Net::Context::VERIFY_NONE)),
        "https");
  }();
  return server;
}

// Argument 0: http; 1: https.
std::string SmallUrl(const benchmark::State& state) {
  return (state.range(0) == 0 ? Server() : TlsServer()).Url("/small");
}

void BM_VURLSmallGets(benchmark::State& state) {
  const std::string url = SmallUrl(state);
  VURL transfer;
  for (auto _ : state) {
    for (int i = 0; i < 1000; ++i) {
      if (transfer.Get(url, 30, nullptr, nullptr, nullptr, nullptr) != 0) {
        state.SkipWithError("transfer failed");
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_VURLSmallGets)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

size_t AppendTo(char* bytes, size_t size, size_t count, void* text) {
  static_cast<std::string*>(text)->append(bytes, size * count);
  return size * count;
}

// The options VURL's Get sets that cost anything: the output, failing on HTTP errors, the time-out
// and, over https, the host name checked but not the chain.
void SetOptions(CURL* easy, const std::string& url, std::string& body) {
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &AppendTo);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(easy, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT, 30L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 0L);
}

// A fresh easy handle per request (`reuse` false), or one easy handle for all of them.
void LibcurlSmallGets(benchmark::State& state, bool reuse) {
  const std::string url = SmallUrl(state);
  curl_global_init(CURL_GLOBAL_ALL);
  std::string body;
  CURL* easy = reuse ? curl_easy_init() : nullptr;
  for (auto _ : state) {
    for (int i = 0; i < 1000; ++i) {
      if (!reuse) easy = curl_easy_init();
      body.clear();
      SetOptions(easy, url, body);
      if (curl_easy_perform(easy) != CURLE_OK) state.SkipWithError("transfer failed");
      if (!reuse) curl_easy_cleanup(easy);
    }
  }
  if (reuse) curl_easy_cleanup(easy);
  curl_global_cleanup();
  state.SetItemsProcessed(state.iterations() * 1000);
}
void BM_LibcurlSmallGets(benchmark::State& state) { LibcurlSmallGets(state, false); }
void BM_LibcurlSmallGetsReusedHandle(benchmark::State& state) { LibcurlSmallGets(state, true); }
BENCHMARK(BM_LibcurlSmallGets)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibcurlSmallGetsReusedHandle)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

const std::string& PostBlock() {
  static const std::string block(kPostSize, 'v');
  return block;
}

void BM_VURLPost(benchmark::State& state) {
  const std::string url = Server().Url("/sink");
  const std::string& block = PostBlock();
  VURL transfer;
  for (auto _ : state) {
    if (transfer.Post(url, block.data(), block.size(), 60, nullptr, nullptr, nullptr, nullptr) !=
        0) {
      state.SkipWithError("transfer failed");
    }
  }
  state.SetBytesProcessed(state.iterations() * kPostSize);
}
BENCHMARK(BM_VURLPost)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_CurlPostFile(benchmark::State& state) {
  vantu::test::TempDir dir;
  const std::string file = dir / "post.bin";
  std::ofstream(file, std::ios::binary).write(PostBlock().data(), kPostSize);
  for (auto _ : state) RunCurl(state, "--data-binary @" + file + " " + Server().Url("/sink"));
  state.SetBytesProcessed(state.iterations() * kPostSize);
}
BENCHMARK(BM_CurlPostFile)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
