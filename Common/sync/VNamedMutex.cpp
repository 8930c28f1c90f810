#include <vantu/VNamedMutex.h>

#include "internal/SharedHandle.h"
#include "platform/NamedObjects.h"

using vantu::internal::Translated;

VNamedMutex::VNamedMutex(const std::string& name) {
  if (!name.empty()) mutex_ = vantu::internal::MakeSharedOrNull<vantu::platform::NamedMutex>(name);
}

VNamedMutex::~VNamedMutex() = default;

void VNamedMutex::Lock() {
  if (!mutex_) throw -1;
  Translated([this] { mutex_->Lock(); });
}

void VNamedMutex::Unlock() {
  if (!mutex_) throw -1;
  Translated([this] { mutex_->Unlock(); });
}
