// VPocoTimer: owns a POCO timer (Poco::Timer) and receives its ticks on a thread of POCO's
// default thread pool; each tick calls a plain callback with a user pointer, then sets a tick
// event.
//
// Start never reports a failure: when the timer cannot start (it already runs, or no pool thread
// can be had) it simply does not run. The default pool grows by one thread when a timer starts
// and the pool is full, so that every running timer keeps a thread. Stop and the destructor wait
// for a tick in progress; neither may be called from inside the tick callback. Ticks never
// overlap; one that runs longer than the period delays the next.
//
// The tick callback is the classic pointer with its user pointer, or a callable
// (Start(TickFunction)); each Start replaces the one before. The timer owns a copy of the
// callable until the next Start or its destruction; a tick in progress keeps the one it started
// with alive. Start(TickFunction) may throw std::bad_alloc (and then changes nothing).
//
// Thread safety: Start, Stop and the destructor from one controlling thread at a time; the
// callback runs on a pool thread, never on the caller's.
#ifndef VANTU_VPOCOTIMER_H
#define VANTU_VPOCOTIMER_H

#include <cstdint>
#include <functional>
#include <memory>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

class VANTU_API VPocoTimer : public VBaseObject {
 public:
  using TickCallback = void (*)(void* userPointer);
  using TickFunction = std::function<void()>;

  VPocoTimer();
  // Copies the two intervals, not the callback or the running state.
  VPocoTimer(const VPocoTimer& other);
  VPocoTimer& operator=(const VPocoTimer& other);
  ~VPocoTimer() override;

  // Slot 3: CopyFrom(other) unless other is this object.
  virtual void Assign(const VPocoTimer& other);
  // Slot 4: copies the start and the periodic interval.
  virtual void CopyFrom(const VPocoTimer& other);

  // Starts ticking after the start interval, then every periodic interval.
  void Start(TickCallback callback, void* userPointer);
  // As Start(callback, userPointer), calling a copy of `tick` (when not empty) at each tick.
  void Start(TickFunction tick);
  void Stop();

  uint32_t GetStartInterval() const { return startInterval_; }
  uint32_t GetPeriodicInterval() const { return periodicInterval_; }
  void SetStartInterval(uint32_t milliseconds) { startInterval_ = milliseconds; }
  // Takes effect at the next Start, or at the end of the current interval of a running timer.
  void SetPeriodicInterval(uint32_t milliseconds);
  // Waits up to `milliseconds` for the next tick; true when one came. Each tick releases one
  // wait (the event resets itself).
  bool WaitForTick(long milliseconds);

 private:
  struct Impl;
  void Begin(TickCallback callback, void* userPointer,
             std::shared_ptr<const TickFunction> function);
  std::unique_ptr<Impl> impl_;
  uint32_t startInterval_ = 0;
  uint32_t periodicInterval_ = 0;
};

#endif  // VANTU_VPOCOTIMER_H
