// An HTTP server inside the test process, on 127.0.0.1 with a port the system picks, for tests
// and benchmarks of the transfer classes.
#ifndef VANTU_TESTS_SUPPORT_HTTPTESTSERVER_H
#define VANTU_TESTS_SUPPORT_HTTPTESTSERVER_H

#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/ThreadPool.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace vantu::test {

class HttpTestServer {
 public:
  using Handler =
      std::function<void(Poco::Net::HTTPServerRequest&, Poco::Net::HTTPServerResponse&)>;

  static Poco::Net::ServerSocket Loopback() {
    return Poco::Net::ServerSocket(Poco::Net::SocketAddress("127.0.0.1", 0));
  }

  // Serves every request with `handler` on the server's threads. `socket` may be a
  // Poco::Net::SecureServerSocket, with `scheme` "https".
  explicit HttpTestServer(Handler handler, Poco::Net::ServerSocket socket = Loopback(),
                          std::string scheme = "http")
      : handler_(std::move(handler)),
        scheme_(std::move(scheme)),
        port_(socket.address().port()),
        pool_(2, 32) {
    // A handler writing to a connection the client has closed gets an error, not a signal.
    std::signal(SIGPIPE, SIG_IGN);
    auto* params = new Poco::Net::HTTPServerParams;
    params->setMaxThreads(32);
    params->setMaxQueued(256);
    server_ = std::make_unique<Poco::Net::HTTPServer>(new Factory(*this), pool_, socket, params);
    server_->start();
  }

  // Wakes every handler still waiting in Await, then stops the server.
  ~HttpTestServer() {
    Change([this] { closing_ = true; });
    server_->stopAll(true);
    server_.reset();
    pool_.joinAll();
  }
  HttpTestServer(const HttpTestServer&) = delete;
  HttpTestServer& operator=(const HttpTestServer&) = delete;

  std::string Url(const std::string& path) const {
    return scheme_ + "://127.0.0.1:" + std::to_string(port_) + path;
  }
  int Requests() const { return requests_; }

  // Shared state between handlers and the test: Change runs `change` under the server's lock
  // and wakes every waiter; Await waits (at most `limit`) until `ready()` holds under that lock
  // or the server closes, and answers `ready()`.
  template <typename F>
  void Change(F change) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      change();
    }
    changed_.notify_all();
  }
  template <typename P>
  bool Await(P ready, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, limit, [&] { return closing_ || ready(); });
    return ready();
  }

  // The connection under a request, for handlers that cut it short.
  static Poco::Net::StreamSocket& SocketOf(Poco::Net::HTTPServerRequest& request) {
    return static_cast<Poco::Net::HTTPServerRequestImpl&>(request).socket();
  }

 private:
  class Call : public Poco::Net::HTTPRequestHandler {
   public:
    explicit Call(HttpTestServer& server) : server_(server) {}
    void handleRequest(Poco::Net::HTTPServerRequest& request,
                       Poco::Net::HTTPServerResponse& response) override {
      ++server_.requests_;
      server_.handler_(request, response);
    }

   private:
    HttpTestServer& server_;
  };
  class Factory : public Poco::Net::HTTPRequestHandlerFactory {
   public:
    explicit Factory(HttpTestServer& server) : server_(server) {}
    Poco::Net::HTTPRequestHandler* createRequestHandler(
        const Poco::Net::HTTPServerRequest&) override {
      return new Call(server_);
    }

   private:
    HttpTestServer& server_;
  };

  Handler handler_;
  std::string scheme_;
  Poco::UInt16 port_;
  Poco::ThreadPool pool_;
  std::unique_ptr<Poco::Net::HTTPServer> server_;
  std::atomic<int> requests_{0};
  std::mutex mutex_;
  std::condition_variable changed_;
  bool closing_ = false;
};

}  // namespace vantu::test

#endif  // VANTU_TESTS_SUPPORT_HTTPTESTSERVER_H
