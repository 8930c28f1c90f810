#include <vantu/VMutex.h>

#include <Poco/Mutex.h>

#include "internal/SharedHandle.h"

using vantu::internal::Translated;

VMutex::VMutex() : mutex_(vantu::internal::MakeSharedOrNull<Poco::Mutex>()) {}

VMutex::~VMutex() = default;

void VMutex::Lock() {
  if (!mutex_) throw -1;
  Translated([this] { mutex_->lock(); });
}

void VMutex::Unlock() {
  if (!mutex_) throw -1;
  Translated([this] { mutex_->unlock(); });
}
