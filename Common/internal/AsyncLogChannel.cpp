#include "internal/AsyncLogChannel.h"

#include <utility>

namespace vantu::internal {
namespace {

// Lines joined into one write; large enough to amortise the write and flush, small enough that
// a size-rotated file overshoots its limit by little.
constexpr size_t kBatchBytes = 16 * 1024;

}  // namespace

AsyncLogChannel::AsyncLogChannel(Poco::AutoPtr<Poco::Channel> target, size_t capacity)
    : target_(std::move(target)), capacity_(capacity == 0 ? 1 : capacity) {}

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

void AsyncLogChannel::log(const Poco::Message& message) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!writer_.joinable()) {
    lock.unlock();
    open();
    lock.lock();
  }
  written_.wait(lock, [this] { return queue_.size() < capacity_ || stopping_; });
  queue_.push_back(message.getText());
  ++queued_;
  if (queue_.size() == 1) wake_.notify_one();
}

void AsyncLogChannel::Drain() {
  std::unique_lock<std::mutex> lock(mutex_);
  const unsigned long long target = queued_;
  written_.wait(lock, [&] { return written_count_ >= target || !writer_.joinable(); });
}

void AsyncLogChannel::Run() {
  std::vector<std::string> lines;
  std::string batch;
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(mutex_);
      wake_.wait(lock, [this] { return !queue_.empty() || stopping_; });
      if (queue_.empty()) return;  // stopping, and everything written
      lines.swap(queue_);
    }
    written_.notify_all();  // room in the queue again
    for (size_t i = 0; i < lines.size();) {
      batch.clear();
      size_t count = 0;
      do {
        if (count > 0) batch.push_back('\n');
        batch += lines[i++];
        ++count;
      } while (i < lines.size() && batch.size() < kBatchBytes);
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
