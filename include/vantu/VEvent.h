// VEvent: an in-process event. An auto-reset event lets one Wait through per Set and is then
// unset again; a manual-reset event stays set, letting every Wait through, until Reset. A thread
// released by Set may destroy the event (its last copy) at once, while Set is still returning.
//
// Ownership: copies share the one event, which the last copy frees. When the event cannot be
// allocated the object is still built without it, and Set, Reset and Wait do nothing (Wait
// returns at once). Nothing throws.
//
// Thread safety: every operation from any thread, on the object or any of its copies.
#ifndef VANTU_VEVENT_H
#define VANTU_VEVENT_H

#include <memory>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

namespace vantu::sync {
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
  std::shared_ptr<vantu::sync::Event> event_;
};

#endif  // VANTU_VEVENT_H
