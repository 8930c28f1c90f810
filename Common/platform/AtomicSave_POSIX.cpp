#include "platform/AtomicSave.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/Descriptor.h"
#include "platform/Random.h"
#include "platform/SystemError.h"

namespace vantu::platform {
namespace {

// The directory part of a path, with its trailing "/"; empty for a bare name.
std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// The file a chain of symbolic links ends at (which may not exist yet); the path itself when it
// is not a link.
std::string FollowLinks(std::string path) {
  for (int hops = 0; hops < 40; ++hops) {
    struct stat info;
    if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return path;
    std::string target(PATH_MAX, '\0');
    const ssize_t n = ::readlink(path.c_str(), target.data(), target.size());
    if (n < 0) ThrowSystemError(errno, path);
    target.resize(static_cast<size_t>(n));
    path = !target.empty() && target[0] == '/' ? target : DirectoryOf(path) + target;
  }
  ThrowSystemError(ELOOP, path);
}

std::atomic<bool> g_namedTemporaries{false};

// Temporary files beside a target are named "." + the target's name (at most 200 bytes) + "." +
// the writer's process id + "-" + 16 lower-case hexadecimal digits + ".tmp", so that a later save
// can tell those whose process is gone.
std::string TemporaryStem(const std::string& target) {
  const std::string directory = DirectoryOf(target);
  return "." + target.substr(directory.size(), 200) + ".";
}

std::string TemporaryName(const std::string& target) {
  unsigned long long bits = 0;
  FillRandom(&bits, sizeof(bits));
  char suffix[64];
  std::snprintf(suffix, sizeof(suffix), "%ld-%016llx.tmp", static_cast<long>(::getpid()), bits);
  return DirectoryOf(target) + TemporaryStem(target) + suffix;
}

// The process id in `name` when it is exactly a temporary name with this stem; 0 otherwise.
pid_t TemporaryOwner(const char* name, const std::string& stem) {
  if (std::strncmp(name, stem.c_str(), stem.size()) != 0) return 0;
  const char* p = name + stem.size();
  long long pid = 0;
  int digits = 0;
  for (; *p >= '0' && *p <= '9' && digits < 10; ++p, ++digits) pid = pid * 10 + (*p - '0');
  if (digits == 0 || pid > INT_MAX || *p++ != '-') return 0;
  for (int i = 0; i < 16; ++i, ++p) {
    if (!((*p >= '0' && *p <= '9') || (*p >= 'a' && *p <= 'f'))) return 0;
  }
  return std::strcmp(p, ".tmp") == 0 ? static_cast<pid_t>(pid) : 0;
}

// Removes the temporary files of `target` that a process killed while saving left: regular files
// named exactly by the pattern, whose process no longer exists and which no process holds locked
// (a writer locks its temporary file, which also covers a writer in another process namespace).
void RemoveStaleTemporaries(const std::string& target) {
  const std::string directory = DirectoryOf(target);
  const std::string stem = TemporaryStem(target);
  const int fd =
      ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  DIR* stream = ::fdopendir(fd);
  if (stream == nullptr) {
    ::close(fd);
    return;
  }
  std::vector<std::string> stale;
  while (const dirent* entry = ::readdir(stream)) {
    const pid_t owner = TemporaryOwner(entry->d_name, stem);
    if (owner > 0 && ::kill(owner, 0) != 0 && errno == ESRCH) stale.emplace_back(entry->d_name);
  }
  for (const std::string& name : stale) {
    const Descriptor file(
        ::openat(fd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    if (file.get() >= 0 && ::fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode) &&
        ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
      ::unlinkat(fd, name.c_str(), 0);
    }
  }
  ::closedir(stream);
}

// The name through which an unnamed file can be linked into its folder.
std::string DescriptorPath(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

}  // namespace

void UseNamedTemporaryFiles(bool named) { g_namedTemporaries = named; }

FileReplacement::FileReplacement(const std::string& path) : target_(FollowLinks(path)) {
  if (target_.empty()) ThrowSystemError(ENOENT, path);
  struct stat info;
  const bool exists = ::stat(target_.c_str(), &info) == 0;
  if (target_.back() == '/' || (exists && S_ISDIR(info.st_mode))) {
    ThrowSystemError(EISDIR, target_);
  }
  if (exists && ::faccessat(AT_FDCWD, target_.c_str(), W_OK, AT_EACCESS) != 0) {
    ThrowSystemError(errno, target_);
  }
  RemoveStaleTemporaries(target_);
  // An unnamed file in the target's folder, so that a process killed while writing leaves
  // nothing; it is linked under a temporary name only once written (Commit). Mode 0666 lets the
  // umask decide for a new file; an existing file's bits are copied below.
  const std::string directory = DirectoryOf(target_);
  if (!g_namedTemporaries) {
    fd_ =
        ::open(directory.empty() ? "." : directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (fd_ >= 0 && ::access(DescriptorPath(fd_).c_str(), F_OK) != 0) {  // no /proc: no link
      ::close(fd_);
      fd_ = -1;
    }
  }
  // Where the file system has no unnamed files: a temporary name from the start, with O_EXCL.
  for (int attempt = 0; fd_ < 0; ++attempt) {
    temporary_ = TemporaryName(target_);
    fd_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd_ < 0 && (errno != EEXIST || attempt == 100)) {
      const int error = errno;
      temporary_.clear();
      ThrowSystemError(error, target_);
    }
  }
  // Held until the file is renamed or removed: a later save leaves a living writer's file alone.
  ::flock(fd_, LOCK_EX | LOCK_NB);
  if (exists) {
    if (info.st_uid != ::geteuid() || info.st_gid != ::getegid()) {
      (void)!::fchown(fd_, info.st_uid, info.st_gid);  // allowed to root only; best effort
    }
    if (::fchmod(fd_, info.st_mode & 07777) != 0) error_ = errno;
  }
}

FileReplacement::~FileReplacement() {
  if (fd_ >= 0) ::close(fd_);
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void FileReplacement::Write(const void* bytes, size_t count) {
  const char* p = static_cast<const char*>(bytes);
  while (error_ == 0 && count > 0) {
    const ssize_t n = ::write(fd_, p, count);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      error_ = n < 0 ? errno : EIO;
    } else {
      p += n;
      count -= static_cast<size_t>(n);
    }
  }
}

void FileReplacement::Restart() {
  if (error_ == 0 && (::ftruncate(fd_, 0) != 0 || ::lseek(fd_, 0, SEEK_SET) != 0)) error_ = errno;
}

void FileReplacement::Commit() {
  if (error_ == 0 && ::fsync(fd_) != 0) error_ = errno;
  // The unnamed file gets a temporary name beside the target, to be renamed over it: only a
  // process killed in between leaves it, fully written, for a later save to remove.
  for (int attempt = 0; error_ == 0 && temporary_.empty(); ++attempt) {
    temporary_ = TemporaryName(target_);
    if (::linkat(AT_FDCWD, DescriptorPath(fd_).c_str(), AT_FDCWD, temporary_.c_str(),
                 AT_SYMLINK_FOLLOW) != 0) {
      temporary_.clear();
      if (errno != EEXIST || attempt == 100) error_ = errno;
    }
  }
  if (::close(fd_) != 0 && error_ == 0) error_ = errno;
  fd_ = -1;
  if (error_ == 0 && ::rename(temporary_.c_str(), target_.c_str()) != 0) error_ = errno;
  if (error_ != 0) ThrowSystemError(error_, target_);
  temporary_.clear();
  // The rename itself reaches the disk with the directory.
  const std::string directory = DirectoryOf(target_);
  const Descriptor dir(
      ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() >= 0) ::fsync(dir.get());
}

}  // namespace vantu::platform
