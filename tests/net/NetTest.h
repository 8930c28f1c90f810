// Helpers shared by the transfer tests.
#ifndef VANTU_TESTS_NET_NETTEST_H
#define VANTU_TESTS_NET_NETTEST_H

#include <Poco/Checksum.h>
#include <Poco/Exception.h>

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include <vantu/VURL.h>

#include "support/HttpTestServer.h"

namespace vantu::test {

// n bytes that differ from one position to the next, starting at position `offset`.
inline std::string Pattern(size_t n, size_t offset = 0) {
  std::string bytes(n, '\0');
  for (size_t i = 0; i < n; ++i) {
    bytes[i] = static_cast<char>(((i + offset) * 2654435761u) >> 13);
  }
  return bytes;
}

// The calls most tests make: no callbacks, a time-out of 30 s.
inline int Get(VURL& url, const std::string& address) {
  return url.Get(address, 30, nullptr, nullptr, nullptr, nullptr);
}
inline int Perform(VURL& url, const std::string& address, uint32_t flags,
                   const char* dataOrPath = nullptr, uint64_t size = 0,
                   const std::vector<std::string>* headers = nullptr) {
  return url.Perform(address, headers, dataOrPath, size, 30, nullptr, nullptr, nullptr, nullptr,
                     flags);
}
inline std::string Received(const VURL& url) {
  return std::string(url.GetData(), url.GetDataSize());
}

inline uint32_t Crc(const char* bytes, size_t n) {
  Poco::Checksum crc(Poco::Checksum::TYPE_CRC32);
  crc.update(bytes, static_cast<unsigned>(n));
  return crc.checksum();
}

// Size and CRC-32 of a request body, read to its end.
struct BodySeen {
  uint64_t size = 0;
  uint32_t crc = 0;
};
inline BodySeen ReadBody(std::istream& in) {
  Poco::Checksum crc(Poco::Checksum::TYPE_CRC32);
  BodySeen seen;
  std::string block(1 << 16, '\0');
  while (in.read(block.data(), static_cast<std::streamsize>(block.size())) || in.gcount() > 0) {
    crc.update(block.data(), static_cast<unsigned>(in.gcount()));
    seen.size += static_cast<uint64_t>(in.gcount());
  }
  seen.crc = crc.checksum();
  return seen;
}

// Sends bytes straight to the connection: one piece of up to 64 KiB reaches the client whole.
// False once the client has gone.
inline bool SendRaw(Poco::Net::HTTPServerRequest& request, const char* bytes, size_t n) {
  Poco::Net::StreamSocket& socket = HttpTestServer::SocketOf(request);
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

// Starts a "200 OK" response of `length` body bytes by hand, so the body can follow in pieces
// of the handler's choosing through SendRaw. The connection closes after it.
inline bool SendHead(Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response,
                     uint64_t length) {
  response.setKeepAlive(false);
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(length) +
                           "\r\nConnection: close\r\n\r\n";
  return SendRaw(request, head.data(), head.size());
}

}  // namespace vantu::test

#endif  // VANTU_TESTS_NET_NETTEST_H
