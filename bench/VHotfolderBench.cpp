// The hot folder's scan: N new complete files of 1 KiB delivered by one scan; an idle scan over
// 10,000 and 100,000 files already delivered beside a bare readdir loop over the same folder;
// Remove from a list of 10,000; and the latency from a writer's close() to the callback, by the
// periodic scan alone and with wake on change. Data lives under $TMPDIR (else /tmp).
#include <benchmark/benchmark.h>
#include <dirent.h>
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
#include <vantu/VLog.h>

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

// Folders of N delivered files, shared by the idle scans and the listing floor so that both
// read the same directory in the same run; removed at exit.
const fs::path& FilledFolder(int count) {
  static struct Folders {
    std::map<int, fs::path> paths;
    ~Folders() {
      for (const auto& entry : paths) fs::remove_all(entry.second);
    }
  } folders;
  auto it = folders.paths.find(count);
  if (it == folders.paths.end()) {
    const fs::path dir = Scratch("idle" + std::to_string(count));
    WriteFiles(dir, count);
    it = folders.paths.emplace(count, dir).first;
  }
  return it->second;
}

// The floor: a bare opendir/readdir loop over the folder.
void BM_ListingFloor(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const fs::path& dir = FilledFolder(count);
  for (auto _ : state) {
    DIR* listing = ::opendir(dir.c_str());
    long entries = 0;
    while (const dirent* entry = ::readdir(listing)) entries += entry->d_name[0] != '.';
    ::closedir(listing);
    if (entries != count) state.SkipWithError("wrong count");
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_ListingFloor)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

// A scan that finds every file already delivered. Second argument: 0 without a current log, 1
// with a log whose level (warnings) filters the scan's traces out.
void BM_IdleScan(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const fs::path& dir = FilledFolder(count);
  const fs::path logDir = Scratch("idlelog");
  VLog log;
  log.SetFolder(VPath(logDir.c_str()));
  log.SetLevel(4);
  VLog* previous = VLog::SetCurrent(state.range(1) != 0 ? &log : nullptr);
  std::atomic<long> delivered{0};
  VHotfolder folder;
  folder.SetPath(VPath(dir.c_str()));
  folder.SetCallback(CountDelivery);
  folder.SetUserData(&delivered);
  folder.CheckFolderChanges();  // delivers all; later scans find them in the list
  for (auto _ : state) folder.CheckFolderChanges();
  if (delivered != count) state.SkipWithError("not every file was delivered once");
  state.SetItemsProcessed(state.iterations() * count);
  VLog::SetCurrent(previous);
  fs::remove_all(logDir);
}
BENCHMARK(BM_IdleScan)
    ->Args({10000, 0})
    ->Args({10000, 1})
    ->Args({100000, 0})
    ->Args({100000, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Remove from a list of 10,000 delivered entries, of a path that is not in it (argument 0) and of
// listed ones, kept on the disk (argument 1: each iteration takes another entry out).
void BM_Remove(benchmark::State& state) {
  constexpr int kListed = 10000;
  const fs::path& dir = FilledFolder(kListed);
  std::atomic<long> delivered{0};
  VHotfolder folder;
  folder.SetPath(VPath(dir.c_str()));
  folder.SetCallback(CountDelivery);
  folder.SetUserData(&delivered);
  folder.CheckFolderChanges();
  std::vector<VFile> files;
  for (int i = 0; i < kListed; ++i) {
    files.emplace_back((state.range(0) == 0 ? dir / ("absent" + std::to_string(i))
                                            : dir / ("f" + std::to_string(i)))
                           .c_str());
  }
  size_t next = 0;
  for (auto _ : state) folder.Remove(files[next++ % files.size()], true);
  if (folder.GetFileList()->size() != static_cast<size_t>(kListed) - (state.range(0) ? next : 0)) {
    state.SkipWithError("the list did not change as expected");
  }
}
BENCHMARK(BM_Remove)->Arg(0)->Arg(1)->Iterations(5000)->Unit(benchmark::kMicrosecond);

// Files closed at staggered moments while a hot folder runs. Arguments: the period in
// milliseconds, and 1 to wake on change.
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
  folder.SetTimeMilliseconds(static_cast<int>(state.range(0)));
  folder.SetWakeOnChange(state.range(1) != 0);
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
    seen.changed.wait_for(lock, std::chrono::seconds(60),
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
BENCHMARK(BM_CloseToCallbackLatency)
    ->Args({1000, 0})
    ->Args({10000, 1})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
