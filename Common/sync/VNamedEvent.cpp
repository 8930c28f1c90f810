#include <vantu/VNamedEvent.h>

#include "internal/SharedHandle.h"
#include "platform/NamedObjects.h"

using vantu::internal::Translated;

VNamedEvent::VNamedEvent(const std::string& name) {
  if (!name.empty()) event_ = vantu::internal::MakeSharedOrNull<vantu::platform::NamedEvent>(name);
}

VNamedEvent::~VNamedEvent() = default;

void VNamedEvent::Set() {
  if (event_) Translated([this] { event_->Set(); });
}

void VNamedEvent::Wait() {
  if (event_) Translated([this] { event_->Wait(); });
}
