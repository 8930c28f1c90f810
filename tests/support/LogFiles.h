// Helpers for tests that read log files.
#ifndef VANTU_TESTS_SUPPORT_LOGFILES_H
#define VANTU_TESTS_SUPPORT_LOGFILES_H

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

}  // namespace vantu::test

#endif  // VANTU_TESTS_SUPPORT_LOGFILES_H
