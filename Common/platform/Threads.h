// Thread services that POCO does not offer.
#ifndef VANTU_PLATFORM_THREADS_H
#define VANTU_PLATFORM_THREADS_H

#include <Poco/Thread.h>

#include <atomic>
#include <cstdint>

namespace vantu::platform {

// Lets the system reclaim a started thread when it ends, without a join. Call it once per start,
// on the identifier the thread had (Poco::Thread::tid()) while it was the thread's latest start;
// POCO detaches only the latest start of a thread it never joined.
void DetachThread(Poco::Thread::TID id);

// Waiting on a 32-bit word (a futex): blocks while the word holds `expected`, until a wake, a
// signal or a spurious return; returns at once when it holds another value. The caller looks at
// the word again after every return. `shared`: the word lies in memory shared between processes.
void WaitOnWord(std::atomic<uint32_t>& word, uint32_t expected, bool shared = false);
// Wakes up to `count` threads waiting on the word (INT_MAX: all). It does not touch the word, so
// it may follow the store that lets a waiter go on and free it.
void WakeWord(std::atomic<uint32_t>& word, int count, bool shared = false);

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_THREADS_H
