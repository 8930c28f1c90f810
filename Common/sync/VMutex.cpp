#include <vantu/VMutex.h>

#include <Poco/Mutex.h>

#include "internal/FileErrors.h"
#include "internal/SharedHandle.h"

VMutex::VMutex() : mutex_(vantu::internal::MakeSharedOrNull<Poco::Mutex>()) {}

VMutex::~VMutex() = default;

void VMutex::Lock() {
  if (!mutex_) throw -1;
  try {
    mutex_->lock();
  } catch (...) {
    vantu::internal::RethrowAsVantuException();
  }
}

void VMutex::Unlock() {
  if (!mutex_) throw -1;
  try {
    mutex_->unlock();
  } catch (...) {
    vantu::internal::RethrowAsVantuException();
  }
}
