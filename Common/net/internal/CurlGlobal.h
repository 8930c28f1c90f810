// libcurl's global state, shared by every transfer of the process.
#ifndef VANTU_NET_INTERNAL_CURLGLOBAL_H
#define VANTU_NET_INTERNAL_CURLGLOBAL_H

#include <curl/curl.h>

namespace vantu::internal {

// The libcurl calls that begin and end a transfer. Tests replace them to reach the paths where
// libcurl cannot start, and to count what each path releases; nothing else changes them.
struct CurlEntryPoints {
  CURLcode (*globalInit)(long flags) = curl_global_init;
  void (*globalCleanup)() = curl_global_cleanup;
  CURL* (*easyInit)() = curl_easy_init;
  void (*easyCleanup)(CURL* easy) = curl_easy_cleanup;
};
CurlEntryPoints& CurlEntries();

// One transfer's reference to libcurl's global state: curl_global_init with every feature when
// constructed, curl_global_cleanup when destroyed if the init succeeded. libcurl counts these
// references. The first scope of the process also takes one reference of the library's own,
// kept until the process exits, so that the per-transfer pair only counts and the global (TLS)
// state is built once. Thread-safe where libcurl's global init is (libcurl 7.84 and later).
class CurlGlobalScope {
 public:
  CurlGlobalScope();
  ~CurlGlobalScope();
  CurlGlobalScope(const CurlGlobalScope&) = delete;
  CurlGlobalScope& operator=(const CurlGlobalScope&) = delete;

  bool Ready() const { return ready_; }

 private:
  bool ready_;
};

// The calling thread's libcurl share: the connections its transfers left open, with the DNS
// answers and TLS sessions that go with them, so that one transfer after another to the same
// server, by any object on this thread, skips the connection set-up. libcurl reuses a connection
// only for a transfer whose connection settings match (host, port, proxy, TLS options: a transfer
// that verifies the chain never takes a connection made without verifying, nor one made against
// another CA file), and request settings (headers, method, body) are per request. The share is
// per thread because libcurl (7.88) does not support sharing connections between concurrent
// threads; the thread's share closes its connections when the thread ends. A process forked from
// this thread starts a share of its own and never touches the parent's connections. Null when
// libcurl cannot make one: the transfer then runs unshared. Call it within a CurlGlobalScope.
CURLSH* ThreadShare();

}  // namespace vantu::internal

#endif  // VANTU_NET_INTERNAL_CURLGLOBAL_H
