// The log's asynchronous writer: a bounded queue in front of the channel that writes the file.
#ifndef VANTU_LOG_INTERNAL_ASYNCLOGCHANNEL_H
#define VANTU_LOG_INTERNAL_ASYNCLOGCHANNEL_H

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Message.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vantu::internal {

// Queues the text of each message and writes it to the target channel on its own thread. Lines
// queued together are handed to the target as one message whose text joins them with "\n", so a
// file channel writes (and flushes) them in one go; the bytes are those of one message per line.
// With a size limit, a batch ends with the line that brings the target to its limit, so a file
// rotated by size is closed within one line of it.
// When `capacity` lines wait, log() blocks until the writer has caught up: no line is dropped
// and memory stays bounded. close() returns after every queued line has been written. Errors of
// the target (a folder that cannot be written) drop the lines of that batch; the writer keeps
// going. Thread-safe.
class AsyncLogChannel : public Poco::Channel {
 public:
  AsyncLogChannel(Poco::AutoPtr<Poco::Channel> target, size_t capacity);

  // Batches stop at `limit` bytes of the target, whose current size `targetSize` tells (called
  // on the writer's thread only). Set before the first line is queued.
  void LimitBatches(uint64_t limit, std::function<uint64_t()> targetSize);

  void open() override;
  void close() override;
  void log(const Poco::Message& message) override;
  // Queues one line of text.
  void Push(std::string line);

  // Blocks until every line queued before the call has been handed to the target.
  void Drain();

 protected:
  ~AsyncLogChannel() override;

 private:
  void Run();

  Poco::AutoPtr<Poco::Channel> target_;
  const size_t capacity_;
  uint64_t limit_ = 0;  // 0: none
  std::function<uint64_t()> targetSize_;
  std::mutex mutex_;
  std::condition_variable wake_;     // the writer: lines arrived, or stop
  std::condition_variable written_;  // producers and Drain: the writer took or wrote lines
  std::vector<std::string> queue_;
  Poco::Message::Priority priority_ = Poco::Message::PRIO_INFORMATION;
  unsigned long long queued_ = 0;         // lines ever queued
  unsigned long long written_count_ = 0;  // lines ever handed to the target
  int draining_ = 0;                      // callers waiting in Drain()
  bool stopping_ = false;
  std::thread writer_;
};

}  // namespace vantu::internal

#endif  // VANTU_LOG_INTERNAL_ASYNCLOGCHANNEL_H
