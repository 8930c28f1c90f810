// VNamedMutex: a recursive mutex shared between processes by name, with Windows' lifetime: every
// process that opens the same name shares one mutex for as long as any of them holds it, and it
// disappears with its last holder (nothing stays in /dev/shm). A mutex whose holding thread or
// process died passes to the next Lock, which then holds it once.
//
// Names are any bytes; the empty name gives an object without a mutex, whose Lock and Unlock
// throw a plain int -1 (as they do when memory runs out). The constructor throws
// VantuRuntimeException when the system refuses the object (no permission, no space), when the
// name's object belongs to another user or has another mode than 0600 (objects are made 0600,
// for their creator alone, as a Windows named object carries its creator's default security),
// or when another process keeps it locked for 10 seconds; Unlock by a thread that does not hold
// the mutex throws VantuRuntimeException.
//
// Ownership: copies, and the other objects of this process opened with the same name, share one
// mapping, which the last of them releases. A mutex still held by the calling thread when the
// last of them goes is unlocked.
//
// Thread safety: Lock and Unlock from any thread of any process.
//
//   VNamedMutex mutex("orders");
//   VAutoNamedMutexLock lock(&mutex);
#ifndef VANTU_VNAMEDMUTEX_H
#define VANTU_VNAMEDMUTEX_H

#include <memory>
#include <string>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

namespace vantu::platform {
class NamedMutex;
}

class VANTU_API VNamedMutex : public VBaseObject {
 public:
  explicit VNamedMutex(const std::string& name);
  VNamedMutex(const VNamedMutex&) = default;
  VNamedMutex& operator=(const VNamedMutex&) = default;
  ~VNamedMutex() override;

  void Lock();
  void Unlock();

 private:
  std::shared_ptr<vantu::platform::NamedMutex> mutex_;
};

#endif  // VANTU_VNAMEDMUTEX_H
