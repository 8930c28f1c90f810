#include "platform/FileAvailability.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "platform/Descriptor.h"

namespace vantu::platform {
namespace {

using Identity = std::pair<unsigned long long, unsigned long long>;

// The files that some process this one may inspect holds open for writing, read from
// /proc/<pid>/fd and /proc/<pid>/fdinfo the way lsof does. Reading them costs a few
// microseconds per open descriptor on the machine, so one snapshot serves every question asked
// within 100 ms.
class WriterSnapshot {
 public:
  bool HasWriter(const Identity& file) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto now = std::chrono::steady_clock::now();
    if (!valid_ || now - taken_ > std::chrono::milliseconds(100)) {
      Take();
      taken_ = now;
      valid_ = true;
    }
    return writers_.count(file) != 0;
  }

 private:
  void Take() {
    writers_.clear();
    DIR* proc = ::opendir("/proc");
    if (proc == nullptr) return;
    while (const dirent* process = ::readdir(proc)) {
      const char* pid = process->d_name;
      if (*pid < '0' || *pid > '9') continue;
      const std::string fdDir = std::string("/proc/") + pid + "/fd";
      DIR* fds = ::opendir(fdDir.c_str());
      if (fds == nullptr) continue;
      while (const dirent* fd = ::readdir(fds)) {
        if (fd->d_name[0] < '0' || fd->d_name[0] > '9') continue;
        struct stat target;
        if (::stat((fdDir + "/" + fd->d_name).c_str(), &target) != 0) continue;
        if (!S_ISREG(target.st_mode)) continue;
        if (OpenForWriting(std::string("/proc/") + pid + "/fdinfo/" + fd->d_name)) {
          writers_.insert({target.st_dev, target.st_ino});
        }
      }
      ::closedir(fds);
    }
    ::closedir(proc);
  }

  // The "flags:" line of an fdinfo file, in octal, masked with O_ACCMODE.
  static bool OpenForWriting(const std::string& fdinfo) {
    const Descriptor fd(::open(fdinfo.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) return false;
    char buffer[256];
    const ssize_t n = ::read(fd.get(), buffer, sizeof(buffer) - 1);
    if (n <= 0) return false;
    buffer[n] = '\0';
    const char* flags = std::strstr(buffer, "flags:");
    if (flags == nullptr) return false;
    const long mode = std::strtol(flags + 6, nullptr, 8) & O_ACCMODE;
    return mode == O_WRONLY || mode == O_RDWR;
  }

  std::mutex mutex_;
  bool valid_ = false;
  std::chrono::steady_clock::time_point taken_;
  std::set<Identity> writers_;
};

WriterSnapshot& Writers() {
  static WriterSnapshot snapshot;
  return snapshot;
}

// Whether a lease of the given type can be taken on the descriptor: 1 yes, 0 someone has the
// file (EAGAIN), -1 leases cannot say (errno tells why).
int TryLease(int fd, int type) {
  // While a lease is held, another process's open makes the kernel signal the holder, by default
  // with SIGIO, which ends a process. SIGURG is ignored by default, and clearing the owner right
  // after taking the lease means no process is signalled at all.
  ::fcntl(fd, F_SETSIG, SIGURG);
  if (::fcntl(fd, F_SETLEASE, type) != 0) return errno == EAGAIN ? 0 : -1;
  ::fcntl(fd, F_SETOWN, 0);
  ::fcntl(fd, F_SETLEASE, F_UNLCK);
  return 1;
}

// Opens the file and runs the availability test on that descriptor: the descriptor when the file
// is available, else -1.
int OpenIfAvailable(const std::string& path, bool requireNonEmpty, bool forWrite) {
  if (path.empty()) return -1;
  const int access = forWrite ? O_RDWR : O_RDONLY;
  const int fd = ::open(path.c_str(), access | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return -1;
  Descriptor guard(fd);
  struct stat info;
  if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) return -1;
  const int lease = TryLease(fd, forWrite ? F_WRLCK : F_RDLCK);
  if (lease == 0) return -1;
  // Another user's file without CAP_LEASE: look for writers in /proc instead. Without lease
  // support (EINVAL, as on NFS) no local test can see a remote writer.
  if (lease < 0 && errno == EACCES && Writers().HasWriter({info.st_dev, info.st_ino})) return -1;
  // The size as it is now, after the writer test.
  if (::fstat(fd, &info) != 0) return -1;
  if (requireNonEmpty && info.st_size == 0) return -1;
  return guard.release();
}

}  // namespace

bool IsFileAvailable(const std::string& path, bool requireNonEmpty, bool forWrite) {
  const Descriptor fd(OpenIfAvailable(path, requireNonEmpty, forWrite));
  return fd.get() >= 0;
}

int OpenAvailableForReadingFd(const std::string& path) {
  const int fd = OpenIfAvailable(path, false, false);
  if (fd >= 0) ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

}  // namespace vantu::platform
