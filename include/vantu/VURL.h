// VURL: one blocking HTTP transfer per call, over libcurl's easy interface.
//
// Get downloads into a buffer the object owns (GetData/GetDataSize); Post uploads a memory
// block; Perform sends a request with extra header lines (and a body, when given one) and writes
// the response into the buffer or into a file. Every transfer takes a reference to libcurl's
// global state and a fresh easy handle, and releases both before it returns; the object itself
// carries no settings of one transfer into the next. The connection a transfer used stays open
// for the next transfer of the same thread (any object) to the same server with the same
// connection settings (TLS verification and CA file included): such a transfer skips the
// connection set-up; a thread's open connections close when the thread ends. The received buffer
// survives a transfer: the next one empties it but keeps its storage.
//
// Transfer codes: 0 success; any other small value is libcurl's own CURLcode (22 for an HTTP
// status of 400 or more where that counts as failure, 28 for a time-out, 47 for more than 50
// redirects...); 100 when libcurl cannot start; -2 when the cancel callback stopped the
// transfer; -3 when Perform is asked for file output without a path; -4 when the output file
// cannot be opened (or another process holds a flock on it). The library refuses, before any
// network use, an address whose scheme is not http or https with 1 (CURLE_UNSUPPORTED_PROTOCOL)
// and a header line holding a CR, LF or NUL byte with 43 (CURLE_BAD_FUNCTION_ARGUMENT).
// GetLastErrorText says in words why the last transfer failed. No operation throws for a
// transfer failure; after a failed or cancelled memory transfer the buffer holds the bytes
// received before the failure. Copying may throw std::bad_alloc, or what copying a callable throws.
//
// Protocols: a transfer uses http and https only, for its first request and for every redirect
// Perform follows; a redirect to another scheme (ftp, file, dict...) fails with 1 and connects
// nowhere. A transfer never goes down from https to http: an https address may redirect to
// https only, and once a redirect chain reached https no later request goes over http; such a
// redirect fails with 1.
//
// Certificates: by default the server's certificate chain is not verified (a self-signed or
// unknown issuer passes), but the host name of the address is always checked against the
// certificate: a certificate for another name fails with 60 (CURLE_PEER_FAILED_VERIFICATION).
// SetVerifyPeer(true) verifies the chain as well, against SetCABundle's file or libcurl's store.
// Time-outs are in seconds: 0xFFFFFFFF means none; 0 is libcurl's 0, which is none as well;
// libcurl's longest is 2147483 s (24.8 days), which longer ones get.
//
// Callbacks: the cancel callback is asked before each received chunk is stored (memory output)
// and before each piece of a Post body is handed over, with (cancel user data, bytes, count, this
// object); it is also asked from libcurl's progress callback, with bytes and count 0, in every
// transfer: often while data moves and about once a second while nothing does, so that a
// stalled transfer can be stopped. True stops the transfer with -2. The progress callback is
// told after each stored chunk (done = bytes held, total = the buffer's capacity) and after each
// piece of a Post body (done = bytes handed over, total = the block's size); it is not told of
// Perform's file output nor of Perform's request body.
//
// Callables: SetCancelFunction and SetProgressFunction give the object a cancel and a progress
// callable, asked and told exactly where the call's pointers are, in every later transfer of any
// call, in addition to them: the call's pointer first, then the callable (a transfer stops when
// either says so). The object owns copies of them until they are replaced (copies of the object
// get copies of their own); they run on the thread of the transfer. A transfer uses the callables
// set when it starts: setting them during a transfer, also from inside one, applies from the next.
//
// Thread safety: an object must not be used by two threads at once; different objects may run
// transfers on different threads at the same time.
//
//   VURL url;
//   int code = url.Get("http://127.0.0.1:8080/", 30, nullptr, nullptr, nullptr, nullptr);
//   std::string body(url.GetData(), url.GetDataSize());  // what arrived, also after a failure
#ifndef VANTU_VURL_H
#define VANTU_VURL_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VPath.h>
#include <vantu/VString.h>

class VANTU_API VURL : public VBaseObject {
 public:
  // True stops the transfer. `bytes` is the chunk's size (element size times count).
  typedef bool (*CancelCallback)(void* userData, size_t bytes, size_t count, VURL* url);
  typedef void (*ProgressCallback)(size_t done, size_t total, void* userData);
  // The callable forms: `bytes` is the chunk's size (0 when asked while nothing arrives).
  using CancelFunction = std::function<bool(size_t bytes)>;
  using ProgressFunction = std::function<void(uint64_t done, uint64_t total)>;

  // Transfer codes of the library's own, beside libcurl's.
  static constexpr int kInitFailed = 100;
  static constexpr int kCancelled = -2;
  static constexpr int kNoOutputPath = -3;
  static constexpr int kOutputNotOpened = -4;
  // Flags of Perform.
  static constexpr uint32_t kKeepErrorBody = 1;  // an HTTP status of 400 or more is no failure
  static constexpr uint32_t kToFile = 2;         // the response goes to the file named by data
  static constexpr uint32_t kNoTimeout = 0xFFFFFFFF;

  VURL();
  VURL(const VURL& other);
  VURL& operator=(const VURL& other);
  ~VURL() override;

  // Slot 3: downloads `url` into the buffer.
  virtual int Get(std::string url, uint32_t timeout, CancelCallback cancel, void* cancelUserData,
                  ProgressCallback progress, void* progressUserData);
  // Slot 4: uploads `size` bytes at `data` (not copied; must live through the call) as the body
  // of a POST, announced without a size (chunked). The response body is not captured: libcurl
  // writes it to the standard output. A null `data` sends an empty body.
  virtual int Post(std::string url, const void* data, uint64_t size, uint32_t timeout,
                   CancelCallback cancel, void* cancelUserData, ProgressCallback progress,
                   void* progressUserData);
  // Slot 5: a request following redirects (at most 50; a POST body is sent again after a 307 or
  // 308), with the header lines of `headers` (may
  // be null) and one more: "Expect:" (no 100-continue handshake) for memory output,
  // "Content-Type: application/binary" for file output. With a non-null `dataOrPath` and a
  // non-zero `size` it is a POST of those `size` bytes. With kToFile, `dataOrPath` is also the
  // output file's path (narrow text, NUL-terminated; both uses apply to the same pointer): the
  // file is created or truncated and holds an exclusive flock while the transfer runs.
  virtual int Perform(std::string url, const std::vector<std::string>* headers,
                      const char* dataOrPath, uint64_t size, uint32_t timeout,
                      CancelCallback cancel, void* cancelUserData, ProgressCallback progress,
                      void* progressUserData, uint32_t flags);
  // Slot 6: Perform (through the table) with one header line, `length` bytes at `header`.
  virtual int PerformWithHeader(std::string url, const char* header, size_t length,
                                const char* dataOrPath, uint64_t size, uint32_t timeout,
                                CancelCallback cancel, void* cancelUserData,
                                ProgressCallback progress, void* progressUserData, uint32_t flags);
  // Slot 7: PerformWithHeader (through the table) with no header text, so the list that reaches
  // Perform holds one empty line.
  virtual int PerformSimple(std::string url, const char* dataOrPath, uint64_t size,
                            uint32_t timeout, CancelCallback cancel, void* cancelUserData,
                            ProgressCallback progress, void* progressUserData, uint32_t flags);
  // Slot 8: the received bytes (not NUL-terminated); null before the first memory transfer.
  virtual const char* GetData() const;
  // Slot 9: the number of received bytes.
  virtual uint64_t GetDataSize() const;

  // Whether later transfers verify the server's certificate chain (default false).
  void SetVerifyPeer(bool verify);
  // The file of trusted certificates (PEM) used when verifying; empty: libcurl's default store.
  void SetCABundle(const VPath& path);
  // The HTTP status of the last transfer's response; 0 when none was received.
  int GetResponseCode() const;
  // Why the last transfer failed, in words: libcurl's own text of the failure (its error
  // buffer, else the text of its code), or the library's text for its own codes and refusals.
  // Empty after a success.
  VString GetLastErrorText() const;
  // The callables of later transfers (see above); an empty one removes it. May throw
  // std::bad_alloc (and then changes nothing).
  void SetCancelFunction(CancelFunction cancel);
  void SetProgressFunction(ProgressFunction progress);

 private:
  struct State;
  struct Transfer;
  void Begin(CancelCallback cancel, void* cancelUserData, ProgressCallback progress,
             void* progressUserData);

  std::unique_ptr<State> state_;
};

#endif  // VANTU_VURL_H
