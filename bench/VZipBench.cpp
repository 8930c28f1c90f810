// Zip archives beside Info-ZIP in the same run: adding a tree of 2,000 files totalling 200 MB of
// mixed compressible data at deflate level 6 (VZipFile::AddDirectory beside `zip -r -6`), and
// extracting that archive into an empty folder (VUnzipFile::ExtractAll beside `unzip -q`), each
// on one thread like the peer (the argument /N is VZipFile's or VUnzipFile's thread count: /2
// shows the gain of a second thread and has no single-threaded peer); listing an archive of
// 100,000 entries (opening a VUnzipFile beside `unzip -l`); and appending one 64 KiB file to an
// archive of 1,000 or 10,000 entries (VZipFile with `append` beside `zip` adding one file, and
// beside VZipFile writing that file into a new archive).
// Also VRandom::Next beside std::mt19937_64, and VUUID v4 and v7 ids per second. The data
// lives under $TMPDIR (else /tmp) and is removed at exit. The load average at the start is
// printed in the context: the machine may be shared.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include <vantu/VRandom.h>
#include <vantu/VUUID.h>
#include <vantu/VUnzipFile.h>
#include <vantu/VZipFile.h>

namespace {

namespace fs = std::filesystem;

constexpr int kFiles = 2000;
constexpr size_t kTotal = 200u << 20;

class Scratch {
 public:
  Scratch() {
    const char* base = std::getenv("TMPDIR");
    root_ =
        fs::path(base && *base ? base : "/tmp") / ("vantu-zipbench-" + std::to_string(::getpid()));
    fs::create_directories(root_);
  }
  ~Scratch() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }
  const fs::path& root() const { return root_; }

  // 2,000 files in 40 folders: a third text-like (repetitive lines), a third word salad drawn
  // from a small vocabulary, a third random bytes with runs; sizes vary around 250 KB.
  fs::path Tree() {
    const fs::path tree = root_ / "tree";
    if (fs::exists(tree)) return tree;
    VRandom random(2024);
    static const char* const kWords[] = {"zip",   "archive", "deflate", "entry", "folder", "data",
                                         "table", "record",  "stream",  "block", "index",  "value"};
    size_t written = 0;
    for (int i = 0; i < kFiles; ++i) {
      const size_t left = kTotal - written;
      const size_t size =
          i == kFiles - 1
              ? left
              : std::min(left, size_t{50000} + random.Next(2 * (kTotal / kFiles) - 100000));
      std::string data;
      data.reserve(size + 64);
      while (data.size() < size) {
        switch (i % 3) {
          case 0:
            data += "2024-05-0" + std::to_string(random.Next(9) + 1) + " INFO request " +
                    std::to_string(random.Next(1000)) + " served in " +
                    std::to_string(random.Next(90)) + " ms\n";
            break;
          case 1:
            data += kWords[random.Next(12)];
            data += random.Next(8) == 0 ? ".\n" : " ";
            break;
          default: {
            const uint32_t run = random.Next(64);
            if (random.Next(2) == 0) {
              data.append(run, static_cast<char>(random.Next(256)));
            } else {
              for (uint32_t k = 0; k < run; ++k)
                data.push_back(static_cast<char>(random.Next(256)));
            }
          }
        }
      }
      data.resize(size);
      const fs::path file =
          tree / ("d" + std::to_string(i % 40)) / ("f" + std::to_string(i) + ".dat");
      fs::create_directories(file.parent_path());
      std::ofstream(file, std::ios::binary).write(data.data(), data.size());
      written += size;
    }
    return tree;
  }

 private:
  fs::path root_;
};

Scratch& TheScratch() {
  static Scratch scratch;
  return scratch;
}

void Run(const std::string& command) {
  if (std::system(command.c_str()) != 0) std::abort();
}

void BM_ZipTree_VZipFile(benchmark::State& state) {
  const fs::path tree = TheScratch().Tree();
  const fs::path archive = TheScratch().root() / "ours.zip";
  for (auto _ : state) {
    VZipFile zip(archive.string());
    zip.SetMethod(VZipMethod::Deflate, 6);
    zip.SetThreads(static_cast<unsigned>(state.range(0)));
    zip.AddDirectory(tree.string());
    zip.Close();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
  state.counters["ratio"] = double(fs::file_size(archive)) / kTotal;
}

void BM_ZipTree_InfoZip(benchmark::State& state) {
  const fs::path tree = TheScratch().Tree();
  const fs::path archive = TheScratch().root() / "infozip.zip";
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove(archive);
    state.ResumeTiming();
    Run("cd " + TheScratch().root().string() + " && zip -qr -6 " + archive.string() + " tree");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
  state.counters["ratio"] = double(fs::file_size(archive)) / kTotal;
}

// Both extract the archive made by zip -r -6 into an empty folder.
fs::path InfoZipArchive() {
  const fs::path archive = TheScratch().root() / "infozip.zip";
  if (!fs::exists(archive)) {
    TheScratch().Tree();
    Run("cd " + TheScratch().root().string() + " && zip -qr -6 " + archive.string() + " tree");
  }
  return archive;
}

void BM_Extract_VUnzipFile(benchmark::State& state) {
  const fs::path archive = InfoZipArchive();
  const fs::path out = TheScratch().root() / "out-ours";
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove_all(out);
    Run("sync");
    state.ResumeTiming();
    VUnzipFile zip(archive.string());
    zip.SetThreads(static_cast<unsigned>(state.range(0)));
    zip.ExtractAll(out.string());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}

void BM_Extract_InfoUnzip(benchmark::State& state) {
  const fs::path archive = InfoZipArchive();
  const fs::path out = TheScratch().root() / "out-unzip";
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove_all(out);
    Run("sync");
    state.ResumeTiming();
    Run("unzip -q " + archive.string() + " -d " + out.string());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kTotal));
}

// Both list an archive of 100,000 stored one-byte entries written by VZipFile.
fs::path ManyEntries() {
  const fs::path archive = TheScratch().root() / "many.zip";
  if (!fs::exists(archive)) {
    VZipFile zip(archive.string());
    zip.SetMethod(VZipMethod::Store);
    for (int i = 0; i < 100000; ++i)
      zip.AddBuffer("x", 1, "d" + std::to_string(i % 100) + "/" + std::to_string(i));
    zip.Close();
  }
  return archive;
}

void BM_List_VUnzipFile(benchmark::State& state) {
  const fs::path archive = ManyEntries();
  for (auto _ : state) benchmark::DoNotOptimize(VUnzipFile(archive.string()).GetEntryCount());
  state.SetItemsProcessed(state.iterations() * 100000);
}

void BM_List_InfoUnzip(benchmark::State& state) {
  const fs::path archive = ManyEntries();
  for (auto _ : state) Run("unzip -l " + archive.string() + " > /dev/null");
  state.SetItemsProcessed(state.iterations() * 100000);
}

// An archive of `count` entries of about 1 KiB of text each (deflated), written by VZipFile,
// and the 64 KiB text file appended to it.
fs::path AppendBase(long count) {
  const fs::path archive = TheScratch().root() / ("base" + std::to_string(count) + ".zip");
  if (!fs::exists(archive)) {
    VRandom random(7);
    VZipFile zip(archive.string());
    for (long i = 0; i < count; ++i) {
      std::string text;
      while (text.size() < 1024)
        text += "line " + std::to_string(random.Next(100000)) + " of text\n";
      zip.AddBuffer(text.data(), text.size(),
                    "d" + std::to_string(i % 100) + "/" + std::to_string(i) + ".txt");
    }
    zip.Close();
  }
  return archive;
}

fs::path NewFile() {
  const fs::path file = TheScratch().root() / "new" / "new.txt";
  if (!fs::exists(file)) {
    fs::create_directories(file.parent_path());
    std::string text;
    for (int i = 0; text.size() < (64u << 10); ++i)
      text += "appended line " + std::to_string(i) + "\n";
    text.resize(64u << 10);
    std::ofstream(file, std::ios::binary).write(text.data(), text.size());
  }
  return file;
}

void BM_AppendOne_VZipFile(benchmark::State& state) {
  const fs::path base = AppendBase(state.range(0));
  const fs::path file = NewFile();
  const fs::path archive = TheScratch().root() / "append-ours.zip";
  for (auto _ : state) {
    state.PauseTiming();
    fs::copy_file(base, archive, fs::copy_options::overwrite_existing);
    state.ResumeTiming();
    VZipFile zip(archive.string(), true);
    zip.AddFile(file.string());
    zip.Close();
  }
}

void BM_AppendOne_InfoZip(benchmark::State& state) {
  const fs::path base = AppendBase(state.range(0));
  const fs::path file = NewFile();
  const fs::path archive = TheScratch().root() / "append-infozip.zip";
  const std::string command =
      "cd " + file.parent_path().string() + " && zip -q " + archive.string() + " new.txt";
  for (auto _ : state) {
    state.PauseTiming();
    fs::copy_file(base, archive, fs::copy_options::overwrite_existing);
    state.ResumeTiming();
    Run(command);
  }
}

// The same file into a new archive.
void BM_AddOneFresh_VZipFile(benchmark::State& state) {
  const fs::path file = NewFile();
  const fs::path archive = TheScratch().root() / "fresh.zip";
  for (auto _ : state) {
    VZipFile zip(archive.string());
    zip.AddFile(file.string());
    zip.Close();
  }
}

void BM_Next_VRandom(benchmark::State& state) {
  VRandom random;
  for (auto _ : state) benchmark::DoNotOptimize(random.Next());
}

void BM_Next_Mt19937_64(benchmark::State& state) {
  std::mt19937_64 engine(std::random_device{}());
  for (auto _ : state) benchmark::DoNotOptimize(engine());
}

void BM_VUUID_V4(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(VUUID::NewV4());
  state.SetItemsProcessed(state.iterations());
}

void BM_VUUID_V7(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(VUUID::NewV7());
  state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(BM_ZipTree_VZipFile)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kSecond)
    ->Iterations(2)
    ->UseRealTime();
BENCHMARK(BM_ZipTree_InfoZip)->Unit(benchmark::kSecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_Extract_VUnzipFile)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kSecond)
    ->Iterations(2)
    ->UseRealTime();
BENCHMARK(BM_Extract_InfoUnzip)->Unit(benchmark::kSecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_List_VUnzipFile)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_List_InfoUnzip)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_AppendOne_VZipFile)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_AppendOne_InfoZip)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_AddOneFresh_VZipFile)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Next_VRandom);
BENCHMARK(BM_Next_Mt19937_64);
BENCHMARK(BM_VUUID_V4);
BENCHMARK(BM_VUUID_V7);

// For bench/zip64-interop.sh: `vantu_zip_bench --write ARCHIVE COUNT [FILE...]` writes an
// archive of COUNT one-byte entries followed by the files (deflate) with VZipFile, and exits.
int WriteArchive(int argc, char** argv) {
  VZipFile zip(argv[2]);
  const long count = std::atol(argv[3]);
  for (long i = 0; i < count; ++i) zip.AddBuffer("x", 1, "n/" + std::to_string(i));
  for (int i = 4; i < argc; ++i) zip.AddFile(argv[i]);
  zip.Close();
  return 0;
}

int main(int argc, char** argv) {
  if (argc >= 4 && std::string(argv[1]) == "--write") return WriteArchive(argc, argv);
  std::ifstream load("/proc/loadavg");
  std::string average;
  std::getline(load, average);
  benchmark::AddCustomContext("loadavg at start", average);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
