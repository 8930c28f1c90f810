#include <vantu/VTimer.h>

#include <utility>

VTimer::VTimer() : timer_(new VPocoTimer) {
  timer_->SetStartInterval(1000);
  timer_->SetPeriodicInterval(1000);
}

VTimer::VTimer(const VTimer& other) : VBaseObject(other) {}

VTimer& VTimer::operator=(const VTimer& other) {
  Assign(other);
  return *this;
}

VTimer::~VTimer() { delete timer_; }

void VTimer::Assign(const VTimer& other) {
  if (this != &other) CopyFrom(other);
}

void VTimer::CopyFrom(const VTimer& other) {
  const uint32_t start = other.timer_ ? other.timer_->GetStartInterval() : 0xFFFFFFFFu;
  const uint32_t periodic = other.timer_ ? other.timer_->GetPeriodicInterval() : 0xFFFFFFFFu;
  if (timer_ == nullptr) return;
  timer_->SetStartInterval(start);
  timer_->SetPeriodicInterval(periodic);
}

void VTimer::SetCallback(Callback callback, void* userData) {
  std::shared_ptr<const Function> replaced;  // destroyed after the lock is let go
  std::lock_guard<std::mutex> lock(callbackMutex_);
  callback_ = callback;
  userData_ = userData;
  function_.swap(replaced);
}

void VTimer::SetCallback(Function function) {
  std::shared_ptr<const Function> replaced =
      function ? std::make_shared<const Function>(std::move(function)) : nullptr;
  std::lock_guard<std::mutex> lock(callbackMutex_);
  callback_ = nullptr;
  userData_ = nullptr;
  function_.swap(replaced);
}

void VTimer::SetPeriodicInterval(unsigned int milliseconds) {
  if (timer_ != nullptr) timer_->SetPeriodicInterval(milliseconds);
}

void VTimer::Start() {
  if (timer_ == nullptr) return;
  timer_->SetStartInterval(timer_->GetStartInterval());
  timer_->SetPeriodicInterval(timer_->GetPeriodicInterval());
  timer_->Start(&VTimer::Dispatch, this);
}

void VTimer::Stop() {
  if (timer_ != nullptr) timer_->Stop();
}

void VTimer::Dispatch(void* self) {
  auto* timer = static_cast<VTimer*>(self);
  std::shared_ptr<const Function> function;
  Callback callback = nullptr;
  void* userData = nullptr;
  {
    std::lock_guard<std::mutex> lock(timer->callbackMutex_);
    function = timer->function_;
    callback = timer->callback_;
    userData = timer->userData_;
  }
  if (function) {
    (*function)();
  } else if (callback != nullptr) {
    callback(userData);
  }
}
