// The parts of a named object that its kinds share (POSIX only): the layout at the start of every
// object, the object mapped into this process, and the opening by name with its lifetime.
#ifndef VANTU_PLATFORM_NAMEDOBJECT_POSIX_H
#define VANTU_PLATFORM_NAMEDOBJECT_POSIX_H

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

#include "platform/NamedObjects.h"

namespace vantu::platform {
namespace named {

enum class Kind : uint32_t { kMutex = 1, kEvent = 2, kMemory = 3 };

// The start of every object. `ready` is written last, with a release store, once the rest is
// built; an object whose word is still 0 is being built or was left half-built by a dead process.
struct Header {
  std::atomic<uint32_t> ready;
  uint32_t reserved;
  uint64_t dataSize;  // memory objects: the region's size
};

// "VNT" and the kind. A change of layout changes this word, so that objects of another layout
// are refused rather than misread.
constexpr uint32_t ReadyWord(Kind kind) { return 0x564E5400u | static_cast<uint32_t>(kind); }

struct MutexBlock {
  Header header;
  pthread_mutex_t mutex;  // process-shared, robust, recursive
};

// The event waits on a futex word rather than a process-shared condition variable: glibc's
// condition variable stops waking anyone (and blocks its signallers) once a waiter was killed
// while it waited, which a named event must survive.
struct EventBlock {
  Header header;
  pthread_mutex_t mutex;  // process-shared, robust; guards signalled and waiters
  uint32_t signalled;
  uint32_t waiters;  // may stay too high after a waiter died: that only costs a wake call
  std::atomic<uint32_t> sequence;  // the futex word: moves at every Set that finds waiters
};

static_assert(std::atomic<uint32_t>::is_always_lock_free, "futex words must be plain words");
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t), "futex words are 32 bits");

inline std::system_error Error(int code, const std::string& what) {
  return std::system_error(code, std::generic_category(), what);
}

// After a lock that returned `error`: a lock whose holder died is made consistent and is the
// caller's; any other error throws.
[[gnu::cold, gnu::noinline]] void LockFailed(pthread_mutex_t* mutex, int error,
                                             const std::string& systemName);

// Locks a robust mutex; the call alone when it succeeds.
inline void LockRobust(pthread_mutex_t* mutex, const std::string& systemName) {
  const int error = pthread_mutex_lock(mutex);
  if (__builtin_expect(error != 0, 0)) LockFailed(mutex, error, systemName);
}

struct Mapping {
  char* base = nullptr;
  std::size_t size = 0;
  std::size_t dataSize = 0;
};

}  // namespace named

// One object mapped into this process, shared by every handle of the process that opened it.
class NamedObject : public std::enable_shared_from_this<NamedObject> {
 public:
  NamedObject(named::Kind kind, std::string systemName, int fd, named::Mapping mapping)
      : kind(kind), systemName(std::move(systemName)), fd(fd), mapping(mapping) {}

  template <typename Block>
  Block* As() const {
    return reinterpret_cast<Block*>(mapping.base);
  }

  // Lets go of the name: unlinks it when no other holder is left (the exclusive, non-blocking
  // flock succeeds; of holders leaving together the last one succeeds), else drops this
  // holder's shared lock. False when the mapping and the descriptor must stay: another thread of
  // this process still holds the mutex through them, and the lock passes on when it ends.
  bool Leave();
  // Unmaps the object and closes the descriptor, after Leave. Slow for a large region (the pages
  // are freed), so done without the registry's lock.
  void Unmap();

  const named::Kind kind;
  const std::string systemName;
  int fd;
  const named::Mapping mapping;
  bool registered = false;
  // A forked child that could not take a lock of its own: it never unlinks the name.
  bool inherited = false;
  // In a forked child: the object was being released by a thread that did not follow.
  bool orphan = false;

 private:
  // Releases every level of the lock that the calling thread holds (a trylock adds one level
  // or takes the free mutex; glibc counts the levels of a recursive mutex in __count, and
  // exactly that many unlocks give them all back). Then tells whether another thread of this
  // process holds the lock.
  bool HeldByAnotherThreadOfThisProcess();
};

namespace named {

// The object of this kind and name, shared by every handle of this process that opened it; made
// or rebuilt when this process is its only holder. A memory object holds at least `dataSize`
// bytes after its first page.
std::shared_ptr<NamedObject> Acquire(Kind kind, const std::string& name, std::size_t dataSize);

}  // namespace named
}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_NAMEDOBJECT_POSIX_H
