// Helpers for the zip tests: running the other tools, reading files, building trees and archives.
#ifndef VANTU_TESTS_ZIP_ZIPTESTSUPPORT_H
#define VANTU_TESTS_ZIP_ZIPTESTSUPPORT_H

#include <vantu/VRandom.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "support/TempDir.h"

namespace vantu::test {

// Runs a shell command; returns its exit status and fills `output` with its standard output
// and error.
inline int Shell(const std::string& command, std::string* output = nullptr) {
  std::FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return -1;
  std::string text;
  char buffer[4096];
  for (size_t n; (n = std::fread(buffer, 1, sizeof(buffer), pipe)) > 0;) text.append(buffer, n);
  const int status = ::pclose(pipe);
  if (output) *output = text;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs a Python 3 program (given as text) with arguments, with the system's Python where there
// is one (wrappers such as pyenv's take seconds to start).
inline int Python(const std::string& program, const std::string& arguments,
                  std::string* output = nullptr) {
  const char* python = ::access("/usr/bin/python3", X_OK) == 0 ? "/usr/bin/python3" : "python3";
  return Shell(std::string(python) + " -c '" + program + "' " + arguments, output);
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Every file and folder under `root` (relative names, folders ending in "/") with its content
// ("" for folders).
inline std::map<std::string, std::string> Snapshot(const std::string& root) {
  std::map<std::string, std::string> tree;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    const std::string name = std::filesystem::relative(entry.path(), root).string();
    tree[entry.is_directory() ? name + "/" : name] =
        entry.is_directory() ? "" : ReadFile(entry.path());
  }
  return tree;
}

inline long long ModifiedSeconds(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0 ? static_cast<long long>(info.st_mtime) : -1;
}

// Text that compresses, with some variety.
inline std::string Compressible(size_t size, unsigned seed) {
  std::string text;
  while (text.size() < size)
    text += "line " + std::to_string(seed++ * 7919 % 100003) + " of text\n";
  return text.substr(0, size);
}

// A tree under dir/root: non-ASCII names, an empty file and folder, nested folders, bytes that
// do not compress, `textSize` bytes of text and small files deep down; every file and folder
// modified at 1600000000 (MS-DOS times have 2 s steps).
inline void MakeTree(const TempDir& dir, const std::string& root, size_t textSize) {
  dir.Write(root + "/empty.txt", "");
  dir.Write(root + "/gr\u00FC\u00DFe/\u65E5\u672C.txt", "Konnichiwa\n");
  dir.Write(root + "/text.txt", Compressible(textSize, 2));
  std::string noise(70000, '\0');
  VRandom(42).NextBytes(&noise[0], noise.size());
  dir.Write(root + "/noise.bin", noise);
  std::filesystem::create_directories(dir / (root + "/empty/folder"));
  for (int i = 0; i < 8; ++i)
    dir.Write(root + "/a/b/c/f" + std::to_string(i), Compressible(i * 1000, i));
  Shell("find " + (dir / root) + " -exec touch -h -d @1600000000 {} +");
}

// One entry for BuildZip: the bytes as stored and the header fields, any of them wrong if a
// test wants it so.
struct RawEntry {
  std::string name;
  std::string data;  // already compressed with `method`
  uint16_t method = 0;
  uint32_t crc = 0;
  uint64_t size = 0;  // declared uncompressed size (32 bits written)
  uint16_t flags = 0x0800;
  uint32_t external = 0;
};

// A zip archive of the given entries, written field by field (made by Unix, 2024-01-01 00:00).
inline std::string BuildZip(const std::vector<RawEntry>& entries) {
  using Fields = std::initializer_list<std::pair<uint64_t, int>>;  // value, bytes
  auto put = [](std::string& out, Fields fields) {
    for (auto [value, bytes] : fields)
      for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
  };
  std::string archive;
  std::string directory;
  for (const RawEntry& e : entries) {
    const Fields common = {{20, 2},    {e.flags, 2},       {e.method, 2}, {0x58210000, 4},
                           {e.crc, 4}, {e.data.size(), 4}, {e.size, 4},   {e.name.size(), 2}};
    const uint64_t offset = archive.size();
    put(archive, {{0x04034b50, 4}});
    put(archive, common);
    put(archive, {{0, 2}});
    archive += e.name + e.data;
    put(directory, {{0x02014b50, 4}, {0x033F, 2}});
    put(directory, common);
    put(directory, {{0, 8}, {e.external, 4}, {offset, 4}});  // extra, comment, disk, internal
    directory += e.name;
  }
  const uint64_t start = archive.size();
  archive += directory;
  put(archive, {{0x06054b50, 4}, {0, 4}, {entries.size(), 2}, {entries.size(), 2}});
  put(archive, {{directory.size(), 4}, {start, 4}, {0, 2}});  // directory size and offset
  return archive;
}

}  // namespace vantu::test

#endif  // VANTU_TESTS_ZIP_ZIPTESTSUPPORT_H
