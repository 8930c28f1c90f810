#include <vantu/VWorker.h>

#include <Poco/Runnable.h>
#include <Poco/Thread.h>

#include <utility>

namespace {

// What a thread keeps of its worker and its Poco::Thread after the function returned: released
// when the thread exits, after POCO's own code around run() has finished with them.
struct KeptUntilExit {
  std::shared_ptr<Poco::Thread> thread;
  std::shared_ptr<VWorker> worker;
};
thread_local KeptUntilExit kept;

}  // namespace

VWorker::VWorker() = default;

VWorker::~VWorker() = default;

void VWorker::run() {
  kept.thread = std::move(runningThread_);
  kept.worker = std::move(runningSelf_);
  struct Finished {
    std::atomic<bool>& running;
    ~Finished() { running.store(false, std::memory_order_release); }
  } finished{running_};
  const Function function = function_.load(std::memory_order_relaxed);
  if (body_) {
    const std::function<void()> body = std::move(body_);
    body_ = nullptr;
    body();
  } else if (function != nullptr) {
    function(data_.load(std::memory_order_relaxed));
  }
}
