#include <vantu/VPocoTimer.h>

#include <Poco/Event.h>
#include <Poco/ThreadPool.h>
#include <Poco/Timer.h>

#include <atomic>

struct VPocoTimer::Impl {
  explicit Impl(VPocoTimer& owner) : owner(owner) {}

  void OnTick(Poco::Timer&) {
    const TickCallback call = callback.load();
    if (call != nullptr) call(userPointer.load());
    tick.set();
  }

  VPocoTimer& owner;
  Poco::Timer timer{0, 0};
  std::atomic<TickCallback> callback{nullptr};
  std::atomic<void*> userPointer{nullptr};
  Poco::Event tick{true};  // auto-reset
};

VPocoTimer::VPocoTimer() : impl_(std::make_unique<Impl>(*this)) {}

VPocoTimer::VPocoTimer(const VPocoTimer& other)
    : VBaseObject(other),
      impl_(std::make_unique<Impl>(*this)),
      startInterval_(other.startInterval_),
      periodicInterval_(other.periodicInterval_) {}

VPocoTimer& VPocoTimer::operator=(const VPocoTimer& other) {
  Assign(other);
  return *this;
}

VPocoTimer::~VPocoTimer() {
  try {
    impl_->timer.restart(0);  // stops a running timer, waiting for a tick in progress
  } catch (...) {
  }
}

void VPocoTimer::Assign(const VPocoTimer& other) {
  if (this != &other) CopyFrom(other);
}

void VPocoTimer::CopyFrom(const VPocoTimer& other) {
  startInterval_ = other.startInterval_;
  periodicInterval_ = other.periodicInterval_;
}

void VPocoTimer::Start(TickCallback callback, void* userPointer) {
  try {
    Poco::ThreadPool& pool = Poco::ThreadPool::defaultPool();
    if (pool.allocated() + 1 > pool.capacity()) pool.addCapacity(1);
    impl_->callback = callback;
    impl_->userPointer = userPointer;
    Poco::TimerCallback<Impl> onTick(*impl_, &Impl::OnTick);
    impl_->timer.setStartInterval(startInterval_);
    impl_->timer.setPeriodicInterval(periodicInterval_);
    impl_->timer.start(onTick);
  } catch (...) {
    // Already running (the new periodic interval applies from the end of the current one), or
    // no thread: the timer does not run. Nothing is reported.
  }
}

void VPocoTimer::Stop() {
  try {
    impl_->timer.stop();
  } catch (...) {
  }
}

void VPocoTimer::SetPeriodicInterval(uint32_t milliseconds) { periodicInterval_ = milliseconds; }

bool VPocoTimer::WaitForTick(long milliseconds) { return impl_->tick.tryWait(milliseconds); }
