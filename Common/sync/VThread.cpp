#include <vantu/VThread.h>

#include <Poco/Runnable.h>
#include <Poco/Thread.h>

#include <utility>

#include <vantu/VException.h>
#include <vantu/VWorker.h>

#include "internal/FileErrors.h"
#include "internal/SharedHandle.h"
#include "platform/Threads.h"

namespace {

// What the Poco::Thread runs: the worker's run. The worker owns it, and keeps itself alive while
// its run lasts, so the thread never frees it.
class WorkerRunnable final : public Poco::Runnable {
 public:
  explicit WorkerRunnable(VWorker& worker) : worker_(worker) {}
  void run() override { worker_.run(); }

 private:
  VWorker& worker_;
};

}  // namespace

VThread::VThread()
    : thread_(vantu::internal::MakeSharedOrNull<Poco::Thread>()),
      worker_(vantu::internal::MakeSharedOrNull<VWorker>()) {
  if (!thread_ || !worker_) {
    thread_.reset();
    worker_.reset();
  }
}

VThread::VThread(const VThread& other)
    : VBaseObject(other),
      thread_(other.thread_),
      data_(other.data_.load(std::memory_order_relaxed)),
      worker_(other.worker_) {}

VThread& VThread::operator=(const VThread& other) {
  VBaseObject::operator=(other);
  thread_ = other.thread_;
  data_.store(other.data_.load(std::memory_order_relaxed), std::memory_order_relaxed);
  worker_ = other.worker_;
  return *this;
}

VThread::~VThread() = default;

void VThread::Start(Function function) { Launch(function, nullptr); }

void VThread::Start(Body body) { Launch(nullptr, std::move(body)); }

void VThread::Launch(Function function, Body body) {
  if (!thread_) throw -1;
  // Held until Start returns: the function may destroy this handle, its last one, and its thread
  // may end before POCO's start has returned. Nothing of this object is touched after the start.
  const std::shared_ptr<Poco::Thread> thread = thread_;
  const std::shared_ptr<VWorker> held = worker_;
  VWorker& worker = *held;
  if (worker.running_.exchange(true, std::memory_order_acquire)) {
    throw VantuRuntimeException("Thread already running", 0);
  }
  try {
    worker.data_.store(data_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    worker.function_.store(function, std::memory_order_relaxed);
    worker.body_ = std::move(body);
    worker.runningThread_ = thread;
    worker.runningSelf_ = held;
    // POCO starts a finished thread again on the same object and then detaches only the new
    // system thread: the previous one, whose function has returned, is detached here.
    const Poco::Thread::TID previous = thread->tid();
    if (!worker.runnable_) worker.runnable_ = std::make_unique<WorkerRunnable>(worker);
    thread->start(*worker.runnable_);
    if (worker.started_) vantu::platform::DetachThread(previous);
    worker.started_ = true;
  } catch (...) {
    worker.runningThread_.reset();
    worker.runningSelf_.reset();
    worker.body_ = nullptr;
    worker.running_.store(false, std::memory_order_release);
    vantu::internal::RethrowAsVantuException();
  }
}

void VThread::SetData(uintptr_t data) {
  data_.store(data, std::memory_order_relaxed);
  if (worker_) worker_->data_.store(data, std::memory_order_relaxed);
}

uintptr_t VThread::GetData() const { return data_.load(std::memory_order_relaxed); }
