// Helpers for the zip tests: running the other tools, reading files, building trees.
#ifndef VANTU_TESTS_ZIP_ZIPTESTSUPPORT_H
#define VANTU_TESTS_ZIP_ZIPTESTSUPPORT_H

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace vantu::test {

// Runs a shell command; returns its exit status and fills `output` with its standard output
// and error.
inline int Shell(const std::string& command, std::string* output = nullptr) {
  std::FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return -1;
  std::string text;
  char buffer[4096];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof(buffer), pipe)) > 0) text.append(buffer, n);
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
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

// Every file and folder under `root` (relative names, folders ending in "/") with its content
// ("" for folders; "-> target" for links).
inline std::map<std::string, std::string> Snapshot(const std::string& root) {
  namespace fs = std::filesystem;
  std::map<std::string, std::string> tree;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
       ++it) {
    const std::string name = fs::relative(it->path(), root).string();
    if (it->is_symlink()) {
      tree[name] = "-> " + fs::read_symlink(it->path()).string();
    } else if (it->is_directory()) {
      tree[name + "/"] = "";
    } else {
      tree[name] = ReadFile(it->path().string());
    }
  }
  return tree;
}

inline long long ModifiedSeconds(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0 ? static_cast<long long>(info.st_mtime) : -1;
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
  uint16_t madeBy = 0x033F;  // Unix, 6.3
};

// A zip archive of the given entries, written field by field.
inline std::string BuildZip(const std::vector<RawEntry>& entries) {
  auto put = [](std::string& out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
  };
  std::string archive;
  std::string directory;
  for (const RawEntry& e : entries) {
    const uint64_t offset = archive.size();
    put(archive, 0x04034b50, 4);
    put(archive, 20, 2);
    put(archive, e.flags, 2);
    put(archive, e.method, 2);
    put(archive, 0x58210000, 4);  // 2024-01-01 00:00
    put(archive, e.crc, 4);
    put(archive, e.data.size(), 4);
    put(archive, e.size, 4);
    put(archive, e.name.size(), 2);
    put(archive, 0, 2);
    archive += e.name + e.data;
    put(directory, 0x02014b50, 4);
    put(directory, e.madeBy, 2);
    put(directory, 20, 2);
    put(directory, e.flags, 2);
    put(directory, e.method, 2);
    put(directory, 0x58210000, 4);
    put(directory, e.crc, 4);
    put(directory, e.data.size(), 4);
    put(directory, e.size, 4);
    put(directory, e.name.size(), 2);
    put(directory, 0, 6);  // extra, comment, disk
    put(directory, 0, 2);
    put(directory, e.external, 4);
    put(directory, offset, 4);
    directory += e.name;
  }
  const uint64_t start = archive.size();
  archive += directory;
  put(archive, 0x06054b50, 4);
  put(archive, 0, 4);
  put(archive, entries.size(), 2);
  put(archive, entries.size(), 2);
  put(archive, directory.size(), 4);
  put(archive, start, 4);
  put(archive, 0, 2);
  return archive;
}

inline void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace vantu::test

#endif  // VANTU_TESTS_ZIP_ZIPTESTSUPPORT_H
