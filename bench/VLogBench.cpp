// Lines per second through VLogMessage into an open VLog, beside spdlog's asynchronous rotating
// file logger doing the same work in the same run; the cost of a filtered-out message; and a
// burst of 2,000,000 lines from one thread (peak RSS and the time the writer needs to drain).
// Each timed run includes writing every line to the file.
#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <vantu/VLog.h>
#include <vantu/VLogMessage.h>

namespace {

namespace fs = std::filesystem;

constexpr int kLinesPerRun = 200000;

// A scratch folder, removed at exit.
struct ScratchFolder {
  ScratchFolder() {
    const char* base = std::getenv("TMPDIR");
    path =
        fs::path(base && *base ? base : "/tmp") / ("vantu-logbench-" + std::to_string(::getpid()));
    fs::create_directories(path);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  fs::path path;
};

const fs::path& Folder() {
  static const ScratchFolder folder;
  return folder.path;
}

VLog& OpenLog() {
  static VLog* log = [] {
    auto* made = new VLog;
    made->SetFolder(VPath(Folder().c_str()));
    made->SetName(VString("vantu"));
    made->SetLevel(6);
    made->Open();
    VLog::SetCurrent(made);
    return made;
  }();
  return *log;
}

void LogLines(int thread, int count) {
  for (int i = 0; i < count; ++i) {
    VLOG(INFO) << "thread " << thread << " line " << i << " of the benchmark";
  }
}

void BM_VLogMessage(benchmark::State& state) {
  VLog& log = OpenLog();
  const int threads = static_cast<int>(state.range(0));
  for (auto _ : state) {
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) workers.emplace_back(LogLines, t, kLinesPerRun / threads);
    for (auto& worker : workers) worker.join();
    log.Flush();
  }
  state.SetItemsProcessed(state.iterations() * kLinesPerRun);
}
BENCHMARK(BM_VLogMessage)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

std::shared_ptr<spdlog::logger> OpenSpdlog() {
  static std::shared_ptr<spdlog::logger> logger = [] {
    spdlog::init_thread_pool(64 * 1024, 1);
    auto made = spdlog::create_async<spdlog::sinks::rotating_file_sink_mt>(
        "spdlog", (Folder() / "spdlog.log").string(), 10 * 1024 * 1024, 3);
    made->set_pattern("%Y/%m/%d - [%a] - %H:%M:%S - %v");
    return made;
  }();
  return logger;
}

void SpdlogLines(spdlog::logger* logger, int thread, int count) {
  for (int i = 0; i < count; ++i) {
    // The same line text as VLOG composes, formatted by spdlog's own formatter.
    logger->info("INFO [File: VLogBench.cpp Line: {}]\t\"thread {} line {} of the benchmark\"",
                 __LINE__, thread, i);
  }
}

void BM_SpdlogAsync(benchmark::State& state) {
  auto logger = OpenSpdlog();
  const int threads = static_cast<int>(state.range(0));
  for (auto _ : state) {
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
      workers.emplace_back(SpdlogLines, logger.get(), t, kLinesPerRun / threads);
    }
    for (auto& worker : workers) worker.join();
    while (spdlog::thread_pool()->queue_size() > 0) std::this_thread::yield();
    logger->flush();
  }
  state.SetItemsProcessed(state.iterations() * kLinesPerRun);
}
BENCHMARK(BM_SpdlogAsync)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_VLogMessageFilteredOut(benchmark::State& state) {
  OpenLog();
  for (auto _ : state) VLOG(DEBUG) << "never composed " << 42;
}
BENCHMARK(BM_VLogMessageFilteredOut);

void BM_VLogMessageObjectFilteredOut(benchmark::State& state) {
  OpenLog();
  for (auto _ : state) {
    VLogMessage message(__FILE__, __LINE__, __func__, "DEBUG");
    benchmark::DoNotOptimize(&message);
  }
}
BENCHMARK(BM_VLogMessageObjectFilteredOut);

void BM_VLogMessageWithoutCurrentLog(benchmark::State& state) {
  VLog* previous = VLog::SetCurrent(nullptr);
  for (auto _ : state) VLOG(INFO) << "nowhere " << 42;
  VLog::SetCurrent(previous);
}
BENCHMARK(BM_VLogMessageWithoutCurrentLog);

// 2,000,000 lines from one thread as fast as it can: the producer waits when the writer's queue
// is full, so memory stays bounded.
void BM_Burst2M(benchmark::State& state) {
  VLog& log = OpenLog();
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    LogLines(0, 2000000);
    const auto produced = std::chrono::steady_clock::now();
    log.Flush();
    const auto drained = std::chrono::steady_clock::now();
    state.counters["produce_ms"] =
        std::chrono::duration<double, std::milli>(produced - start).count();
    state.counters["drain_after_ms"] =
        std::chrono::duration<double, std::milli>(drained - produced).count();
  }
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_rss_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
  state.SetItemsProcessed(state.iterations() * 2000000);
}
BENCHMARK(BM_Burst2M)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
