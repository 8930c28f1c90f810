#include <vantu/VURL.h>

#include <curl/curl.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <utility>

#include "internal/CurlGlobal.h"
#include "internal/PathText.h"
#include "internal/ReceiveBuffer.h"
#include "platform/Platform.h"

using vantu::internal::CurlEntries;

// The object's fields, in the order of the transfer's data, then the additions.
struct VURL::State {
  vantu::internal::ReceiveBuffer received;
  const char* upload = nullptr;
  uint64_t uploadPosition = 0;
  uint64_t uploadSize = 0;
  bool aborted = false;
  CancelCallback cancel = nullptr;
  void* cancelUserData = nullptr;
  ProgressCallback progress = nullptr;
  void* progressUserData = nullptr;
  bool verifyPeer = false;
  VPath caBundle;
  int responseCode = 0;
};

// One transfer: libcurl's global reference and easy handle, the header list and the output
// file, all released on every path; and the callbacks libcurl calls.
struct VURL::Transfer {
  explicit Transfer(VURL& url) : url(url) {
    url.state_->responseCode = 0;
    if (global.Ready()) easy = CurlEntries().easyInit();
  }
  ~Transfer() {
    if (easy != nullptr) CurlEntries().easyCleanup(easy);
    curl_slist_free_all(headers);
    if (file != nullptr) std::fclose(file);
  }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  bool Ready() const { return easy != nullptr; }

  // The options every transfer sets.
  void SetCommon(const std::string& address, uint32_t timeout, bool failOnError) {
    curl_easy_setopt(easy, CURLOPT_URL, address.c_str());
    curl_easy_setopt(easy, CURLOPT_FAILONERROR, failOnError ? 1L : 0L);
    if (timeout != kNoTimeout) {
      // libcurl refuses more than INT_MAX / 1000 seconds (24.8 days): such time-outs get that.
      const uint32_t seconds = std::min<uint32_t>(timeout, INT_MAX / 1000);
      curl_easy_setopt(easy, CURLOPT_TIMEOUT, static_cast<long>(seconds));
    }
    const State& state = *url.state_;
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, state.verifyPeer ? 1L : 0L);
    if (state.verifyPeer && state.caBundle.Length() != 0) {
      curl_easy_setopt(easy, CURLOPT_CAINFO, vantu::internal::PathBytes(state.caBundle).c_str());
    }
  }

  void WriteToMemory() {
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Transfer::MemoryWriter);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &url);
  }

  // False when libcurl has no memory for the line.
  bool AppendHeader(const std::string& line) {
    curl_slist* longer = curl_slist_append(headers, line.c_str());
    if (longer == nullptr) return false;
    headers = longer;
    return true;
  }

  int Run() {
    CURLcode result = curl_easy_perform(easy);
    long status = 0;
    if (curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status) == CURLE_OK) {
      url.state_->responseCode = static_cast<int>(status);
    }
    // The bytes still buffered reach the file now; failing there (a full disk) fails the write.
    if (file != nullptr && std::fclose(std::exchange(file, nullptr)) != 0 && result == CURLE_OK) {
      result = CURLE_WRITE_ERROR;
    }
    return url.state_->aborted ? kCancelled : static_cast<int>(result);
  }

  // Asks the cancel callback; true (and aborted set) when it stops the transfer.
  static bool Cancelled(VURL& url, size_t size, size_t count) {
    State& state = *url.state_;
    if (state.cancel == nullptr || !state.cancel(state.cancelUserData, size * count, count, &url)) {
      return false;
    }
    state.aborted = true;
    return true;
  }

  static size_t MemoryWriter(char* bytes, size_t size, size_t count, void* object) {
    VURL& url = *static_cast<VURL*>(object);
    State& state = *url.state_;
    const size_t n = size * count;
    if (n == 0) return 0;
    // A value other than n: libcurl stops with a write error.
    if (Cancelled(url, size, count)) return 0x10000000;
    if (!state.received.Append(bytes, n)) return 0;
    if (state.progress != nullptr) {
      state.progress(state.received.Length(), state.received.Capacity(), state.progressUserData);
    }
    return n;
  }

  static size_t FileWriter(char* bytes, size_t size, size_t count, void* file) {
    return std::fwrite(bytes, size, count, static_cast<std::FILE*>(file));
  }

  static size_t ObjectReader(char* buffer, size_t size, size_t count, void* object) {
    VURL& url = *static_cast<VURL*>(object);
    State& state = *url.state_;
    if (Cancelled(url, size, count)) return CURL_READFUNC_ABORT;
    if (state.uploadPosition >= state.uploadSize) return 0;
    const size_t n = static_cast<size_t>(
        std::min<uint64_t>(state.uploadSize - state.uploadPosition, uint64_t{size} * count));
    std::memcpy(buffer, state.upload + state.uploadPosition, n);
    state.uploadPosition += n;
    if (state.progress != nullptr) {
      state.progress(state.uploadPosition, state.uploadSize, state.progressUserData);
    }
    return n;
  }

  // The body of Perform: what is left of it.
  struct Block {
    const char* bytes;
    uint64_t remaining;
  };

  static size_t BlockReader(char* buffer, size_t size, size_t count, void* pending) {
    Block& block = *static_cast<Block*>(pending);
    const size_t n =
        static_cast<size_t>(std::min<uint64_t>(block.remaining, uint64_t{size} * count));
    std::memcpy(buffer, block.bytes, n);
    block.bytes += n;
    block.remaining -= n;
    return n;
  }

  VURL& url;
  vantu::internal::CurlGlobalScope global;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  std::FILE* file = nullptr;
};

VURL::VURL() : state_(std::make_unique<State>()) {}

VURL::VURL(const VURL& other)
    : VBaseObject(other), state_(std::make_unique<State>(*other.state_)) {}

VURL& VURL::operator=(const VURL& other) {
  if (this != &other) state_ = std::make_unique<State>(*other.state_);  // a failure changes nothing
  return *this;
}

VURL::~VURL() = default;

void VURL::Begin(CancelCallback cancel, void* cancelUserData, ProgressCallback progress,
                 void* progressUserData) {
  State& state = *state_;
  state.cancel = cancel;
  state.cancelUserData = cancelUserData;
  state.progress = progress;
  state.progressUserData = progressUserData;
  state.received.Clear();
  state.aborted = false;
}

int VURL::Get(std::string url, uint32_t timeout, CancelCallback cancel, void* cancelUserData,
              ProgressCallback progress, void* progressUserData) {
  Transfer transfer(*this);
  if (!transfer.Ready()) return kInitFailed;
  Begin(cancel, cancelUserData, progress, progressUserData);
  transfer.SetCommon(url, timeout, true);
  transfer.WriteToMemory();
  return transfer.Run();
}

int VURL::Post(std::string url, const void* data, uint64_t size, uint32_t timeout,
               CancelCallback cancel, void* cancelUserData, ProgressCallback progress,
               void* progressUserData) {
  Transfer transfer(*this);
  if (!transfer.Ready()) return kInitFailed;
  Begin(cancel, cancelUserData, progress, progressUserData);
  state_->upload = static_cast<const char*>(data);
  state_->uploadPosition = 0;
  state_->uploadSize = data != nullptr ? size : 0;
  transfer.SetCommon(url, timeout, true);
  curl_easy_setopt(transfer.easy, CURLOPT_POST, 1L);
  curl_easy_setopt(transfer.easy, CURLOPT_READFUNCTION, &Transfer::ObjectReader);
  curl_easy_setopt(transfer.easy, CURLOPT_READDATA, this);
  return transfer.Run();
}

int VURL::Perform(std::string url, const std::vector<std::string>* headers, const char* dataOrPath,
                  uint64_t size, uint32_t timeout, CancelCallback cancel, void* cancelUserData,
                  ProgressCallback progress, void* progressUserData, uint32_t flags) {
  Transfer transfer(*this);
  if (!transfer.Ready()) return kInitFailed;
  Begin(cancel, cancelUserData, progress, progressUserData);
  CURL* easy = transfer.easy;
  transfer.SetCommon(url, timeout, (flags & kKeepErrorBody) == 0);
  const bool toFile = (flags & kToFile) != 0;
  if (headers != nullptr) {
    for (const std::string& line : *headers) {
      if (!transfer.AppendHeader(line)) return CURLE_OUT_OF_MEMORY;
    }
  }
  if (!transfer.AppendHeader(toFile ? "Content-Type: application/binary" : "Expect:")) {
    return CURLE_OUT_OF_MEMORY;
  }
  if (toFile) {
    if (dataOrPath == nullptr) return kNoOutputPath;
    transfer.file =
        vantu::platform::OpenForWritingLocked(vantu::internal::PathBytes(VPath(dataOrPath)));
    if (transfer.file == nullptr) return kOutputNotOpened;
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Transfer::FileWriter);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer.file);
  } else {
    transfer.WriteToMemory();
  }
  Transfer::Block body{dataOrPath, size};
  if (dataOrPath != nullptr && size != 0) {
    curl_easy_setopt(easy, CURLOPT_POST, 1L);
    curl_easy_setopt(easy, CURLOPT_READFUNCTION, &Transfer::BlockReader);
    curl_easy_setopt(easy, CURLOPT_READDATA, &body);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size));
    curl_easy_setopt(easy, CURLOPT_UPLOAD_BUFFERSIZE, 0x200000L);
  }
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, transfer.headers);
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 50L);
  return transfer.Run();
}

int VURL::PerformWithHeader(std::string url, const char* header, size_t length,
                            const char* dataOrPath, uint64_t size, uint32_t timeout,
                            CancelCallback cancel, void* cancelUserData, ProgressCallback progress,
                            void* progressUserData, uint32_t flags) {
  const std::vector<std::string> headers{header != nullptr ? std::string(header, length)
                                                           : std::string()};
  return Perform(std::move(url), &headers, dataOrPath, size, timeout, cancel, cancelUserData,
                 progress, progressUserData, flags);
}

int VURL::PerformSimple(std::string url, const char* dataOrPath, uint64_t size, uint32_t timeout,
                        CancelCallback cancel, void* cancelUserData, ProgressCallback progress,
                        void* progressUserData, uint32_t flags) {
  return PerformWithHeader(std::move(url), nullptr, 0, dataOrPath, size, timeout, cancel,
                           cancelUserData, progress, progressUserData, flags);
}

const char* VURL::GetData() const { return state_->received.Data(); }

uint64_t VURL::GetDataSize() const { return state_->received.Length(); }

void VURL::SetVerifyPeer(bool verify) { state_->verifyPeer = verify; }

void VURL::SetCABundle(const VPath& path) { state_->caBundle = path; }

int VURL::GetResponseCode() const { return state_->responseCode; }
