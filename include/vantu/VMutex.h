// VMutex: an in-process recursive mutex over a Poco::Mutex. The thread that locked it may lock it
// again and must unlock it as often.
//
// Ownership: copies share the one mutex, which the last copy frees. When the mutex cannot be
// allocated the object is still built without it, and Lock and Unlock throw a plain int -1.
// Unlocking a mutex the calling thread does not hold throws VantuRuntimeException.
//
// Thread safety: Lock and Unlock from any thread, on the object or any of its copies.
#ifndef VANTU_VMUTEX_H
#define VANTU_VMUTEX_H

#include <memory>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

namespace Poco {
class Mutex;
}

class VANTU_API VMutex : public VBaseObject {
 public:
  VMutex();
  VMutex(const VMutex&) = default;
  VMutex& operator=(const VMutex&) = default;
  ~VMutex() override;

  // Blocks until the calling thread holds the mutex.
  void Lock();
  void Unlock();

 private:
  std::shared_ptr<Poco::Mutex> mutex_;
};

#endif  // VANTU_VMUTEX_H
