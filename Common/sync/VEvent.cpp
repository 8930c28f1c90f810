#include <vantu/VEvent.h>

#include "internal/SharedHandle.h"
#include "sync/internal/Event.h"

VEvent::VEvent(bool initiallySet, bool autoReset)
    : event_(vantu::internal::MakeSharedOrNull<vantu::sync::Event>(autoReset)) {
  if (initiallySet) Set();
}

VEvent::~VEvent() = default;

void VEvent::Set() {
  if (event_) event_->Set();
}

void VEvent::Reset() {
  if (event_) event_->Reset();
}

void VEvent::Wait() {
  if (event_) event_->Wait();
}
