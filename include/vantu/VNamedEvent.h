// VNamedEvent: an auto-reset event shared between processes by name, with Windows' lifetime and
// semantics: Set with nobody waiting leaves it set and the next Wait takes it; a second Set while
// it is set changes nothing; Set while threads wait releases exactly one of them. It lives while
// any process holds it and disappears with its last holder; a waiter that dies leaves it working.
//
// Names are any bytes; the empty name gives an object without an event, whose Set and Wait do
// nothing (as when memory runs out). The constructor throws VantuRuntimeException when the
// system refuses the object, when it belongs to another user or has another mode than 0600
// (objects are made 0600, for their creator alone), or when another process keeps it locked for
// 10 seconds. vantu_NamedEventCreate returns null in those cases.
//
// Ownership: copies, and the other objects of this process opened with the same name, share one
// mapping, which the last of them releases.
//
// Thread safety: Set and Wait from any thread of any process.
#ifndef VANTU_VNAMEDEVENT_H
#define VANTU_VNAMEDEVENT_H

#include <memory>
#include <string>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

namespace vantu::platform {
class NamedEvent;
}

class VANTU_API VNamedEvent : public VBaseObject {
 public:
  explicit VNamedEvent(const std::string& name);
  VNamedEvent(const VNamedEvent&) = default;
  VNamedEvent& operator=(const VNamedEvent&) = default;
  ~VNamedEvent() override;

  void Set();
  // Blocks, without time-out, until the event is set, and unsets it.
  void Wait();

 private:
  std::shared_ptr<vantu::platform::NamedEvent> event_;
};

#endif  // VANTU_VNAMEDEVENT_H
