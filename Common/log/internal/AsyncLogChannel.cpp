#include "log/internal/AsyncLogChannel.h"

#include <chrono>
#include <utility>

namespace vantu::internal {
namespace {

// Lines joined into one write: large enough to amortise the write and flush.
constexpr size_t kBatchBytes = 16 * 1024;
// How long the writer lets lines gather after the first one arrives, and how many end the wait.
constexpr std::chrono::milliseconds kGatherTime(2);
constexpr size_t kGatherLines = 1024;

}  // namespace

AsyncLogChannel::AsyncLogChannel(Poco::AutoPtr<Poco::Channel> target, size_t capacity)
    : target_(std::move(target)), capacity_(capacity == 0 ? 1 : capacity) {}

void AsyncLogChannel::LimitBatches(uint64_t limit, std::function<uint64_t()> targetSize) {
  limit_ = limit;
  targetSize_ = std::move(targetSize);
}

AsyncLogChannel::~AsyncLogChannel() {
  try {
    close();
  } catch (...) {
  }
}

void AsyncLogChannel::open() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (writer_.joinable()) return;
  stopping_ = false;
  writer_ = std::thread([this] { Run(); });
}

void AsyncLogChannel::close() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!writer_.joinable()) return;
    stopping_ = true;
  }
  wake_.notify_one();
  writer_.join();  // the writer empties the queue before it stops
  target_->close();
}

void AsyncLogChannel::log(const Poco::Message& message) { Push(message.getText()); }

void AsyncLogChannel::Push(std::string line) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!writer_.joinable()) {
    lock.unlock();
    open();
    lock.lock();
  }
  written_.wait(lock, [this] { return queue_.size() < capacity_ || stopping_; });
  queue_.push_back(std::move(line));
  ++queued_;
  if (queue_.size() == 1 || queue_.size() == kGatherLines) wake_.notify_one();
}

void AsyncLogChannel::Drain() {
  std::unique_lock<std::mutex> lock(mutex_);
  const unsigned long long target = queued_;
  ++draining_;
  wake_.notify_one();
  written_.wait(lock, [&] { return written_count_ >= target || !writer_.joinable(); });
  --draining_;
}

void AsyncLogChannel::Run() {
  std::vector<std::string> lines;
  std::string batch;
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(mutex_);
      wake_.wait(lock, [this] { return !queue_.empty() || stopping_; });
      if (queue_.empty()) return;  // stopping, and everything written
      // Let a few more lines gather before writing, unless someone waits for them: one wake-up
      // and one write per batch instead of per line.
      wake_.wait_for(lock, kGatherTime, [this] {
        return queue_.size() >= kGatherLines || stopping_ || draining_ > 0 ||
               queue_.size() >= capacity_;
      });
      lines.swap(queue_);
    }
    written_.notify_all();  // room in the queue again
    for (size_t i = 0; i < lines.size();) {
      batch.clear();
      size_t count = 0;
      // The bytes the target may still take before it reaches its limit; the target adds a
      // newline after the batch.
      uint64_t room = UINT64_MAX;
      if (limit_ != 0) {
        const uint64_t size = targetSize_();
        room = size < limit_ ? limit_ - size : 0;
      }
      do {
        if (count > 0) batch.push_back('\n');
        batch += lines[i++];
        ++count;
      } while (i < lines.size() && batch.size() < kBatchBytes && batch.size() + 1 < room);
      try {
        target_->log(Poco::Message(std::string(), batch, priority_));
      } catch (...) {
        // The file cannot be written now; these lines are lost, later ones are tried again.
      }
      std::lock_guard<std::mutex> lock(mutex_);
      written_count_ += count;
    }
    lines.clear();
    written_.notify_all();
  }
}

}  // namespace vantu::internal
