#include "platform/FilesBelow.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string>
#include <vector>

#include "platform/Descriptor.h"
#include "platform/SystemError.h"

namespace vantu::platform {
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

int OpenDirectoryBelow(int dirFd, const std::vector<std::string>& names, size_t count, bool create,
                       size_t& failed) noexcept {
  failed = 0;
  if (count == 0) return ::openat(dirFd, ".", kDirectoryFlags);
  int fd = dirFd;
  for (size_t i = 0; i < count; ++i) {
    failed = i;
    const std::string& name = names[i];
    int next = -1;
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
      errno = EINVAL;
    } else if (!create || ::mkdirat(fd, name.c_str(), 0777) == 0 || errno == EEXIST) {
      next = ::openat(fd, name.c_str(), kDirectoryFlags);
    }
    if (fd != dirFd) {
      const int error = errno;
      ::close(fd);
      errno = error;
    }
    if (next < 0) return -1;
    fd = next;
  }
  return fd;
}

int RemoveTree(const std::string& path, std::string& failedPath) {
  return RemoveTreeAt(AT_FDCWD, path, path, failedPath);
}

int RemoveBelow(const std::string& root, const std::string& relative, bool tree,
                std::string& failedPath) {
  failedPath = root;
  const Descriptor top(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (top.get() < 0) return errno;
  const std::string base = root.empty() || root.back() == '/' ? root : root + "/";
  std::vector<std::string> names;
  std::vector<size_t> ends;  // where each name ends in `relative`
  for (size_t start = 0;;) {
    const size_t slash = relative.find('/', start);
    names.push_back(relative.substr(start, slash - start));
    ends.push_back(slash);
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  size_t failed = 0;
  const Descriptor parent(OpenDirectoryBelow(top.get(), names, names.size() - 1, false, failed));
  if (parent.get() < 0) {
    const int error = errno;
    failedPath = base + relative.substr(0, ends[failed]);
    return error;
  }
  const std::string& name = names.back();
  failedPath = base + relative;
  if (name.empty() || name == "." || name == "..") return EINVAL;
  if (tree) {
    const std::string path = failedPath;
    return RemoveTreeAt(parent.get(), name, path, failedPath);
  }
  return ::unlinkat(parent.get(), name.c_str(), 0) == 0 ? 0 : errno;
}

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

}  // namespace vantu::platform
