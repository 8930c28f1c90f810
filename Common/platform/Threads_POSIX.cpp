#include "platform/Threads.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vantu::platform {

void DetachThread(Poco::Thread::TID id) { pthread_detach(id); }

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) &&
                  std::atomic<uint32_t>::is_always_lock_free,
              "futex words are plain 32-bit words");

void WaitOnWord(std::atomic<uint32_t>& word, uint32_t expected, bool shared) {
  ::syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word), shared ? FUTEX_WAIT : FUTEX_WAIT_PRIVATE,
            expected, nullptr, nullptr, 0);
}

void WakeWord(std::atomic<uint32_t>& word, int count, bool shared) {
  ::syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word), shared ? FUTEX_WAKE : FUTEX_WAKE_PRIVATE,
            count, nullptr, nullptr, 0);
}

}  // namespace vantu::platform
