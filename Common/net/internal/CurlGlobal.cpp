#include "net/internal/CurlGlobal.h"

#include <vector>

#include "platform/Process.h"

namespace vantu::internal {
namespace {

// The library's own reference, released when the process exits.
class ProcessReference {
 public:
  ProcessReference() : held_(curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK) {}
  ~ProcessReference() {
    if (held_) curl_global_cleanup();
  }
  ProcessReference(const ProcessReference&) = delete;
  ProcessReference& operator=(const ProcessReference&) = delete;

 private:
  bool held_;
};

// A thread's share, made at its first transfer and cleaned up when the thread ends.
class Share {
 public:
  Share() = default;
  ~Share() {
    if (share_ != nullptr) curl_share_cleanup(share_);
  }
  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;

  CURLSH* Get() {
    const unsigned long generation = vantu::platform::ForkGeneration();
    if (share_ != nullptr && generation != generation_) {
      // Inherited through a fork: its connections are the parent's, and closing one here could
      // write to the parent's stream (a TLS close). Kept reachable and never used again.
      static std::vector<CURLSH*>* const inherited = new std::vector<CURLSH*>;
      inherited->push_back(share_);
      share_ = nullptr;
    }
    if (share_ == nullptr) {
      share_ = Make();
      generation_ = generation;
    }
    return share_;
  }

 private:
  static CURLSH* Make() {
    CURLSH* share = curl_share_init();
    if (share == nullptr) return nullptr;
    for (const curl_lock_data data :
         {CURL_LOCK_DATA_CONNECT, CURL_LOCK_DATA_DNS, CURL_LOCK_DATA_SSL_SESSION}) {
      if (curl_share_setopt(share, CURLSHOPT_SHARE, data) != CURLSHE_OK) {
        curl_share_cleanup(share);
        return nullptr;
      }
    }
    return share;
  }

  CURLSH* share_ = nullptr;
  unsigned long generation_ = 0;
};

}  // namespace

CURLSH* ThreadShare() {
  thread_local Share share;
  return share.Get();
}

CurlEntryPoints& CurlEntries() {
  static CurlEntryPoints entries;
  return entries;
}

CurlGlobalScope::CurlGlobalScope() {
  static const ProcessReference processReference;
  ready_ = CurlEntries().globalInit(CURL_GLOBAL_ALL) == CURLE_OK;
}

CurlGlobalScope::~CurlGlobalScope() {
  if (ready_) CurlEntries().globalCleanup();
}

}  // namespace vantu::internal
