// VTimer: the periodic timer handle the library holds (the hot folder embeds one). It owns a
// VPocoTimer, starts it with a start interval of 1000 ms and a periodic interval of 1000 ms by
// default, and on each tick calls `callback(userData)` on a pool thread (the result is ignored).
//
// A copy (VTimer's copy constructor) owns no VPocoTimer: it carries neither the timer nor the
// callback, so destroying it touches nothing; GetTimer() on it is null and its Start and Stop do
// nothing. CopyFrom copies the intervals only. Nothing throws.
//
// Thread safety: as VPocoTimer.
#ifndef VANTU_VTIMER_H
#define VANTU_VTIMER_H

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VPocoTimer.h>

class VANTU_API VTimer : public VBaseObject {
 public:
  using Callback = int (*)(void* userData);

  VTimer();
  VTimer(const VTimer& other);
  VTimer& operator=(const VTimer& other);
  ~VTimer() override;

  // Slot 3: CopyFrom(other) unless other is this object.
  virtual void Assign(const VTimer& other);
  // Slot 4: the other timer's start and periodic interval into this one's VPocoTimer; a source
  // without one reads as 0xFFFFFFFF for both; nothing is written when this one has none.
  virtual void CopyFrom(const VTimer& other);

  // The owned timer, or null for a copy.
  VPocoTimer* GetTimer() const { return timer_; }
  // Stores both; starts nothing.
  void SetCallback(Callback callback, void* userData);
  void SetPeriodicInterval(unsigned int milliseconds);
  void Start();
  void Stop();

 private:
  static void Dispatch(void* self);

  VPocoTimer* timer_ = nullptr;
  Callback callback_ = nullptr;
  void* userData_ = nullptr;
};

#endif  // VANTU_VTIMER_H
