// Throwing the errors of failed system calls, for the platform implementations only.
#ifndef VANTU_PLATFORM_SYSTEMERROR_H
#define VANTU_PLATFORM_SYSTEMERROR_H

#include <cerrno>
#include <string>
#include <system_error>

namespace vantu::platform {

[[noreturn]] inline void ThrowSystemError(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

[[noreturn]] inline void ThrowErrno(const std::string& what) { ThrowSystemError(errno, what); }

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_SYSTEMERROR_H
