#include "platform/NamedObjects.h"

#include <pthread.h>

#include <atomic>
#include <climits>
#include <cstdint>

#include "platform/NamedObject_POSIX.h"
#include "platform/Threads.h"

namespace vantu::platform {
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
  if (wake) WakeWord(block.sequence, INT_MAX, true);
}

void NamedEvent::Wait() {
  EventBlock& block = *object_->As<EventBlock>();
  LockRobust(&block.mutex, object_->systemName);
  while (block.signalled == 0) {
    ++block.waiters;
    const uint32_t seen = block.sequence.load(std::memory_order_relaxed);
    pthread_mutex_unlock(&block.mutex);
    WaitOnWord(block.sequence, seen, true);  // returns at a wake, a change or a signal
    LockRobust(&block.mutex, object_->systemName);
    --block.waiters;
  }
  block.signalled = 0;
  pthread_mutex_unlock(&block.mutex);
}

}  // namespace vantu::platform
