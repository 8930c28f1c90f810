// VEvent: an in-process event over a Poco::Event. An auto-reset event lets one Wait through per
// Set and is then unset again; a manual-reset event stays set, letting every Wait through, until
// Reset.
//
// Ownership: copies share the one event, which the last copy frees. When the event cannot be
// allocated the object is still built without it, and Set, Reset and Wait do nothing (Wait
// returns at once). Nothing else throws but VantuRuntimeException for a system failure.
//
// Thread safety: every operation from any thread, on the object or any of its copies.
#ifndef VANTU_VEVENT_H
#define VANTU_VEVENT_H

#include <memory>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

namespace Poco {
class Event;
}

class VANTU_API VEvent : public VBaseObject {
 public:
  explicit VEvent(bool initiallySet = false, bool autoReset = true);
  VEvent(const VEvent&) = default;
  VEvent& operator=(const VEvent&) = default;
  ~VEvent() override;

  void Set();
  void Reset();
  // Blocks, without time-out, until the event is set.
  void Wait();

 private:
  std::shared_ptr<Poco::Event> event_;
};

#endif  // VANTU_VEVENT_H
