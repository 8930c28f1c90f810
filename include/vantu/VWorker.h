// VWorker: the body a VThread runs, which calls one thread function with one pointer-sized value.
// VThread fills it in and starts it on its thread; run() calls the function, if any. It is a
// plain polymorphic class (no base class): its virtual operations are the destructor, then run.
//
// While its function runs, a started worker keeps itself and its thread alive: a VThread
// destroyed meanwhile frees neither under the function; the thread frees them when it ends.
#ifndef VANTU_VWORKER_H
#define VANTU_VWORKER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include <vantu/Export.h>

namespace Poco {
class Runnable;
class Thread;
}  // namespace Poco

class VANTU_API VWorker {
 public:
  // A thread function; its one argument is the thread's data.
  using Function = void (*)(uintptr_t data);

  VWorker();
  VWorker(const VWorker&) = delete;
  VWorker& operator=(const VWorker&) = delete;
  virtual ~VWorker();

  // Calls the body (VThread::Start(Body)), else the function with the data; returns at once when
  // neither is set. The body is destroyed on the thread once it has returned.
  virtual void run();

 private:
  friend class VThread;

  std::atomic<Function> function_{nullptr};
  std::atomic<uintptr_t> data_{0};
  // Set by VThread::Start, taken over by run().
  std::shared_ptr<Poco::Thread> runningThread_;
  std::shared_ptr<VWorker> runningSelf_;
  std::atomic<bool> running_{false};
  bool started_ = false;
  std::function<void()> body_;  // set by VThread::Start(Body), taken over by run()
  // What the Poco::Thread runs (it calls run()); made at the first start, lives with the worker.
  std::unique_ptr<Poco::Runnable> runnable_;
};

#endif  // VANTU_VWORKER_H
