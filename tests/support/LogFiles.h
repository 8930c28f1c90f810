// Helpers for tests that read log files.
#ifndef VANTU_TESTS_SUPPORT_LOGFILES_H
#define VANTU_TESTS_SUPPORT_LOGFILES_H

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace vantu::test {

inline std::vector<std::string> ReadLines(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream in(path, std::ios::binary);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Points the application-data folder ($XDG_DATA_HOME) somewhere else for the object's lifetime,
// so that no test writes under the real home directory.
class AppDataAt {
 public:
  explicit AppDataAt(const std::string& path) {
    const char* old = std::getenv("XDG_DATA_HOME");
    had_ = old != nullptr;
    if (had_) old_ = old;
    ::setenv("XDG_DATA_HOME", path.c_str(), 1);
  }
  ~AppDataAt() {
    if (had_) {
      ::setenv("XDG_DATA_HOME", old_.c_str(), 1);
    } else {
      ::unsetenv("XDG_DATA_HOME");
    }
  }
  AppDataAt(const AppDataAt&) = delete;
  AppDataAt& operator=(const AppDataAt&) = delete;

 private:
  bool had_ = false;
  std::string old_;
};

}  // namespace vantu::test

#endif  // VANTU_TESTS_SUPPORT_LOGFILES_H
