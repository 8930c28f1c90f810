// File-system hot paths: the checksum of a 1 GiB file in the page cache (vantu_GetFileInfo)
// beside the same work done by hand (read(2) in 256 KiB blocks, each summed by libdeflate while
// it is in the cache) and beside the floor of reading the file alone; the checksum in memory
// (VChecksum) beside zlib's and libdeflate's crc32 over the same bytes; a directory walk over
// 100,000 files beside find(1); and the cost of one availability test. The data lives under
// $TMPDIR (else /tmp) and is removed at exit. Compare with --benchmark_repetitions and
// --benchmark_enable_random_interleaving on a shared machine.
#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <zlib.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <vantu/VChecksum.h>
#include <vantu/VDirectoryIterator.h>
#include <vantu/VFile.h>
#include <vantu/vantu.h>

namespace {

namespace fs = std::filesystem;

constexpr size_t kBigFile = size_t{1} << 30;
constexpr size_t kReadBlock = 256u << 10;
constexpr int kTreeDirectories = 100;
constexpr int kTreeFilesPerDirectory = 1000;

class Scratch {
 public:
  Scratch() {
    const char* base = std::getenv("TMPDIR");
    root_ = fs::path(base && *base ? base : "/tmp") / ("vantu-bench-" + std::to_string(::getpid()));
    fs::create_directories(root_);
  }
  ~Scratch() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }
  const fs::path& root() const { return root_; }

  // 1 GiB of varied bytes, also kept in memory for the in-memory baseline.
  const std::string& BigFile() {
    if (big_.empty()) {
      big_.resize(kBigFile);
      uint64_t x = 88172645463325252ULL;
      for (size_t i = 0; i < big_.size(); i += 8) {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        std::memcpy(&big_[i], &x, 8);
      }
      std::ofstream(root_ / "big.bin", std::ios::binary).write(big_.data(), big_.size());
    }
    return big_;
  }

  // 100,000 small files in 100 directories.
  fs::path Tree() {
    const fs::path tree = root_ / "tree";
    if (!fs::exists(tree)) {
      for (int d = 0; d < kTreeDirectories; ++d) {
        const fs::path dir = tree / ("d" + std::to_string(d));
        fs::create_directories(dir);
        for (int f = 0; f < kTreeFilesPerDirectory; ++f) {
          std::ofstream(dir / ("f" + std::to_string(f) + ".txt")) << f;
        }
      }
    }
    return tree;
  }

 private:
  fs::path root_;
  std::string big_;
};

Scratch& Data() {
  static Scratch scratch;
  return scratch;
}

void BM_GetFileInfo_1GiB(benchmark::State& state) {
  Data().BigFile();
  const std::string path = (Data().root() / "big.bin").string();
  unsigned crc = 0;
  vantu_GetFileInfo(path.c_str(), &crc);  // warm the page cache
  for (auto _ : state) {
    vantu_GetFileInfo(path.c_str(), &crc);
    benchmark::DoNotOptimize(crc);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFile));
}
BENCHMARK(BM_GetFileInfo_1GiB)->Unit(benchmark::kMillisecond)->UseRealTime();

// Reads the whole file with read(2) in kReadBlock pieces, handing each piece to `sum`.
template <typename Sum>
void ReadFile(const std::string& path, Sum sum) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) std::abort();
  std::vector<unsigned char> block(kReadBlock);
  for (;;) {
    const ssize_t n = ::read(fd, block.data(), block.size());
    if (n <= 0) break;
    sum(block.data(), static_cast<size_t>(n));
  }
  ::close(fd);
}

// The same work as vantu_GetFileInfo without the library: the faster peer.
void BM_ReadLibdeflateCrc32_1GiB(benchmark::State& state) {
  Data().BigFile();
  const std::string path = (Data().root() / "big.bin").string();
  for (auto _ : state) {
    uint32_t crc = 0;
    ReadFile(path, [&](const unsigned char* p, size_t n) { crc = libdeflate_crc32(crc, p, n); });
    benchmark::DoNotOptimize(crc);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFile));
}
BENCHMARK(BM_ReadLibdeflateCrc32_1GiB)->Unit(benchmark::kMillisecond)->UseRealTime();

// The floor: reading the file without summing it.
void BM_ReadOnly_1GiB(benchmark::State& state) {
  Data().BigFile();
  const std::string path = (Data().root() / "big.bin").string();
  for (auto _ : state) {
    size_t total = 0;
    ReadFile(path, [&](const unsigned char* p, size_t n) {
      benchmark::DoNotOptimize(p);
      total += n;
    });
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFile));
}
BENCHMARK(BM_ReadOnly_1GiB)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_VChecksumInMemory_1GiB(benchmark::State& state) {
  const std::string& bytes = Data().BigFile();
  for (auto _ : state) {
    VChecksum checksum;
    checksum.Update(bytes.data(), bytes.size());
    benchmark::DoNotOptimize(checksum.Checksum());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFile));
}
BENCHMARK(BM_VChecksumInMemory_1GiB)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ZlibCrc32InMemory_1GiB(benchmark::State& state) {
  const std::string& bytes = Data().BigFile();
  for (auto _ : state) {
    uLong crc = crc32(0L, Z_NULL, 0);
    for (size_t done = 0; done < bytes.size(); done += 1u << 30) {
      crc = crc32(crc, reinterpret_cast<const Bytef*>(bytes.data() + done),
                  static_cast<uInt>(std::min<size_t>(bytes.size() - done, 1u << 30)));
    }
    benchmark::DoNotOptimize(crc);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFile));
}
BENCHMARK(BM_ZlibCrc32InMemory_1GiB)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LibdeflateCrc32InMemory_1GiB(benchmark::State& state) {
  const std::string& bytes = Data().BigFile();
  for (auto _ : state) {
    benchmark::DoNotOptimize(libdeflate_crc32(0, bytes.data(), bytes.size()));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFile));
}
BENCHMARK(BM_LibdeflateCrc32InMemory_1GiB)->Unit(benchmark::kMillisecond)->UseRealTime();

int CountFile(VFile&, void* count) {
  ++*static_cast<long*>(count);
  return 0;
}

void BM_DirectoryIterate_100k(benchmark::State& state) {
  const std::string tree = Data().Tree().string();
  VDirectoryIterator walker(CountFile, false);
  long count = 0;
  for (auto _ : state) {
    count = 0;
    walker.Iterate(VFile(tree.c_str()), true, &count, 0xFFFFFFFF);
  }
  if (count != kTreeDirectories * kTreeFilesPerDirectory) state.SkipWithError("wrong count");
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_DirectoryIterate_100k)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FindTypeF_100k(benchmark::State& state) {
  const std::string tree = Data().Tree().string();
  const std::string command = "find '" + tree + "' -type f | wc -l";
  long count = 0;
  for (auto _ : state) {
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr || std::fscanf(pipe, "%ld", &count) != 1) state.SkipWithError("find");
    ::pclose(pipe);
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_FindTypeF_100k)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_IsAvailable(benchmark::State& state) {
  const fs::path path = Data().root() / "available.txt";
  std::ofstream(path) << "content";
  const VFile file(path.c_str());
  for (auto _ : state) benchmark::DoNotOptimize(file.IsAvailable(true, false));
}
BENCHMARK(BM_IsAvailable);

void BM_IsFile(benchmark::State& state) {
  const fs::path path = Data().root() / "available.txt";
  std::ofstream(path) << "content";
  const VFile file(path.c_str());
  for (auto _ : state) benchmark::DoNotOptimize(file.IsFile());
}
BENCHMARK(BM_IsFile);

}  // namespace

BENCHMARK_MAIN();
