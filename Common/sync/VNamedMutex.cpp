#include <vantu/VNamedMutex.h>

#include "internal/FileErrors.h"
#include "internal/SharedHandle.h"
#include "platform/NamedObjects.h"

VNamedMutex::VNamedMutex(const std::string& name) {
  if (!name.empty()) mutex_ = vantu::internal::MakeSharedOrNull<vantu::platform::NamedMutex>(name);
}

VNamedMutex::~VNamedMutex() = default;

void VNamedMutex::Lock() {
  if (!mutex_) throw -1;
  try {
    mutex_->Lock();
  } catch (...) {
    vantu::internal::RethrowAsVantuException();
  }
}

void VNamedMutex::Unlock() {
  if (!mutex_) throw -1;
  try {
    mutex_->Unlock();
  } catch (...) {
    vantu::internal::RethrowAsVantuException();
  }
}
