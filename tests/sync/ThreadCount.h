// The number of threads of this process, and a wait for it to come back to a value.
#ifndef VANTU_TESTS_SYNC_THREADCOUNT_H
#define VANTU_TESTS_SYNC_THREADCOUNT_H

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

namespace vantu::test {

// The number of threads now. The first call starts and joins one thread, so that helper
// threads the runtime (a sanitizer) starts with the first thread are there already.
inline int ThreadCount() {
  static const bool warm = (std::thread([] {}).join(), true);
  (void)warm;
  std::ifstream status("/proc/self/status");
  std::string key;
  while (status >> key) {
    if (key == "Threads:") {
      int count = 0;
      status >> count;
      return count;
    }
  }
  return -1;
}

// True once the process has at most `count` threads again (threads of an earlier test may still
// be leaving when `count` was read), false after 10 s.
inline bool ThreadCountReturnsTo(int count) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (ThreadCount() > count) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace vantu::test

#endif  // VANTU_TESTS_SYNC_THREADCOUNT_H
