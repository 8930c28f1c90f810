#include "platform/Platform.h"

#include "platform/Descriptor.h"

#include <dirent.h>
#include <fcntl.h>
#include <iconv.h>
#include <langinfo.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace vantu::platform {
namespace {

[[noreturn]] void ThrowSystemError(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

[[noreturn]] void ThrowErrno(const std::string& what) { ThrowSystemError(errno, what); }

// The codeset of the calling thread's locale; the C/POSIX locale's ASCII counts as UTF-8,
// which is what Linux file names and terminals carry.
std::string CurrentCodeset() {
  const char* codeset = nl_langinfo(CODESET);
  if (codeset == nullptr || *codeset == '\0' || std::strcmp(codeset, "ANSI_X3.4-1968") == 0) {
    return "UTF-8";
  }
  return codeset;
}

// Open iconv descriptors, cached per thread and reopened when the thread's codeset changes
// (uselocale can give each thread its own).
class IconvCache {
 public:
  ~IconvCache() { Close(); }

  // The descriptor converting code page -> UTF-16LE (toUtf16) or back; (iconv_t)-1 if the
  // codeset is unknown to iconv.
  iconv_t Get(bool toUtf16) {
    std::string codeset = CurrentCodeset();
    if (codeset != codeset_) {
      Close();
      codeset_ = std::move(codeset);
      toUtf16_ = iconv_open("UTF-16LE", codeset_.c_str());
      fromUtf16_ = iconv_open(codeset_.c_str(), "UTF-16LE");
    }
    iconv_t cd = toUtf16 ? toUtf16_ : fromUtf16_;
    if (cd != kInvalid) iconv(cd, nullptr, nullptr, nullptr, nullptr);  // reset shift state
    return cd;
  }

 private:
  static inline const iconv_t kInvalid = reinterpret_cast<iconv_t>(-1);

  void Close() {
    if (toUtf16_ != kInvalid) iconv_close(toUtf16_);
    if (fromUtf16_ != kInvalid) iconv_close(fromUtf16_);
    toUtf16_ = fromUtf16_ = kInvalid;
    codeset_.clear();
  }

  std::string codeset_;
  iconv_t toUtf16_ = kInvalid;
  iconv_t fromUtf16_ = kInvalid;
};

thread_local IconvCache t_iconv;

// Runs `cd` over `in`. On input it cannot convert (invalid, or not representable in the
// target) it writes `replacement` and skips `skip(position, bytesLeft)` bytes; an incomplete
// sequence at the end is replaced the same way. Ends with the return to the initial shift
// state, which stateful codesets need. The input goes to iconv in windows of kWindow bytes:
// after an error glibc converts the window again up to the faulty character (for
// conversions through its internal form), so whole texts full of characters the target
// lacks would cost time quadratic in their length.
template <typename Skip>
void Convert(iconv_t cd, const std::string& in, std::string& out, const char* replacement,
             size_t replacementSize, Skip skip) {
  out.clear();
  out.resize(in.size() * 2 + 16);
  constexpr size_t kWindow = 256;
  char* src = const_cast<char*>(in.data());
  char* const srcEnd = src + in.size();
  size_t written = 0;
  bool flushing = false;
  for (;;) {
    char* dst = out.data() + written;
    size_t dstLeft = out.size() - written;
    size_t srcLeft = std::min(kWindow, static_cast<size_t>(srcEnd - src));
    const size_t rc = flushing ? iconv(cd, nullptr, nullptr, &dst, &dstLeft)
                               : iconv(cd, &src, &srcLeft, &dst, &dstLeft);
    written = out.size() - dstLeft;
    if (rc != static_cast<size_t>(-1)) {
      if (flushing) break;
      if (src == srcEnd) flushing = true;  // all input read
      continue;
    }
    if (errno == E2BIG) {
      out.resize(out.size() * 2);
      continue;
    }
    if (flushing) break;  // nothing sensible left to write
    // A sequence cut by the window's end is read whole in the next window.
    if (errno == EINVAL && src + srcLeft < srcEnd) continue;
    // EILSEQ (invalid or unconvertible) or EINVAL (incomplete at the end).
    if (out.size() - written < replacementSize) out.resize(out.size() * 2 + replacementSize);
    std::memcpy(out.data() + written, replacement, replacementSize);
    written += replacementSize;
    const size_t left = static_cast<size_t>(srcEnd - src);
    src += std::max<size_t>(1, std::min(left, skip(src, left)));
  }
  out.resize(written);
}

}  // namespace

bool CodePageIsUtf8() { return CurrentCodeset() == "UTF-8"; }

void CodePageToUtf16(const std::string& in, std::string& out) {
  iconv_t cd = t_iconv.Get(true);
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    out.assign(in.size() * 2, '\0');
    for (size_t i = 0; i < in.size(); ++i) out[2 * i] = (in[i] & 0x80) ? '?' : in[i];
    return;
  }
  Convert(cd, in, out, "?\0", 2, [](const char*, size_t) { return size_t{1}; });
}

void Utf16ToCodePage(const std::string& in, std::string& out) {
  iconv_t cd = t_iconv.Get(false);
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    out.clear();
    for (size_t i = 0; i + 1 < in.size(); i += 2) {
      const auto unit =
          static_cast<unsigned char>(in[i]) | (static_cast<unsigned char>(in[i + 1]) << 8);
      out.push_back(unit < 0x80 ? static_cast<char>(unit) : '?');
    }
    if (in.size() % 2) out.push_back('?');
    return;
  }
  // Skip one character: a surrogate pair counts as one, anything else as one unit.
  Convert(cd, in, out, "?", 1, [](const char* p, size_t left) {
    if (left < 2) return left;
    const unsigned unit =
        static_cast<unsigned char>(p[0]) | (static_cast<unsigned char>(p[1]) << 8);
    if (unit >= 0xD800 && unit <= 0xDBFF && left >= 4) {
      const unsigned next =
          static_cast<unsigned char>(p[2]) | (static_cast<unsigned char>(p[3]) << 8);
      if (next >= 0xDC00 && next <= 0xDFFF) return size_t{4};
    }
    return size_t{2};
  });
}

}  // namespace vantu::platform

// ---------------------------------------------------------------------------------------------
// Files

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

}  // namespace

size_t LongestPath() { return PATH_MAX - 1; }

FileKind GetFileKind(const std::string& path) {
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0) return FileKind::kMissing;
  if (S_ISLNK(info.st_mode)) {
    return ::stat(path.c_str(), &info) == 0 ? FileKind::kLinkToExisting : FileKind::kOther;
  }
  if (S_ISREG(info.st_mode)) return FileKind::kFile;
  if (S_ISDIR(info.st_mode)) return FileKind::kDirectory;
  return FileKind::kOther;
}

DirectoryReader::DirectoryReader(const std::string& path) : dir_(::opendir(path.c_str())) {
  if (dir_ == nullptr) throw std::system_error(errno, std::generic_category(), path);
}

DirectoryReader::~DirectoryReader() { ::closedir(static_cast<DIR*>(dir_)); }

std::vector<DirectoryEntry> ListDirectory(const std::string& path) {
  DirectoryReader reader(path);
  std::vector<DirectoryEntry> entries;
  const char* name = nullptr;
  FileKind kind = FileKind::kMissing;
  while (reader.Next(name, kind)) entries.push_back({name, kind});
  return entries;
}

bool DirectoryReader::Next(const char*& name, FileKind& kind) {
  DIR* dir = static_cast<DIR*>(dir_);
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(dir);
    if (entry == nullptr) {
      if (errno != 0) throw std::system_error(errno, std::generic_category(), "readdir");
      return false;
    }
    name = entry->d_name;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
    switch (entry->d_type) {
      case DT_REG:
        kind = FileKind::kFile;
        return true;
      case DT_DIR:
        kind = FileKind::kDirectory;
        return true;
      case DT_LNK:
      case DT_UNKNOWN:
        break;
      default:
        kind = FileKind::kOther;
        return true;
    }
    struct stat info;
    if (::fstatat(::dirfd(dir), name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
      kind = FileKind::kMissing;
    } else if (S_ISLNK(info.st_mode)) {
      kind = ::fstatat(::dirfd(dir), name, &info, 0) == 0 ? FileKind::kLinkToExisting
                                                          : FileKind::kOther;
    } else {
      kind = S_ISREG(info.st_mode)   ? FileKind::kFile
             : S_ISDIR(info.st_mode) ? FileKind::kDirectory
                                     : FileKind::kOther;
    }
    return true;
  }
}

bool GetFileIdentity(const std::string& path, FileIdentity& identity) {
  struct stat info;
  if (::stat(path.c_str(), &info) != 0) return false;
  identity.device = info.st_dev;
  identity.inode = info.st_ino;
  return true;
}

bool IsSymbolicLinkToExisting(const std::string& path) {
  return GetFileKind(path) == FileKind::kLinkToExisting;
}

bool ResolveSymbolicLink(const std::string& path, std::string& target) {
  return IsSymbolicLinkToExisting(path) && RealPath(path, target);
}

namespace {

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

namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// RemoveTree of `name` in the directory `parent` (AT_FDCWD: `name` is a path), which `path`
// names in messages.
int RemoveTreeAt(int parent, const std::string& name, const std::string& path,
                 std::string& failedPath) {
  failedPath = path;
  const int top = ::openat(parent, name.c_str(), kDirectoryFlags);
  if (top < 0) {
    // Not a directory (a file, or a link whatever it points to): removed as itself.
    if (errno != ENOTDIR && errno != ELOOP) return errno;
    return ::unlinkat(parent, name.c_str(), 0) == 0 ? 0 : errno;
  }
  // The directories being emptied, outermost first. Each is read through its own descriptor,
  // so no path is resolved again once the walk has entered a directory.
  struct Level {
    DIR* dir;
    std::string path;
    std::string name;  // in its parent
  };
  std::vector<Level> levels;
  int error = 0;
  DIR* dir = ::fdopendir(top);
  if (dir == nullptr) {
    error = errno;
    ::close(top);
    return error;
  }
  levels.push_back({dir, path, std::string()});
  while (!levels.empty() && error == 0) {
    Level& level = levels.back();
    errno = 0;
    const dirent* entry = ::readdir(level.dir);
    if (entry == nullptr) {
      if (errno != 0) {
        error = errno;
        failedPath = level.path;
        break;
      }
      // Emptied: remove it from its parent (the top one by its path).
      const Level done = level;
      levels.pop_back();
      ::closedir(done.dir);
      const int rc = levels.empty()
                         ? ::unlinkat(parent, name.c_str(), AT_REMOVEDIR)
                         : ::unlinkat(::dirfd(levels.back().dir), done.name.c_str(), AT_REMOVEDIR);
      if (rc != 0) {
        error = errno;
        failedPath = done.path;
      }
      continue;
    }
    const char* name = entry->d_name;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
    const std::string entryPath = level.path + "/" + name;
    if (entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN) {
      const int fd = ::openat(::dirfd(level.dir), name, kDirectoryFlags);
      if (fd >= 0) {
        DIR* sub = ::fdopendir(fd);
        if (sub == nullptr) {
          error = errno;
          failedPath = entryPath;
          ::close(fd);
          break;
        }
        levels.push_back({sub, entryPath, name});
        continue;
      }
      // Replaced by a file or a link since it was listed: removed as itself below.
      if (errno != ENOTDIR && errno != ELOOP) {
        error = errno;
        failedPath = entryPath;
        break;
      }
    }
    if (::unlinkat(::dirfd(level.dir), name, 0) != 0) {
      error = errno;
      failedPath = entryPath;
    }
  }
  for (const Level& level : levels) ::closedir(level.dir);
  return error;
}

}  // namespace

int RemoveTree(const std::string& path, std::string& failedPath) {
  return RemoveTreeAt(AT_FDCWD, path, path, failedPath);
}

int RemoveBelow(const std::string& root, const std::string& relative, bool tree,
                std::string& failedPath) {
  failedPath = root;
  int current = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (current < 0) return errno;
  const std::string base = root.empty() || root.back() == '/' ? root : root + "/";
  int error = 0;
  for (size_t start = 0;;) {
    const size_t slash = relative.find('/', start);
    const std::string name = relative.substr(start, slash - start);
    failedPath = base + relative.substr(0, slash);
    if (name.empty() || name == "." || name == "..") {
      error = EINVAL;
    } else if (slash == std::string::npos) {
      const std::string path = failedPath;
      if (tree) {
        error = RemoveTreeAt(current, name, path, failedPath);
      } else if (::unlinkat(current, name.c_str(), 0) != 0) {
        error = errno;
      }
    } else {
      const int next = ::openat(current, name.c_str(), kDirectoryFlags);
      if (next >= 0) {
        ::close(current);
        current = next;
        start = slash + 1;
        continue;
      }
      error = errno;
    }
    break;
  }
  ::close(current);
  return error;
}

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

size_t PageSize() {
  static const size_t size = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

void* ReserveRange(size_t bytes) {
  // Over-reserve by one alignment unit and return the unaligned ends.
  const size_t total = bytes + kRangeAlignment;
  void* raw = ::mmap(nullptr, total, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  const uintptr_t base = reinterpret_cast<uintptr_t>(raw);
  const uintptr_t start = (base + kRangeAlignment - 1) & ~(uintptr_t{kRangeAlignment} - 1);
  if (start > base) ::munmap(raw, start - base);
  if (start + bytes < base + total) {
    ::munmap(reinterpret_cast<void*>(start + bytes), base + total - start - bytes);
  }
  // Advice only: where the kernel has no transparent huge pages, small pages serve.
  ::madvise(reinterpret_cast<void*>(start), bytes, MADV_HUGEPAGE);
  return reinterpret_cast<void*>(start);
}

bool CommitRange(void* start, size_t bytes) {
  return ::mprotect(start, bytes, PROT_READ | PROT_WRITE) == 0;
}

bool MoveRange(void* from, void* to, size_t bytes) {
  if (bytes == 0) return true;
  return ::mremap(from, bytes, bytes, MREMAP_MAYMOVE | MREMAP_FIXED, to) != MAP_FAILED;
}

void ReleaseRange(void* start, size_t bytes) {
  if (bytes != 0) ::munmap(start, bytes);
}

std::string ExecutablePath() {
  char buffer[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof(buffer));
  if (n <= 0 || static_cast<size_t>(n) >= sizeof(buffer)) return std::string();
  return std::string(buffer, static_cast<size_t>(n));
}

// ---------------------------------------------------------------------------------------------
// Change notification

ChangeNotifier::ChangeNotifier()
    : fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
      wake_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (wake_ < 0 && fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
}

ChangeNotifier::~ChangeNotifier() {
  if (fd_ >= 0) ::close(fd_);
  if (wake_ >= 0) ::close(wake_);
}

bool ChangeNotifier::Watch(const std::string& directory) {
  if (fd_ < 0) return false;
  constexpr uint32_t kMask = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE |
                             IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
  const int wd = ::inotify_add_watch(fd_, directory.c_str(), kMask);
  if (wd < 0) return false;
  for (auto& watch : watches_) {
    if (watch.first == wd) {
      watch.second = directory;
      return true;
    }
  }
  watches_.emplace_back(wd, directory);
  return true;
}

void ChangeNotifier::Reset() {
  for (const auto& watch : watches_) ::inotify_rm_watch(fd_, watch.first);
  watches_.clear();
}

ChangeNotifier::Events ChangeNotifier::Wait(int timeoutMs) {
  Events events;
  if (fd_ < 0) return events;
  pollfd fds[2] = {{fd_, POLLIN, 0}, {wake_, POLLIN, 0}};
  if (::poll(fds, 2, timeoutMs) <= 0) return events;
  uint64_t count;
  while (::read(wake_, &count, sizeof(count)) > 0) {
  }
  alignas(inotify_event) char buffer[16 * 1024];
  for (;;) {
    const ssize_t n = ::read(fd_, buffer, sizeof(buffer));
    if (n <= 0) break;
    for (ssize_t offset = 0; offset < n;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
      offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      if (event->mask & IN_Q_OVERFLOW) {
        events.overflow = true;
        continue;
      }
      if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) {
        // The first watch is the root: its end is reported; any ended watch is forgotten.
        // (Watches removed by Reset are already forgotten.)
        for (size_t i = 0; i < watches_.size(); ++i) {
          if (watches_[i].first != event->wd) continue;
          if (i == 0) events.lostWatch = true;
          if (event->mask & IN_IGNORED) watches_.erase(watches_.begin() + static_cast<long>(i));
          break;
        }
        continue;
      }
      events.changed = true;
      if ((event->mask & IN_ISDIR) && (event->mask & (IN_CREATE | IN_MOVED_TO)) && event->len > 0) {
        for (const auto& watch : watches_) {
          if (watch.first == event->wd) {
            events.newDirectories.push_back(watch.second + "/" + event->name);
            break;
          }
        }
      }
    }
  }
  return events;
}

void ChangeNotifier::Interrupt() {
  if (wake_ < 0) return;
  const uint64_t one = 1;
  (void)!::write(wake_, &one, sizeof(one));
}

}  // namespace vantu::platform

// ---------------------------------------------------------------------------------------------
// Files by descriptor

namespace vantu::platform {

bool GetFileStatus(const std::string& path, bool follow, FileStatus& status) {
  struct stat info;
  if ((follow ? ::stat(path.c_str(), &info) : ::lstat(path.c_str(), &info)) != 0) return false;
  status.isLink = S_ISLNK(info.st_mode);
  status.kind = S_ISREG(info.st_mode)   ? FileKind::kFile
                : S_ISDIR(info.st_mode) ? FileKind::kDirectory
                                        : FileKind::kOther;
  status.size = static_cast<unsigned long long>(info.st_size);
  status.modifiedSeconds = info.st_mtim.tv_sec;
  status.mode = info.st_mode & 07777;
  status.identity.device = info.st_dev;
  status.identity.inode = info.st_ino;
  return true;
}

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

void RenamePath(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) ThrowErrno(to);
}

bool RemovePath(const std::string& path) noexcept { return ::unlink(path.c_str()) == 0; }

int OpenOrMakeDirectory(const std::string& path) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  int fd = ::open(path.c_str(), kFlags);
  if (fd < 0 && errno == ENOENT) {
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
      const std::string part = path.substr(0, slash);
      if (::mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) ThrowErrno(part);
      if (slash == std::string::npos) break;
    }
    fd = ::open(path.c_str(), kFlags);
  }
  if (fd < 0) ThrowErrno(path);
  return fd;
}

int OpenDirectoryAt(int dirFd, const std::string& name, bool create) {
  if (create && ::mkdirat(dirFd, name.c_str(), 0777) != 0 && errno != EEXIST) ThrowErrno(name);
  const int fd = ::openat(dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) ThrowErrno(name);
  return fd;
}

int CreateNewFileAt(int dirFd, const std::string& name, unsigned mode) {
  const int fd = ::openat(dirFd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          mode & 0777);
  if (fd < 0) ThrowErrno(name);
  return fd;
}

void MakeSymbolicLinkAt(const std::string& target, int dirFd, const std::string& name) {
  if (::symlinkat(target.c_str(), dirFd, name.c_str()) != 0) ThrowErrno(name);
}

void RenameAt(int dirFd, const std::string& from, const std::string& to) {
  if (::renameat(dirFd, from.c_str(), dirFd, to.c_str()) != 0) ThrowErrno(to);
}

bool RemoveAt(int dirFd, const std::string& name) noexcept {
  return ::unlinkat(dirFd, name.c_str(), 0) == 0;
}

void SetTimeAt(int dirFd, const std::string& name, long long modifiedSeconds) {
  const struct timespec times[2] = {{static_cast<time_t>(modifiedSeconds), 0},
                                    {static_cast<time_t>(modifiedSeconds), 0}};
  if (::utimensat(dirFd, name.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) ThrowErrno(name);
}

long LocalTimeOffset(long long epochSeconds) {
  // localtime_r does not look at the zone again once tzset has read it (localtime and mktime
  // do, with a stat of /etc/localtime each time).
  static std::once_flag once;
  std::call_once(once, [] { ::tzset(); });
  const time_t time = static_cast<time_t>(epochSeconds);
  struct tm local;
  return ::localtime_r(&time, &local) != nullptr ? local.tm_gmtoff : 0;
}

bool RealPath(const std::string& path, std::string& resolved) {
  char* real = ::realpath(path.c_str(), nullptr);
  if (real == nullptr) return false;
  resolved = real;
  std::free(real);
  return true;
}

std::string RealPath(const std::string& path) {
  std::string resolved;
  if (!RealPath(path, resolved)) ThrowErrno(path);
  return resolved;
}

// ---------------------------------------------------------------------------------------------
// Randomness and processes

namespace {

std::atomic<unsigned long> g_forkGeneration{0};

void CountFork() { g_forkGeneration.fetch_add(1, std::memory_order_relaxed); }

}  // namespace

void FillRandom(void* buffer, size_t size) {
  char* p = static_cast<char*>(buffer);
  while (size > 0) {
    const ssize_t n = ::getrandom(p, size, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      ThrowErrno("getrandom");
    }
    p += n;
    size -= static_cast<size_t>(n);
  }
}

unsigned long ForkGeneration() {
  static const bool registered = ::pthread_atfork(nullptr, nullptr, CountFork) == 0;
  (void)registered;
  return g_forkGeneration.load(std::memory_order_relaxed);
}

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

}  // namespace

namespace {

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
