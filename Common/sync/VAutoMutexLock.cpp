#include <vantu/VAutoMutexLock.h>

VAutoMutexLock::VAutoMutexLock(VMutex* mutex) : mutex_(mutex) {
  if (mutex_ != nullptr) mutex_->Lock();
}

VAutoMutexLock::~VAutoMutexLock() {
  if (mutex_ != nullptr) mutex_->Unlock();
}
