// Helpers for the zip tests: running the other tools, reading files, building trees.
#ifndef VANTU_TESTS_ZIP_ZIPTESTSUPPORT_H
#define VANTU_TESTS_ZIP_ZIPTESTSUPPORT_H

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

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

}  // namespace vantu::test

#endif  // VANTU_TESTS_ZIP_ZIPTESTSUPPORT_H
