#include <vantu/VURL.h>

#include <curl/curl.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <utility>

#include "internal/PathText.h"
#include "net/internal/CurlGlobal.h"
#include "net/internal/ReceiveBuffer.h"
#include "platform/FileIO.h"

using vantu::internal::CurlEntries;

namespace {
constexpr const char* kInitFailedText = "libcurl could not start";
constexpr const char* kNoMemoryText = "libcurl has no memory for a header line";

// The schemes a transfer from `address` may use for its request and every redirect: https alone
// from https, so that no hop goes down to http; http and https from http; null for any other
// scheme. The address is read as libcurl reads it (a missing scheme is guessed from the host
// name); one it cannot read gets "http,https" and fails in libcurl.
const char* AllowedSchemes(const std::string& address) {
  CURLU* parsed = curl_url();
  char* scheme = nullptr;
  const bool read = parsed != nullptr &&
                    curl_url_set(parsed, CURLUPART_URL, address.c_str(),
                                 CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME) == CURLUE_OK &&
                    curl_url_get(parsed, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK;
  const char* allowed = !read                            ? "http,https"
                        : curl_strequal(scheme, "https") ? "https"
                        : curl_strequal(scheme, "http")  ? "http,https"
                                                         : nullptr;
  curl_free(scheme);
  curl_url_cleanup(parsed);
  return allowed;
}

}  // namespace

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
  std::string errorText;  // of the last transfer; empty after a success
  // The callables set on the object, and those of the transfer in progress (taken at its start).
  std::shared_ptr<const CancelFunction> cancelFunction;
  std::shared_ptr<const ProgressFunction> progressFunction;
  std::shared_ptr<const CancelFunction> activeCancel;
  std::shared_ptr<const ProgressFunction> activeProgress;

  // A copy of another object's state with copies of its callables, shared with nobody.
  static std::unique_ptr<State> CopyOf(const State& other) {
    auto copy = std::make_unique<State>(other);
    if (copy->cancelFunction) {
      copy->cancelFunction = std::make_shared<const CancelFunction>(*copy->cancelFunction);
    }
    if (copy->progressFunction) {
      copy->progressFunction = std::make_shared<const ProgressFunction>(*copy->progressFunction);
    }
    copy->activeCancel.reset();
    copy->activeProgress.reset();
    return copy;
  }
};

// One transfer: libcurl's global reference and easy handle, the header list and the output
// file, all released on every path; and the callbacks libcurl calls.
struct VURL::Transfer {
  explicit Transfer(VURL& url) : url(url) {
    url.state_->responseCode = 0;
    url.state_->errorText.clear();
    if (global.Ready()) easy = CurlEntries().easyInit();
    // Unshared when the thread has no share: slower, the same otherwise.
    if (easy != nullptr) curl_easy_setopt(easy, CURLOPT_SHARE, vantu::internal::ThreadShare());
  }
  ~Transfer() {
    url.state_->activeCancel.reset();
    url.state_->activeProgress.reset();
    if (easy != nullptr) CurlEntries().easyCleanup(easy);
    curl_slist_free_all(headers);
    if (file != nullptr) std::fclose(file);
  }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  bool Ready() const { return easy != nullptr; }

  // A transfer that fails before libcurl runs it: `code`, with `text` as the error text.
  int Fail(int code, const char* text) {
    url.state_->errorText = text;
    return code;
  }

  // The options every transfer sets; 0, or the code of a refused address.
  int SetCommon(const std::string& address, uint32_t timeout, bool failOnError) {
    const char* schemes = AllowedSchemes(address);
    if (schemes == nullptr) {
      return Fail(CURLE_UNSUPPORTED_PROTOCOL, "only http and https addresses are allowed");
    }
    if (curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, schemes) != CURLE_OK ||
        curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, schemes) != CURLE_OK) {
      return Fail(CURLE_UNSUPPORTED_PROTOCOL, "libcurl cannot be limited to http and https");
    }
    curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, &Transfer::BeforeRequest);
    curl_easy_setopt(easy, CURLOPT_PREREQDATA, this);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errors);
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
    if (state.cancel != nullptr || state.activeCancel) {  // also asked while nothing arrives
      curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
      curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &Transfer::Ticked);
      curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &url);
    }
    return 0;
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
    const int code = url.state_->aborted ? kCancelled
                     : downgraded        ? CURLE_UNSUPPORTED_PROTOCOL
                                         : static_cast<int>(result);
    url.state_->errorText = code == 0            ? ""
                            : code == kCancelled ? "the cancel callback stopped the transfer"
                            : downgraded         ? "a redirect from https to http was refused"
                            : errors[0] != '\0'  ? errors
                                                 : curl_easy_strerror(result);
    return code;
  }

  // Before each request, the first and each redirected one: none over http after one over https.
  static int BeforeRequest(void* transfer, char*, char*, int, int) {
    Transfer& self = *static_cast<Transfer*>(transfer);
    char* address = nullptr;
    curl_easy_getinfo(self.easy, CURLINFO_EFFECTIVE_URL, &address);
    const bool secure = address != nullptr && curl_strnequal(address, "https:", 6);
    self.downgraded = self.secure && !secure;
    self.secure = self.secure || secure;
    return self.downgraded ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
  }

  // libcurl's progress callback, called often while data moves and about once a second while
  // nothing does: the cancel callback with no bytes.
  static int Ticked(void* object, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return Cancelled(*static_cast<VURL*>(object), 0, 0) ? 1 : 0;
  }

  // Asks the cancel callback; true (and aborted set) when it stops the transfer.
  static bool Cancelled(VURL& url, size_t size, size_t count) {
    State& state = *url.state_;
    if ((state.cancel == nullptr ||
         !state.cancel(state.cancelUserData, size * count, count, &url)) &&
        (!state.activeCancel || !(*state.activeCancel)(size * count))) {
      return false;
    }
    state.aborted = true;
    return true;
  }

  static void Progressed(State& state, uint64_t done, uint64_t total) {
    if (state.progress != nullptr) {
      state.progress(static_cast<size_t>(done), static_cast<size_t>(total), state.progressUserData);
    }
    if (state.activeProgress) (*state.activeProgress)(done, total);
  }

  static size_t MemoryWriter(char* bytes, size_t size, size_t count, void* object) {
    VURL& url = *static_cast<VURL*>(object);
    State& state = *url.state_;
    const size_t n = size * count;
    if (n == 0) return 0;
    // A value other than n: libcurl stops with a write error.
    if (Cancelled(url, size, count)) return 0x10000000;
    if (!state.received.Append(bytes, n)) return 0;
    Progressed(state, state.received.Length(), state.received.Capacity());
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
    Progressed(state, state.uploadPosition, state.uploadSize);
    return n;
  }

  // The body of Perform and how much of it was handed over.
  struct Block {
    const char* bytes;
    uint64_t size;
    uint64_t position;
  };

  static size_t BlockReader(char* buffer, size_t size, size_t count, void* pending) {
    Block& block = *static_cast<Block*>(pending);
    const size_t n = static_cast<size_t>(
        std::min<uint64_t>(block.size - block.position, uint64_t{size} * count));
    std::memcpy(buffer, block.bytes + block.position, n);
    block.position += n;
    return n;
  }

  // libcurl rewinds the body to send it again after a 307 or 308 redirect.
  static int BlockSeeker(void* pending, curl_off_t offset, int origin) {
    Block& block = *static_cast<Block*>(pending);
    if (origin != SEEK_SET || offset < 0 || static_cast<uint64_t>(offset) > block.size) {
      return CURL_SEEKFUNC_FAIL;
    }
    block.position = static_cast<uint64_t>(offset);
    return CURL_SEEKFUNC_OK;
  }

  VURL& url;
  vantu::internal::CurlGlobalScope global;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  std::FILE* file = nullptr;
  char errors[CURL_ERROR_SIZE] = {};  // libcurl's text of a failure
  bool secure = false;                // a request went over https
  bool downgraded = false;            // a redirect from https to http was stopped
};

VURL::VURL() : state_(std::make_unique<State>()) {}

VURL::VURL(const VURL& other) : VBaseObject(other), state_(State::CopyOf(*other.state_)) {}

VURL& VURL::operator=(const VURL& other) {
  if (this != &other) state_ = State::CopyOf(*other.state_);  // a failure changes nothing
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
  state.activeCancel = state.cancelFunction;
  state.activeProgress = state.progressFunction;
  state.received.Clear();
  state.aborted = false;
}

int VURL::Get(std::string url, uint32_t timeout, CancelCallback cancel, void* cancelUserData,
              ProgressCallback progress, void* progressUserData) {
  Transfer transfer(*this);
  if (!transfer.Ready()) return transfer.Fail(kInitFailed, kInitFailedText);
  Begin(cancel, cancelUserData, progress, progressUserData);
  if (const int refused = transfer.SetCommon(url, timeout, true)) return refused;
  transfer.WriteToMemory();
  return transfer.Run();
}

int VURL::Post(std::string url, const void* data, uint64_t size, uint32_t timeout,
               CancelCallback cancel, void* cancelUserData, ProgressCallback progress,
               void* progressUserData) {
  Transfer transfer(*this);
  if (!transfer.Ready()) return transfer.Fail(kInitFailed, kInitFailedText);
  Begin(cancel, cancelUserData, progress, progressUserData);
  state_->upload = static_cast<const char*>(data);
  state_->uploadPosition = 0;
  state_->uploadSize = data != nullptr ? size : 0;
  if (const int refused = transfer.SetCommon(url, timeout, true)) return refused;
  curl_easy_setopt(transfer.easy, CURLOPT_POST, 1L);
  curl_easy_setopt(transfer.easy, CURLOPT_READFUNCTION, &Transfer::ObjectReader);
  curl_easy_setopt(transfer.easy, CURLOPT_READDATA, this);
  return transfer.Run();
}

int VURL::Perform(std::string url, const std::vector<std::string>* headers, const char* dataOrPath,
                  uint64_t size, uint32_t timeout, CancelCallback cancel, void* cancelUserData,
                  ProgressCallback progress, void* progressUserData, uint32_t flags) {
  Transfer transfer(*this);
  if (!transfer.Ready()) return transfer.Fail(kInitFailed, kInitFailedText);
  Begin(cancel, cancelUserData, progress, progressUserData);
  CURL* easy = transfer.easy;
  if (const int refused = transfer.SetCommon(url, timeout, (flags & kKeepErrorBody) == 0)) {
    return refused;
  }
  const bool toFile = (flags & kToFile) != 0;
  if (headers != nullptr) {
    for (const std::string& line : *headers) {
      // Such a byte would end the line early or start another one.
      if (line.find_first_of("\r\n\0", 0, 3) != std::string::npos) {
        return transfer.Fail(CURLE_BAD_FUNCTION_ARGUMENT,
                             "a header line holds a CR, LF or NUL byte");
      }
      if (!transfer.AppendHeader(line)) return transfer.Fail(CURLE_OUT_OF_MEMORY, kNoMemoryText);
    }
  }
  if (!transfer.AppendHeader(toFile ? "Content-Type: application/binary" : "Expect:")) {
    return transfer.Fail(CURLE_OUT_OF_MEMORY, kNoMemoryText);
  }
  if (toFile) {
    if (dataOrPath == nullptr) return transfer.Fail(kNoOutputPath, "no output file was named");
    transfer.file =
        vantu::platform::OpenForWritingLocked(vantu::internal::PathBytes(VPath(dataOrPath)));
    if (transfer.file == nullptr) {
      return transfer.Fail(kOutputNotOpened,
                           "the output file could not be opened, or another process locks it");
    }
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Transfer::FileWriter);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer.file);
  } else {
    transfer.WriteToMemory();
  }
  Transfer::Block body{dataOrPath, size, 0};
  if (dataOrPath != nullptr && size != 0) {
    curl_easy_setopt(easy, CURLOPT_POST, 1L);
    curl_easy_setopt(easy, CURLOPT_READFUNCTION, &Transfer::BlockReader);
    curl_easy_setopt(easy, CURLOPT_READDATA, &body);
    curl_easy_setopt(easy, CURLOPT_SEEKFUNCTION, &Transfer::BlockSeeker);
    curl_easy_setopt(easy, CURLOPT_SEEKDATA, &body);
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

VString VURL::GetLastErrorText() const { return VString(state_->errorText, UTF8); }

void VURL::SetCancelFunction(CancelFunction cancel) {
  state_->cancelFunction =
      cancel ? std::make_shared<const CancelFunction>(std::move(cancel)) : nullptr;
}

void VURL::SetProgressFunction(ProgressFunction progress) {
  state_->progressFunction =
      progress ? std::make_shared<const ProgressFunction>(std::move(progress)) : nullptr;
}
