// An HTTP server inside the test process, on 127.0.0.1 with a port the system picks, for tests
// and benchmarks of the transfer classes.
#ifndef VANTU_TESTS_SUPPORT_HTTPTESTSERVER_H
#define VANTU_TESTS_SUPPORT_HTTPTESTSERVER_H

#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/ThreadPool.h>

#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace vantu::test {

class HttpTestServer {
 public:
  using Request = Poco::Net::HTTPServerRequest;
  using Response = Poco::Net::HTTPServerResponse;
  using Handler = std::function<void(Request&, Response&)>;

  static Poco::Net::ServerSocket Loopback() { return Poco::Net::ServerSocket({"127.0.0.1", 0}); }

  // Serves every request with `handler` on the server's threads. `socket` may be a
  // Poco::Net::SecureServerSocket, with `scheme` "https".
  explicit HttpTestServer(Handler handler, Poco::Net::ServerSocket socket = Loopback(),
                          const std::string& scheme = "http")
      : handler_(std::move(handler)),
        url_(scheme + "://127.0.0.1:" + std::to_string(socket.address().port())) {
    // A handler writing to a connection the client has closed gets an error, not a signal.
    std::signal(SIGPIPE, SIG_IGN);
    server_ = std::make_unique<Poco::Net::HTTPServer>(new Factory(*this), pool_, socket,
                                                      new Poco::Net::HTTPServerParams);
    server_->start();
  }
  ~HttpTestServer() {
    server_->stopAll(true);
    server_.reset();
    pool_.joinAll();
  }

  std::string Url(const std::string& path) const { return url_ + path; }

 private:
  // Hands out a copy of itself as the handler of each request.
  struct Factory : Poco::Net::HTTPRequestHandlerFactory, Poco::Net::HTTPRequestHandler {
    explicit Factory(HttpTestServer& server) : server(server) {}
    Poco::Net::HTTPRequestHandler* createRequestHandler(const Request&) override {
      return new Factory(server);
    }
    void handleRequest(Request& request, Response& response) override {
      server.handler_(request, response);
    }
    HttpTestServer& server;
  };

  Handler handler_;
  std::string url_;
  Poco::ThreadPool pool_{2, 32};
  std::unique_ptr<Poco::Net::HTTPServer> server_;
};

}  // namespace vantu::test

#endif  // VANTU_TESTS_SUPPORT_HTTPTESTSERVER_H
