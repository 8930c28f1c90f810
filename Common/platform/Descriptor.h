// A file descriptor that closes when it leaves scope, unless released. Class code may hold one:
// it includes no system header.
#ifndef VANTU_PLATFORM_DESCRIPTOR_H
#define VANTU_PLATFORM_DESCRIPTOR_H

#include <utility>

#include "platform/FileIO.h"

namespace vantu::platform {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) CloseFileQuietly(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }
  // Hands the descriptor over: it is no longer closed here.
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_DESCRIPTOR_H
