#include <vantu/VPocoTimer.h>

#include <Poco/Event.h>
#include <Poco/ThreadPool.h>
#include <Poco/Timer.h>

#include <mutex>
#include <utility>

struct VPocoTimer::Impl {
  explicit Impl(VPocoTimer& owner) : owner(owner) {}

  void OnTick(Poco::Timer&) {
    std::shared_ptr<const TickFunction> function;
    TickCallback call = nullptr;
    void* pointer = nullptr;
    {
      std::lock_guard<std::mutex> lock(mutex);
      function = this->function;
      call = callback;
      pointer = userPointer;
    }
    if (function) {
      (*function)();
    } else if (call != nullptr) {
      call(pointer);
    }
    tick.set();
  }

  // Stores the tick's callback, of either kind; the replaced callable goes after the lock.
  void Set(TickCallback call, void* pointer, std::shared_ptr<const TickFunction> tickFunction) {
    std::lock_guard<std::mutex> lock(mutex);
    callback = call;
    userPointer = pointer;
    function.swap(tickFunction);
  }

  VPocoTimer& owner;
  Poco::Timer timer{0, 0};
  std::mutex mutex;  // guards the three callback fields
  TickCallback callback = nullptr;
  void* userPointer = nullptr;
  std::shared_ptr<const TickFunction> function;
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
  Begin(callback, userPointer, nullptr);
}

void VPocoTimer::Start(TickFunction tick) {
  Begin(nullptr, nullptr, tick ? std::make_shared<const TickFunction>(std::move(tick)) : nullptr);
}

void VPocoTimer::Begin(TickCallback callback, void* userPointer,
                       std::shared_ptr<const TickFunction> function) {
  try {
    Poco::ThreadPool& pool = Poco::ThreadPool::defaultPool();
    if (pool.allocated() + 1 > pool.capacity()) pool.addCapacity(1);
    impl_->Set(callback, userPointer, std::move(function));
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
