#include "platform/FileIO.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>
#include <system_error>

#include "platform/Descriptor.h"
#include "platform/SystemError.h"

namespace vantu::platform {

const std::error_category& NotRegularFileCategory() {
  struct Category : std::error_category {
    const char* name() const noexcept override { return "vantu.file"; }
    std::string message(int) const override { return "Not a regular file"; }
    std::error_condition default_error_condition(int) const noexcept override {
      return std::errc::invalid_argument;
    }
  };
  static const Category category;
  return category;
}

int OpenForReadingFd(const std::string& path) {
  // Opened without blocking, so that a FIFO with no writer does not hold the caller, then
  // checked on the descriptor itself, so that nothing swapped in for the name is read.
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) ThrowErrno(path);
  Descriptor guard(fd);
  struct stat info;
  if (::fstat(fd, &info) != 0) ThrowErrno(path);
  if (S_ISDIR(info.st_mode)) ThrowSystemError(EISDIR, path);
  if (!S_ISREG(info.st_mode)) throw std::system_error(0, NotRegularFileCategory(), path);
  if (::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0) ThrowErrno(path);
  return guard.release();
}

int CreateNewFile(const std::string& path, unsigned mode) {
  const int fd =
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode & 0777);
  if (fd < 0) ThrowErrno(path);
  return fd;
}

size_t ReadAt(int fd, void* buffer, size_t size, unsigned long long offset) {
  size_t done = 0;
  while (done < size) {
    const ssize_t n = ::pread(fd, static_cast<char*>(buffer) + done, size - done,
                              static_cast<off_t>(offset + done));
    if (n < 0) {
      if (errno == EINTR) continue;
      ThrowErrno("read");
    }
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return done;
}

void WriteAll(int fd, const void* buffer, size_t size) {
  const char* p = static_cast<const char*>(buffer);
  while (size > 0) {
    const ssize_t n = ::write(fd, p, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      ThrowErrno("write");
    }
    p += n;
    size -= static_cast<size_t>(n);
  }
}

int OpenForUpdateFd(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) ThrowErrno(path);
  Descriptor guard(fd);
  struct stat info;
  if (::fstat(fd, &info) != 0) ThrowErrno(path);
  if (!S_ISREG(info.st_mode)) throw std::system_error(0, NotRegularFileCategory(), path);
  if (::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0) ThrowErrno(path);
  return guard.release();
}

void WriteAt(int fd, const void* buffer, size_t size, unsigned long long offset) {
  const char* p = static_cast<const char*>(buffer);
  while (size > 0) {
    const ssize_t n = ::pwrite(fd, p, size, static_cast<off_t>(offset));
    if (n < 0) {
      if (errno == EINTR) continue;
      ThrowErrno("write");
    }
    p += n;
    offset += static_cast<unsigned long long>(n);
    size -= static_cast<size_t>(n);
  }
}

void SetFileSize(int fd, unsigned long long size) {
  while (::ftruncate(fd, static_cast<off_t>(size)) != 0) {
    if (errno != EINTR) ThrowErrno("truncate");
  }
}

unsigned long long GetFileSize(int fd) {
  struct stat info;
  if (::fstat(fd, &info) != 0) ThrowErrno("fstat");
  return static_cast<unsigned long long>(info.st_size);
}

void SetFileTimeAndMode(int fd, long long modifiedSeconds, unsigned mode) {
  const struct timespec times[2] = {{static_cast<time_t>(modifiedSeconds), 0},
                                    {static_cast<time_t>(modifiedSeconds), 0}};
  if (::futimens(fd, times) != 0) ThrowErrno("futimens");
  if (mode != 0 && ::fchmod(fd, mode & 0777) != 0) ThrowErrno("fchmod");
}

void CloseFile(int fd) {
  // After EINTR the descriptor is gone on Linux: retrying could close another thread's file.
  if (::close(fd) != 0 && errno != EINTR) ThrowErrno("close");
}

void CloseFileQuietly(int fd) noexcept { ::close(fd); }

std::FILE* OpenForWritingLocked(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) return nullptr;
  int locked;
  do {
    locked = ::flock(fd, LOCK_EX | LOCK_NB);
  } while (locked != 0 && errno == EINTR);
  // Truncate only once the lock is ours, so a file another holder writes is not cut; devices
  // and pipes have nothing to truncate.
  struct stat info;
  const bool ready =
      locked == 0 && ::fstat(fd, &info) == 0 && (!S_ISREG(info.st_mode) || ::ftruncate(fd, 0) == 0);
  std::FILE* stream = ready ? ::fdopen(fd, "wb") : nullptr;
  if (stream == nullptr) ::close(fd);
  return stream;
}

}  // namespace vantu::platform
