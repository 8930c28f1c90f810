#include "platform/NamedObjects.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/NamedObject_POSIX.h"

namespace vantu::platform {

using namespace named;

bool NamedObject::HeldByAnotherThreadOfThisProcess() {
  pthread_mutex_t* mutex = &As<MutexBlock>()->mutex;
  const int error = pthread_mutex_trylock(mutex);
  if (error == 0 || error == EOWNERDEAD) {
    if (error == EOWNERDEAD) pthread_mutex_consistent(mutex);
    for (unsigned levels = mutex->__data.__count; levels > 0; --levels) {
      pthread_mutex_unlock(mutex);
    }
    return false;
  }
  // The holder's thread identifier (glibc keeps it in the mutex): one of this process's?
  const int holder = mutex->__data.__owner;
  const std::string task = "/proc/self/task/" + std::to_string(holder);
  return error == EBUSY && holder > 0 && ::access(task.c_str(), F_OK) == 0;
}

NamedMutex::NamedMutex(const std::string& name)
    : object_(Acquire(Kind::kMutex, name, 0)), mutex_(&object_->As<MutexBlock>()->mutex) {}

NamedMutex::~NamedMutex() = default;

void NamedMutex::Lock() { LockRobust(static_cast<pthread_mutex_t*>(mutex_), object_->systemName); }

void NamedMutex::Unlock() {
  // EPERM when the calling thread does not hold it.
  const int error = pthread_mutex_unlock(static_cast<pthread_mutex_t*>(mutex_));
  if (__builtin_expect(error != 0, 0)) throw Error(error, "cannot unlock " + object_->systemName);
}

}  // namespace vantu::platform
