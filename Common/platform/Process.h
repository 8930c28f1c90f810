// The running process: its executable, and the forks it makes.
#ifndef VANTU_PLATFORM_PROCESS_H
#define VANTU_PLATFORM_PROCESS_H

#include <string>

namespace vantu::platform {

// The running executable's full path; empty when unknown.
std::string ExecutablePath();
// A number that changes in a child process each time the process forks: state derived from
// randomness (buffered random bytes, generators) compares it to know it must start afresh.
unsigned long ForkGeneration();

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_PROCESS_H
