// VAutoNamedMutexLock: holds a VNamedMutex (not owned; may be null) from construction to
// destruction. The constructor lets VNamedMutex::Lock's exceptions through; an exception from
// Unlock in the destructor ends the process. Not copyable: a copy would unlock once more than it
// locked.
#ifndef VANTU_VAUTONAMEDMUTEXLOCK_H
#define VANTU_VAUTONAMEDMUTEXLOCK_H

#include <vantu/Export.h>
#include <vantu/VNamedMutex.h>

class VANTU_API VAutoNamedMutexLock {
 public:
  // Locks the mutex unless it is null.
  explicit VAutoNamedMutexLock(VNamedMutex* mutex);
  VAutoNamedMutexLock(const VAutoNamedMutexLock&) = delete;
  VAutoNamedMutexLock& operator=(const VAutoNamedMutexLock&) = delete;
  // Unlocks the mutex unless it is null.
  virtual ~VAutoNamedMutexLock();

 private:
  VNamedMutex* mutex_;
};

#endif  // VANTU_VAUTONAMEDMUTEXLOCK_H
