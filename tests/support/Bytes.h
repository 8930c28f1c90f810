// Helpers for tests that look at raw bytes.
#ifndef VANTU_TESTS_SUPPORT_BYTES_H
#define VANTU_TESTS_SUPPORT_BYTES_H

#include <cstdio>
#include <initializer_list>
#include <string>

namespace vantu::test {

// A byte string from numbers, for expectations that are clearer as hex.
inline std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (int v : values) bytes.push_back(static_cast<char>(v));
  return bytes;
}

// "41 62 C3 A9": readable failure messages for byte comparisons.
inline std::string Hex(const std::string& bytes) {
  std::string out;
  char buffer[4];
  for (unsigned char c : bytes) {
    std::snprintf(buffer, sizeof(buffer), out.empty() ? "%02X" : " %02X", c);
    out += buffer;
  }
  return out;
}

}  // namespace vantu::test

#endif  // VANTU_TESTS_SUPPORT_BYTES_H
