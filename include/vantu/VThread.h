// VThread: runs one function on a new operating-system thread (a Poco::Thread), passing it one
// pointer-sized value, the thread's data. Create, SetData, Start; there is no join: a caller that
// must know when the function has returned signals it itself (with a VEvent, for instance).
// Data set after Start does not reach a function already called.
//
// Ownership: copies share the thread and its worker. Destroying the last copy neither waits for
// the function nor frees what it uses: the running thread keeps its worker alive until the
// function returns. A thread is never joined; its resources go when it has ended and the last
// copy is gone. The function may destroy the handle it was started from, even while Start still
// runs. When the thread cannot be allocated the object is still built without it, and
// Start throws a plain int -1.
//
// Errors: Start on a thread whose function still runs, or a thread the system refuses, throws
// VantuRuntimeException. A started thread may be started again once its function has returned.
//
// Start(Body) runs a callable instead of a function with the data: the worker owns a copy of it,
// which the new thread calls and destroys when it returns (the data is still stored, and not
// passed). Start(Body) may throw std::bad_alloc, as copying the callable may.
//
// Thread safety: SetData and GetData from any thread; Start from one thread at a time.
#ifndef VANTU_VTHREAD_H
#define VANTU_VTHREAD_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

class VWorker;
namespace Poco {
class Thread;
}

class VANTU_API VThread : public VBaseObject {
 public:
  using Function = void (*)(uintptr_t data);
  using Body = std::function<void()>;

  VThread();
  VThread(const VThread& other);
  VThread& operator=(const VThread& other);
  ~VThread() override;

  // Hands the data to the worker and starts function(data) on the new thread; returns at once.
  // A null function makes a thread that ends at once.
  void Start(Function function);
  // As Start(function), running `body()` on the new thread; an empty body ends at once.
  void Start(Body body);
  // Stores the value as the thread's data and the worker's.
  void SetData(uintptr_t data);
  // The thread's data; 0 after construction.
  uintptr_t GetData() const;

 private:
  void Launch(Function function, Body body);

  std::shared_ptr<Poco::Thread> thread_;
  std::atomic<uintptr_t> data_{0};
  std::shared_ptr<VWorker> worker_;
};

#endif  // VANTU_VTHREAD_H
