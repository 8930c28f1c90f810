#include "platform/NamedObjects.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>

#include "platform/NamedObject_POSIX.h"

namespace vantu::platform {
namespace {

long Futex(std::atomic<uint32_t>* word, int operation, uint32_t value) {
  return ::syscall(SYS_futex, reinterpret_cast<uint32_t*>(word), operation, value, nullptr, nullptr,
                   0);
}

}  // namespace

using namespace named;

NamedEvent::NamedEvent(const std::string& name) : object_(Acquire(Kind::kEvent, name, 0)) {}

NamedEvent::~NamedEvent() = default;

void NamedEvent::Set() {
  EventBlock& block = *object_->As<EventBlock>();
  LockRobust(&block.mutex, object_->systemName);
  bool wake = false;
  if (block.signalled == 0) {
    block.signalled = 1;
    if (block.waiters != 0) {
      block.sequence.fetch_add(1, std::memory_order_relaxed);
      wake = true;
    }
  }
  pthread_mutex_unlock(&block.mutex);
  // Every waiter wakes and looks: one takes the event, the others wait again. Waking only one
  // would strand the others if that one died before it took the event.
  if (wake) Futex(&block.sequence, FUTEX_WAKE, INT_MAX);
}

void NamedEvent::Wait() {
  EventBlock& block = *object_->As<EventBlock>();
  LockRobust(&block.mutex, object_->systemName);
  while (block.signalled == 0) {
    ++block.waiters;
    const uint32_t seen = block.sequence.load(std::memory_order_relaxed);
    pthread_mutex_unlock(&block.mutex);
    Futex(&block.sequence, FUTEX_WAIT, seen);  // returns at a wake, a change or a signal
    LockRobust(&block.mutex, object_->systemName);
    --block.waiters;
  }
  block.signalled = 0;
  pthread_mutex_unlock(&block.mutex);
}

}  // namespace vantu::platform
