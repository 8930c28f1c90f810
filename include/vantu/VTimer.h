// VTimer: the periodic timer handle the library holds (the hot folder embeds one). It owns a
// VPocoTimer, starts it with a start interval of 1000 ms and a periodic interval of 1000 ms by
// default, and on each tick calls `callback(userData)` on a pool thread (the result is ignored).
//
// A copy (VTimer's copy constructor) owns no VPocoTimer: it carries neither the timer nor the
// callback, so destroying it touches nothing; GetTimer() on it is null and its Start and Stop do
// nothing. CopyFrom copies the intervals only. Nothing throws but SetCallback(Function), which may
// throw std::bad_alloc (and then changes nothing).
//
// The tick callback is either the classic pointer with its user data or a callable
// (SetCallback(Function)): the one set last is called, the other is cleared. The timer owns a
// copy of the callable (a VTimer copy carries none) and destroys it when it is replaced or the
// timer goes; a tick in progress keeps the one it started with alive until it returns. Both run
// on the pool thread of the tick.
//
// Thread safety: as VPocoTimer; SetCallback, of either kind, may also be called while the timer
// runs, from any thread or from inside the callback: the next tick calls the new one.
#ifndef VANTU_VTIMER_H
#define VANTU_VTIMER_H

#include <functional>
#include <memory>
#include <mutex>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VPocoTimer.h>

class VANTU_API VTimer : public VBaseObject {
 public:
  using Callback = int (*)(void* userData);
  using Function = std::function<void()>;

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
  // Replaces the callback (and a classic pointer set before) by a copy of `function`; an empty
  // one leaves none. Starts nothing.
  void SetCallback(Function function);
  void SetPeriodicInterval(unsigned int milliseconds);
  void Start();
  void Stop();

 private:
  static void Dispatch(void* self);

  VPocoTimer* timer_ = nullptr;
  Callback callback_ = nullptr;
  void* userData_ = nullptr;
  std::mutex callbackMutex_;  // guards the callback, of either kind, and the user data
  std::shared_ptr<const Function> function_;
};

#endif  // VANTU_VTIMER_H
