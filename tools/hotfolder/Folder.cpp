#include "Folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include <vantu/VException.h>
#include <vantu/VFile.h>
#include <vantu/VPath.h>

#include "Claim.h"
#include "Messages.h"
#include "Session.h"

namespace hotfolder {
namespace {

// An errno value of its own: a link (or a file) where a delivered path goes through a folder.
constexpr int kLinkOnTheWay = -1;

}  // namespace

WatchedFolder g_watched;

bool UseWatched(Options& options) {
  std::error_code error;
  std::filesystem::create_directories(options.directory, error);
  if (!std::filesystem::is_directory(options.directory)) {
    return Fail("cannot use directory " + options.directory);
  }
  // Resolved, as the hot folder resolves the links inside it: every path it delivers starts
  // with this one, and a file is not delivered again under a second spelling.
  const std::string resolved = std::filesystem::canonical(options.directory, error);
  if (error) return Fail("cannot use directory " + options.directory + ": " + error.message());
  options.directory = resolved;
  return OpenWatched(options.directory);
}

bool OpenWatched(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return Fail("cannot read directory " + path + ": " + std::strerror(errno));
  if (g_watched.fd >= 0) ::close(g_watched.fd);
  g_watched = {path, fd};
  return true;
}

bool SameFolder(const std::string& path, int fd) {
  struct stat now;
  struct stat opened;
  return ::stat(path.c_str(), &now) == 0 && ::fstat(fd, &opened) == 0 &&
         now.st_dev == opened.st_dev && now.st_ino == opened.st_ino;
}

std::string Describe(int error) {
  return error == kLinkOnTheWay ? "a symbolic link on its way is not followed"
                                : std::strerror(error);
}

Parent::Parent(std::string path) {
  const std::string& root = g_watched.path;
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  if (path.size() <= root.size() + 1 || path.compare(0, root.size(), root) != 0 ||
      path[root.size()] != '/') {
    error = EINVAL;
    return;
  }
  size_t from = root.size() + 1;
  for (size_t slash; (slash = path.find('/', from)) != std::string::npos; from = slash + 1) {
    const int next = ::openat(fd, path.substr(from, slash - from).c_str(),
                              O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) {
      error = errno == ENOTDIR || errno == ELOOP ? kLinkOnTheWay : errno;
      return;
    }
    Close();
    fd = next;
    owned_ = true;
  }
  name = path.substr(from);
  if (name == "." || name == "..") error = EINVAL;
}

void Parent::Close() {
  if (owned_) ::close(fd);
}

bool Reopened(const Options& options) {
  struct stat info;
  if (::stat(g_watched.path.c_str(), &info) != 0) return false;
  const bool watched = !SameFolder(g_watched.path, g_watched.fd);
  const bool claim = !options.claim.empty() && !SameFolder(g_claim.path, g_claim.fd);
  if (!watched && !claim) return false;
  if ((watched && !OpenWatched(g_watched.path)) || (claim && !OpenClaim(options))) {
    g_failed = true;
    g_session.Stop(0, false);
    return false;
  }
  Record(&VLog::Warning, std::string(watched ? "The watched folder " + g_watched.path
                                             : "The claim folder " + g_claim.path) +
                             " was replaced: opened again");
  return true;
}

void Delete(const Options& options, VHotfolder& folder, const std::string& path, bool claimed,
            Result& result) {
  int error = 0;
  if (claimed) {
    const std::string name = path.substr(g_claim.path.size() + 1);
    if (::unlinkat(g_claim.fd, name.c_str(), 0) != 0) error = errno;
  }
  for (int attempt = 0; !claimed && attempt < 2; ++attempt) {
    Parent parent(path);
    struct stat info;
    error = parent.error;
    if (error == 0 && ::fstatat(parent.fd, parent.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      error = errno;
    } else if (error == 0 && S_ISDIR(info.st_mode)) {
      // Through the descriptor's own name, which no link can redirect; the removal enters
      // sub-folders without following links.
      const std::string at = "/proc/self/fd/" + std::to_string(parent.fd) + "/" + parent.name;
      try {
        VFile(VPath::FromFileSystem(at)).Remove(true);
      } catch (const VException& e) {
        result.error = std::string(e.Name()) + ": " + e.Message();
        return;
      }
    } else if (error == 0 && ::unlinkat(parent.fd, parent.name.c_str(), 0) != 0) {
      error = errno;
    }
    if (error != ENOENT || !Reopened(options)) break;
  }
  if (error != 0) {
    result.error = Describe(error);
    return;
  }
  result.deleted = true;
  Record(&VLog::Notice, "Deleted " + path);
  if (claimed) return;  // never in the list: the claim took it out
  // The list matches a directory entry in directory form only while it is a directory.
  const bool directory = path.size() > 1 && path.back() == '/';
  folder.Remove(VFile(VPath::FromFileSystem(directory ? path.substr(0, path.size() - 1) : path)),
                true);
}

}  // namespace hotfolder
