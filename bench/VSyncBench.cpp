// Synchronisation costs, each beside its baseline in the same run:
// - uncontended lock + unlock: VMutex beside std::recursive_mutex, VNamedMutex beside a
//   process-shared pthread_mutex_t with the same attributes (robust, recursive) and a plain one;
// - event ping-pong round trips: VEvent between two threads beside std::condition_variable,
//   VNamedEvent between two processes beside a pair of process-shared semaphores;
// - VThread create + start until its function has signalled, beside a detached std::thread whose
//   function signals the same way, and std::thread create + start + join;
// - PostNotification to 1,000 observers, per observer call.
// The ping-pongs and the thread starts count the CPU time of the whole process (both sides).
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include <vantu/VEvent.h>
#include <vantu/VMutex.h>
#include <vantu/VNamedEvent.h>
#include <vantu/VNamedMutex.h>
#include <vantu/VNotificationCenter.h>
#include <vantu/VSharedMemory.h>
#include <vantu/VThread.h>

namespace {

std::string UniqueName(const char* what) {
  return "vantu-syncbench-" + std::to_string(::getpid()) + "-" + what;
}

// Memory shared with a forked child.
template <typename T>
T* SharedAnonymous() {
  void* memory =
      ::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return new (memory) T();
}

template <typename T>
void ReleaseAnonymous(T* object) {
  object->~T();
  ::munmap(object, sizeof(T));
}

void BM_VMutex(benchmark::State& state) {
  VMutex mutex;
  for (auto _ : state) {
    mutex.Lock();
    mutex.Unlock();
  }
}
BENCHMARK(BM_VMutex);

void BM_StdRecursiveMutex(benchmark::State& state) {
  std::recursive_mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}
BENCHMARK(BM_StdRecursiveMutex);

void BM_VNamedMutex(benchmark::State& state) {
  VNamedMutex mutex(UniqueName("mutex"));
  for (auto _ : state) {
    mutex.Lock();
    mutex.Unlock();
  }
}
BENCHMARK(BM_VNamedMutex);

// A process-shared pthread mutex in shared memory: plain (`robustRecursive` false), or robust and
// recursive as VNamedMutex's is.
void ProcessSharedPthreadMutex(benchmark::State& state, bool robustRecursive) {
  auto* mutex = SharedAnonymous<pthread_mutex_t>();
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  if (robustRecursive) {
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  }
  pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  for (auto _ : state) {
    pthread_mutex_lock(mutex);
    pthread_mutex_unlock(mutex);
  }
  pthread_mutex_destroy(mutex);
  ReleaseAnonymous(mutex);
}
void BM_ProcessSharedPthreadMutex(benchmark::State& state) {
  ProcessSharedPthreadMutex(state, false);
}
BENCHMARK(BM_ProcessSharedPthreadMutex);
void BM_RobustRecursivePthreadMutex(benchmark::State& state) {
  ProcessSharedPthreadMutex(state, true);
}
BENCHMARK(BM_RobustRecursivePthreadMutex);

// One direction of a condition-variable ping-pong.
struct Signal {
  std::mutex mutex;
  std::condition_variable condition;
  bool set = false;
  void Set() {
    {
      std::lock_guard<std::mutex> lock(mutex);
      set = true;
    }
    condition.notify_one();
  }
  void Wait() {
    std::unique_lock<std::mutex> lock(mutex);
    condition.wait(lock, [this] { return set; });
    set = false;
  }
};

// One direction of a semaphore ping-pong, in memory shared with a forked child.
struct Semaphore {
  Semaphore() { sem_init(&semaphore, 1, 0); }
  ~Semaphore() { sem_destroy(&semaphore); }
  void Set() { sem_post(&semaphore); }
  void Wait() { sem_wait(&semaphore); }
  sem_t semaphore;
};

// Round trips: this thread sets ping and waits for pong; the partner, another thread or a forked
// process, waits for ping and sets pong until told to stop.
template <typename Event>
void PingPong(benchmark::State& state, Event& ping, Event& pong, bool process) {
  auto* stop = SharedAnonymous<std::atomic<bool>>();
  auto partner = [&] {
    for (;;) {
      ping.Wait();
      if (stop->load()) return;
      pong.Set();
    }
  };
  std::thread thread;
  pid_t child = -1;
  if (!process) {
    thread = std::thread(partner);
  } else if ((child = ::fork()) == 0) {
    partner();
    ::_exit(0);
  }
  for (auto _ : state) {
    ping.Set();
    pong.Wait();
  }
  stop->store(true);
  ping.Set();
  if (process) {
    ::waitpid(child, nullptr, 0);
  } else {
    thread.join();
  }
  ReleaseAnonymous(stop);
  state.counters["round_trips"] =
      benchmark::Counter(state.iterations(), benchmark::Counter::kIsRate);
}

void BM_VEventPingPong(benchmark::State& state) {
  VEvent ping;
  VEvent pong;
  PingPong(state, ping, pong, false);
}
BENCHMARK(BM_VEventPingPong)->UseRealTime()->MeasureProcessCPUTime();

void BM_ConditionVariablePingPong(benchmark::State& state) {
  Signal ping;
  Signal pong;
  PingPong(state, ping, pong, false);
}
BENCHMARK(BM_ConditionVariablePingPong)->UseRealTime()->MeasureProcessCPUTime();

void BM_VNamedEventPingPongBetweenProcesses(benchmark::State& state) {
  const std::string name = UniqueName("event");
  VNamedEvent ping(name + ".ping");  // the child shares them by inheritance
  VNamedEvent pong(name + ".pong");
  PingPong(state, ping, pong, true);
}
BENCHMARK(BM_VNamedEventPingPongBetweenProcesses)->UseRealTime();

void BM_SemaphorePairPingPongBetweenProcesses(benchmark::State& state) {
  auto* ping = SharedAnonymous<Semaphore>();
  auto* pong = SharedAnonymous<Semaphore>();
  PingPong(state, *ping, *pong, true);
  ReleaseAnonymous(ping);
  ReleaseAnonymous(pong);
}
BENCHMARK(BM_SemaphorePairPingPongBetweenProcesses)->UseRealTime();

// Thread starts, each timed until the new thread's function has set `started` (the same
// condition-variable signal on both sides); neither side joins.
void BM_VThreadStartToSignal(benchmark::State& state) {
  static Signal started;  // outlives the last thread, which may still be notifying
  for (auto _ : state) {
    VThread thread;
    thread.SetData(reinterpret_cast<uintptr_t>(&started));
    thread.Start([](uintptr_t signal) { reinterpret_cast<Signal*>(signal)->Set(); });
    started.Wait();
  }
}
BENCHMARK(BM_VThreadStartToSignal)->UseRealTime()->MeasureProcessCPUTime();

void BM_StdThreadStartToSignal(benchmark::State& state) {
  static Signal started;  // outlives the last thread, which may still be notifying
  for (auto _ : state) {
    std::thread([] { started.Set(); }).detach();
    started.Wait();
  }
}
BENCHMARK(BM_StdThreadStartToSignal)->UseRealTime()->MeasureProcessCPUTime();

void BM_StdThreadStartToJoin(benchmark::State& state) {
  for (auto _ : state) {
    std::thread thread([] { benchmark::ClobberMemory(); });
    thread.join();
  }
}
BENCHMARK(BM_StdThreadStartToJoin)->UseRealTime()->MeasureProcessCPUTime();

void CountCall(void* count, void*) { ++*static_cast<long*>(count); }

void BM_PostNotificationTo1000Observers(benchmark::State& state) {
  VNotificationCenter center;
  long calls = 0;
  for (int i = 0; i < 1000; ++i) {
    center.GetList()->push_back(new VObserver(&calls, new VNotification("changed"), &CountCall));
  }
  for (auto _ : state) center.PostNotification(new VNotification("changed"), nullptr);
  benchmark::DoNotOptimize(calls);
  state.counters["per_observer_call"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * 1000,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_PostNotificationTo1000Observers);

}  // namespace

BENCHMARK_MAIN();
