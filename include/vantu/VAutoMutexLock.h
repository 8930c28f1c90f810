// VAutoMutexLock: holds a VMutex (not owned; may be null) from construction to destruction.
// The constructor lets VMutex::Lock's exceptions through; an exception from Unlock in the
// destructor ends the process. Not copyable: a copy would unlock once more than it locked.
#ifndef VANTU_VAUTOMUTEXLOCK_H
#define VANTU_VAUTOMUTEXLOCK_H

#include <vantu/Export.h>
#include <vantu/VMutex.h>

class VANTU_API VAutoMutexLock {
 public:
  // Locks the mutex unless it is null.
  explicit VAutoMutexLock(VMutex* mutex);
  VAutoMutexLock(const VAutoMutexLock&) = delete;
  VAutoMutexLock& operator=(const VAutoMutexLock&) = delete;
  // Unlocks the mutex unless it is null.
  virtual ~VAutoMutexLock();

 private:
  VMutex* mutex_;
};

#endif  // VANTU_VAUTOMUTEXLOCK_H
