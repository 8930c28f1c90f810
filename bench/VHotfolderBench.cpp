// The hot folder's scan: N new complete files of 1 KiB delivered by one scan, an idle scan over
// 10,000 files already delivered, and the latency from a writer's close() to the callback with
// a period of 1000 ms. Data lives under $TMPDIR (else /tmp); no current log is set, so tracing
// costs only its level test.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <vantu/VHotfolder.h>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

fs::path Scratch(const std::string& name) {
  const char* base = std::getenv("TMPDIR");
  fs::path path = fs::path(base && *base ? base : "/tmp") /
                  ("vantu-hfbench-" + std::to_string(::getpid()) + "-" + name);
  fs::remove_all(path);
  fs::create_directories(path);
  return path;
}

void WriteFiles(const fs::path& dir, int count) {
  const std::string kilobyte(1024, 'k');
  for (int i = 0; i < count; ++i) std::ofstream(dir / ("f" + std::to_string(i))) << kilobyte;
}

int CountDelivery(const char*, int, void* count) {
  ++*static_cast<std::atomic<long>*>(count);
  return 0;
}

void BM_ScanNewFiles(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const fs::path dir = Scratch("new" + std::to_string(count));
  std::atomic<long> delivered{0};
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove_all(dir);
    fs::create_directories(dir);
    WriteFiles(dir, count);
    VHotfolder folder;
    folder.SetPath(VPath(dir.c_str()));
    folder.SetCallback(CountDelivery);
    folder.SetUserData(&delivered);
    delivered = 0;
    state.ResumeTiming();
    folder.CheckFolderChanges();
    if (delivered != count) state.SkipWithError("not every file was delivered");
  }
  state.SetItemsProcessed(state.iterations() * count);
  fs::remove_all(dir);
}
BENCHMARK(BM_ScanNewFiles)
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);

void BM_IdleScan10k(benchmark::State& state) {
  const fs::path dir = Scratch("idle");
  WriteFiles(dir, 10000);
  std::atomic<long> delivered{0};
  VHotfolder folder;
  folder.SetPath(VPath(dir.c_str()));
  folder.SetCallback(CountDelivery);
  folder.SetUserData(&delivered);
  folder.CheckFolderChanges();  // delivers all; later scans find them in the list
  for (auto _ : state) folder.CheckFolderChanges();
  if (delivered != 10000) state.SkipWithError("not every file was delivered once");
  state.SetItemsProcessed(state.iterations() * 10000);
  fs::remove_all(dir);
}
BENCHMARK(BM_IdleScan10k)->Unit(benchmark::kMillisecond)->UseRealTime();

// Files closed at staggered moments while a hot folder with a 1000 ms period runs.
void BM_CloseToCallbackLatency(benchmark::State& state) {
  constexpr int kFiles = 50;
  const fs::path dir = Scratch("latency");
  struct Seen {
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::string, Clock::time_point> at;
  } seen;
  VHotfolder folder;
  folder.SetPath(VPath(dir.c_str()));
  folder.SetTimeMilliseconds(1000);
  folder.SetUserData(&seen);
  folder.SetCallback([](const char* path, int, void* data) {
    auto* s = static_cast<Seen*>(data);
    std::lock_guard<std::mutex> lock(s->mutex);
    s->at[path] = Clock::now();
    s->changed.notify_all();
    return 0;
  });
  for (auto _ : state) {
    folder.Start();
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // the first scan runs
    std::map<std::string, Clock::time_point> closed;
    for (int i = 0; i < kFiles; ++i) {
      const std::string path = (dir / ("l" + std::to_string(i))).string();
      { std::ofstream(path) << "payload"; }
      closed[path] = Clock::now();
      std::this_thread::sleep_for(std::chrono::milliseconds(137));  // not in step with the period
    }
    std::unique_lock<std::mutex> lock(seen.mutex);
    seen.changed.wait_for(lock, std::chrono::seconds(30),
                          [&] { return seen.at.size() >= static_cast<size_t>(kFiles); });
    std::vector<double> latencies;
    for (const auto& [path, time] : closed) {
      if (seen.at.count(path)) {
        latencies.push_back(
            std::chrono::duration<double, std::milli>(seen.at[path] - time).count());
      }
    }
    lock.unlock();
    folder.Stop();
    if (latencies.size() != kFiles) {
      state.SkipWithError("a file was not delivered");
      break;
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["median_ms"] = latencies[kFiles / 2];
    state.counters["worst_ms"] = latencies.back();
  }
  fs::remove_all(dir);
}
BENCHMARK(BM_CloseToCallbackLatency)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
