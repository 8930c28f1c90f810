#include "net/internal/CurlGlobal.h"

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

}  // namespace

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
