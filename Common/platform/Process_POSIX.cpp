#include "platform/Process.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <string>

namespace vantu::platform {
namespace {

std::atomic<unsigned long> g_forkGeneration{0};

void CountFork() { g_forkGeneration.fetch_add(1, std::memory_order_relaxed); }

}  // namespace

std::string ExecutablePath() {
  char buffer[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof(buffer));
  if (n <= 0 || static_cast<size_t>(n) >= sizeof(buffer)) return std::string();
  return std::string(buffer, static_cast<size_t>(n));
}

unsigned long ForkGeneration() {
  static const bool registered = ::pthread_atfork(nullptr, nullptr, CountFork) == 0;
  (void)registered;
  return g_forkGeneration.load(std::memory_order_relaxed);
}

}  // namespace vantu::platform
