// VURL runs one blocking HTTP(S) transfer per call over libcurl. This demo downloads a page
// from a one-request server of its own on 127.0.0.1, so it needs no network.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>

#include <vantu/VURL.h>

int main() {
  const int server = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);  // port 0: the system picks a free one
  socklen_t size = sizeof address;
  if (bind(server, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(server, 1) != 0 ||
      getsockname(server, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    return 1;
  std::thread serve([server] {  // answers one request
    const int client = accept(server, nullptr, nullptr);
    std::string request;
    char buffer[1024];
    ssize_t got = 0;
    while (request.find("\r\n\r\n") == std::string::npos &&
           (got = recv(client, buffer, sizeof buffer, 0)) > 0)
      request.append(buffer, static_cast<size_t>(got));
    const std::string response =
        "HTTP/1.1 200 OK\r\nContent-Length: 6\r\nConnection: close\r\n\r\nhello\n";
    send(client, response.data(), response.size(), MSG_NOSIGNAL);
    close(client);
  });

  VURL url;
  const std::string page = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
  const int code = url.Get(page, 10, nullptr, nullptr, nullptr, nullptr);  // 10 s at most
  std::printf("%s: code %d, HTTP %d, %llu bytes: %.*s", page.c_str(), code, url.GetResponseCode(),
              static_cast<unsigned long long>(url.GetDataSize()),
              static_cast<int>(url.GetDataSize()), url.GetData());
  serve.join();
  close(server);
  return code == 0 ? 0 : 1;
}
