// The event behind VEvent: one 32-bit word, waited on with the platform's futex calls.
#ifndef VANTU_SYNC_INTERNAL_EVENT_H
#define VANTU_SYNC_INTERNAL_EVENT_H

#include <atomic>
#include <climits>
#include <cstdint>

#include "platform/Threads.h"

namespace vantu::sync {

// An auto-reset event lets one Wait through per Set; a manual-reset event lets every Wait
// through until Reset. The word holds the set bit and, above it, the number of threads that
// wait or are about to. Set touches the event only through one atomic operation, then wakes by
// the word's address: a waiter released by it may destroy the event at once.
class Event {
 public:
  explicit Event(bool autoReset) : autoReset_(autoReset) {}
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  void Set() {
    const int wake = autoReset_ ? 1 : INT_MAX;  // read before the event may go
    const uint32_t before = word_.fetch_or(kSet, std::memory_order_acq_rel);
    if ((before & kSet) == 0 && before >= kWaiter) platform::WakeWord(word_, wake);
  }

  void Reset() { word_.fetch_and(~kSet, std::memory_order_acq_rel); }

  void Wait() {
    uint32_t value = word_.load(std::memory_order_acquire);
    for (;;) {
      if ((value & kSet) != 0) {
        if (!autoReset_ ||
            word_.compare_exchange_weak(value, value & ~kSet, std::memory_order_acq_rel,
                                        std::memory_order_acquire)) {
          return;
        }
      } else if (word_.compare_exchange_weak(value, value + kWaiter, std::memory_order_acq_rel,
                                             std::memory_order_acquire)) {
        // Sleeps unless a Set (or another waiter) changed the word since.
        platform::WaitOnWord(word_, value + kWaiter);
        value = word_.fetch_sub(kWaiter, std::memory_order_acq_rel) - kWaiter;
      }
    }
  }

 private:
  static constexpr uint32_t kSet = 1;
  static constexpr uint32_t kWaiter = 2;

  std::atomic<uint32_t> word_{0};
  const bool autoReset_;
};

}  // namespace vantu::sync

#endif  // VANTU_SYNC_INTERNAL_EVENT_H
