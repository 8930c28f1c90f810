#include <vantu/VEvent.h>

#include <Poco/Event.h>

#include "internal/SharedHandle.h"

using vantu::internal::Translated;

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
  if (event_) Translated([this] { event_->set(); });
}

void VEvent::Reset() {
  if (event_) Translated([this] { event_->reset(); });
}

void VEvent::Wait() {
  if (event_) Translated([this] { event_->wait(); });
}
