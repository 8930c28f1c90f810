#include <vantu/VEvent.h>

#include <Poco/Event.h>

#include "internal/FileErrors.h"
#include "internal/SharedHandle.h"

VEvent::VEvent(bool initiallySet, bool autoReset)
    : event_(vantu::internal::MakeSharedOrNull<Poco::Event>(
          autoReset ? Poco::Event::EVENT_AUTORESET : Poco::Event::EVENT_MANUALRESET)) {
  // A defined state either way.
  if (initiallySet) {
    Set();
  } else {
    Reset();
  }
}

VEvent::~VEvent() = default;

void VEvent::Set() {
  if (!event_) return;
  try {
    event_->set();
  } catch (...) {
    vantu::internal::RethrowAsVantuException();
  }
}

void VEvent::Reset() {
  if (!event_) return;
  try {
    event_->reset();
  } catch (...) {
    vantu::internal::RethrowAsVantuException();
  }
}

void VEvent::Wait() {
  if (!event_) return;
  try {
    event_->wait();
  } catch (...) {
    vantu::internal::RethrowAsVantuException();
  }
}
