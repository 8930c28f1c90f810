#include <vantu/VAutoNamedMutexLock.h>

VAutoNamedMutexLock::VAutoNamedMutexLock(VNamedMutex* mutex) : mutex_(mutex) {
  if (mutex_ != nullptr) mutex_->Lock();
}

VAutoNamedMutexLock::~VAutoNamedMutexLock() {
  if (mutex_ != nullptr) mutex_->Unlock();
}
