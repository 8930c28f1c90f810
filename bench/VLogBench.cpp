// Lines per second through VLogMessage into an open VLog, beside spdlog's asynchronous rotating
// file logger doing the same work in the same run; the cost of a filtered-out message; and a
// burst of 2,000,000 lines from one thread (peak RSS and the time the writer needs to drain).
// Each timed run ends when every line is written and flushed to the file, on both sides. Both
// rotate at 10 MB and keep every line: after each run (clock paused) the archives are counted
// and removed, and the benchmark fails if a side's files hold fewer lines than it logged.
#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <mutex>
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

// Lines logged by each side, banner included, and lines counted in archives already removed.
std::atomic<long long> g_vantuLines{6};
std::atomic<long long> g_spdlogLines{0};
long long g_vantuRemoved = 0;
long long g_spdlogRemoved = 0;

// CPU time of the whole process (every thread: producers and the writer), in milliseconds. On a
// loaded machine it shows the work each side does apart from the wait for a share of the CPU.
double ProcessCpuMs() {
  timespec now{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

long long CountLines(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  char buffer[1 << 16];
  long long lines = 0;
  while (in.read(buffer, sizeof(buffer)) || in.gcount() > 0) {
    lines += std::count(buffer, buffer + in.gcount(), '\n');
  }
  return lines;
}

// Counts the lines of a side's files (those whose names start with `stem`), removing every file
// but the live one; true when they hold every line logged.
bool KeptEveryLine(const std::string& stem, const std::string& live, long long& removed,
                   long long logged) {
  long long lines = removed;
  for (const auto& entry : fs::directory_iterator(Folder())) {
    const std::string name = entry.path().filename().string();
    if (name.compare(0, stem.size(), stem) != 0) continue;
    const long long count = CountLines(entry.path());
    lines += count;
    if (name != live) {
      removed += count;
      fs::remove(entry.path());
    }
  }
  return lines == logged;
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
  g_vantuLines += count;
}

void BM_VLogMessage(benchmark::State& state) {
  VLog& log = OpenLog();
  const int threads = static_cast<int>(state.range(0));
  double cpu = 0;
  for (auto _ : state) {
    const double start = ProcessCpuMs();
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) workers.emplace_back(LogLines, t, kLinesPerRun / threads);
    for (auto& worker : workers) worker.join();
    log.Flush();
    cpu += ProcessCpuMs() - start;
    state.PauseTiming();
    const bool kept = KeptEveryLine("vantu.log", "vantu.log", g_vantuRemoved, g_vantuLines);
    state.ResumeTiming();
    if (!kept) state.SkipWithError("lines lost");
  }
  state.counters["process_cpu_ms"] = cpu / static_cast<double>(state.iterations());
  state.SetItemsProcessed(state.iterations() * kLinesPerRun);
}
BENCHMARK(BM_VLogMessage)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

// spdlog's rotating file sink, telling when a flush has reached the file: an asynchronous
// logger's flush() only queues the request behind the lines.
class FlushedSink : public spdlog::sinks::sink {
 public:
  explicit FlushedSink(std::shared_ptr<spdlog::sinks::sink> file) : file_(std::move(file)) {}
  void log(const spdlog::details::log_msg& message) override { file_->log(message); }
  void flush() override {
    file_->flush();
    std::lock_guard<std::mutex> lock(mutex_);
    ++flushes_;
    flushed_.notify_all();
  }
  void set_pattern(const std::string& pattern) override { file_->set_pattern(pattern); }
  void set_formatter(std::unique_ptr<spdlog::formatter> formatter) override {
    file_->set_formatter(std::move(formatter));
  }
  // Flushes the logger and waits until every line queued before is in the file.
  void FlushAndWait(spdlog::logger& logger) {
    std::unique_lock<std::mutex> lock(mutex_);
    const long long target = flushes_ + 1;
    lock.unlock();
    logger.flush();
    lock.lock();
    flushed_.wait(lock, [&] { return flushes_ >= target; });
  }

 private:
  std::shared_ptr<spdlog::sinks::sink> file_;
  std::mutex mutex_;
  std::condition_variable flushed_;
  long long flushes_ = 0;
};

struct Spdlog {
  std::shared_ptr<FlushedSink> sink;
  std::shared_ptr<spdlog::logger> logger;
};

// Rotation at 10 MB like the VLog; 16 archives hold more than one run writes, and the archives
// are removed between runs, so no line is ever deleted by rotation.
Spdlog& OpenSpdlog() {
  static Spdlog made = [] {
    spdlog::init_thread_pool(64 * 1024, 1);
    Spdlog side;
    side.sink =
        std::make_shared<FlushedSink>(std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
            (Folder() / "spdlog.log").string(), 10 * 1024 * 1024, 16));
    side.logger = std::make_shared<spdlog::async_logger>("spdlog", side.sink, spdlog::thread_pool(),
                                                         spdlog::async_overflow_policy::block);
    side.logger->set_pattern("%Y/%m/%d - [%a] - %H:%M:%S - %v", spdlog::pattern_time_type::utc);
    return side;
  }();
  return made;
}

void SpdlogLines(spdlog::logger* logger, int thread, int count) {
  for (int i = 0; i < count; ++i) {
    // The same line text as VLOG composes, formatted by spdlog's own formatter.
    logger->info("INFO [File: VLogBench.cpp Line: {}]\t\"thread {} line {} of the benchmark\"",
                 __LINE__, thread, i);
  }
  g_spdlogLines += count;
}

void BM_SpdlogAsync(benchmark::State& state) {
  Spdlog& side = OpenSpdlog();
  const int threads = static_cast<int>(state.range(0));
  double cpu = 0;
  for (auto _ : state) {
    const double start = ProcessCpuMs();
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
      workers.emplace_back(SpdlogLines, side.logger.get(), t, kLinesPerRun / threads);
    }
    for (auto& worker : workers) worker.join();
    side.sink->FlushAndWait(*side.logger);
    cpu += ProcessCpuMs() - start;
    state.PauseTiming();
    const bool kept = KeptEveryLine("spdlog.", "spdlog.log", g_spdlogRemoved, g_spdlogLines);
    state.ResumeTiming();
    if (!kept) state.SkipWithError("lines lost");
  }
  state.counters["process_cpu_ms"] = cpu / static_cast<double>(state.iterations());
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
