#include <vantu/VNamedEvent.h>

#include "internal/FileErrors.h"
#include "internal/SharedHandle.h"
#include "platform/NamedObjects.h"

VNamedEvent::VNamedEvent(const std::string& name) {
  if (!name.empty()) event_ = vantu::internal::MakeSharedOrNull<vantu::platform::NamedEvent>(name);
}

VNamedEvent::~VNamedEvent() = default;

void VNamedEvent::Set() {
  if (!event_) return;
  try {
    event_->Set();
  } catch (...) {
    vantu::internal::RethrowAsVantuException();
  }
}

void VNamedEvent::Wait() {
  if (!event_) return;
  try {
    event_->Wait();
  } catch (...) {
    vantu::internal::RethrowAsVantuException();
  }
}
