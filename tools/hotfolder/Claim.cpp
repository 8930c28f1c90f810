#include "Claim.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <vantu/VFile.h>
#include <vantu/VPath.h>

#include "Folder.h"
#include "Messages.h"
#include "Session.h"
#include "Signals.h"

namespace hotfolder {

ClaimFolder g_claim;

namespace {

// rename(2) that never replaces an entry: 0, or an errno value (EEXIST when `to` exists). File
// systems without RENAME_NOREPLACE (NFS, SMB) get a test and a plain rename: only this
// instance writes into its claim folder, which it holds locked.
int RenameNoReplace(int fromDir, const char* from, int toDir, const char* to) {
  if (::renameat2(fromDir, from, toDir, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  struct stat info;
  if (::fstatat(toDir, to, &info, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return ::renameat(fromDir, from, toDir, to) == 0 ? 0 : errno;
}

// Moves `from` into the folder `toDir` under `name`, or, when that name is taken, under
// name~1.ext, name~2.ext... (the number before the last extension, the part before it shortened
// at a character's start when the name would pass NAME_MAX bytes). Returns 0 and sets `used`,
// or an errno value.
int MoveInto(int fromDir, const std::string& from, int toDir, const std::string& name,
             std::string& used) {
  size_t dot = name.rfind('.');
  if (dot == 0 || dot == std::string::npos || name.size() - dot > NAME_MAX / 2) dot = name.size();
  for (int n = 0; n < 100000; ++n) {
    used = name;
    if (n > 0) {
      const std::string tail = "~" + std::to_string(n) + name.substr(dot);
      size_t keep = std::min(dot, NAME_MAX - tail.size());
      while (keep > 0 && (static_cast<unsigned char>(name[keep]) & 0xC0) == 0x80) --keep;
      used = name.substr(0, keep) + tail;
    }
    const int error = RenameNoReplace(fromDir, from.c_str(), toDir, used.c_str());
    if (error != EEXIST) return error;
  }
  return EEXIST;
}

// Marks a folder that the tool made as its claim folder: only there are files found at start
// taken as left by an earlier run.
const char kMarker[] = ".vantu-hotfolder-claim";

// Takes the claim folder's lock, waiting up to lockWait (10 s) for an instance that is still
// stopping (as one being restarted: its lock goes only once it has fully exited). SIGINT and
// SIGTERM end the wait and the tool.
bool Lock(int fd, const std::string& path) {
  const auto deadline = std::chrono::steady_clock::now() + g_claim.lockWait;
  for (bool said = false; ::flock(fd, LOCK_EX | LOCK_NB) != 0;) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      return Fail("cannot lock " + path + "/.lock: " + std::strerror(errno));
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      return Fail("claim folder " + path +
                  " is in use by another instance: each instance needs its own");
    }
    if (!said) {
      std::fprintf(stderr,
                   "vantu-hotfolder: claim folder %s is locked by another instance: waiting up "
                   "to 10 s for it\n",
                   path.c_str());
      said = true;
    }
    const timespec step{0, 50000000};
    const int signal = ::sigtimedwait(&g_signals, nullptr, &step);
    if (signal > 0) EndBy(signal);
  }
  return true;
}

// Whether the folder holds no entry at all.
bool Empty(int fd) {
  const int listed = ::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* dir = listed < 0 ? nullptr : ::fdopendir(listed);
  if (dir == nullptr) {
    if (listed >= 0) ::close(listed);
    return false;
  }
  bool empty = true;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") empty = false;
  }
  ::closedir(dir);
  return empty;
}

}  // namespace

bool Claim(const Options& options, VHotfolder& folder, const std::string& path, Result& result) {
  std::string name;
  int error = 0;
  bool gone = false;
  for (int attempt = 0; attempt < 2; ++attempt) {
    Parent parent(path);
    error = parent.error != 0 ? parent.error
                              : MoveInto(parent.fd, parent.name, g_claim.fd, parent.name, name);
    struct stat info;
    gone = error == ENOENT && (parent.error != 0 || (::fstatat(parent.fd, parent.name.c_str(),
                                                               &info, AT_SYMLINK_NOFOLLOW) != 0 &&
                                                     errno == ENOENT));
    if (error != ENOENT || !Reopened(options)) break;
  }
  if (gone) return false;
  if (error == 0) {
    folder.Remove(VFile(VPath::FromFileSystem(path)), true);
    result.claimed = g_claim.path + "/" + name;
    Record(&VLog::Notice, "Claimed " + path + " as " + result.claimed);
  } else {
    result.claimError = Describe(error);
    Record(&VLog::Error, "Cannot claim " + path + ": " + result.claimError);
  }
  return true;
}

void Settle(const Options& options, Result& result) {
  const bool succeeded = options.exec.empty() || (result.ran && result.status == 0);
  if (!succeeded && g_session.Stopping()) return;
  const bool done = succeeded && result.error.empty();
  const std::string name = result.claimed.substr(g_claim.path.size() + 1);
  std::string used;
  const int error = MoveInto(g_claim.fd, name, done ? g_claim.done : g_claim.failed, name, used);
  if (error == 0) {
    result.moved = g_claim.path + (done ? "/done/" : "/failed/") + used;
    Record(&VLog::Notice, "Moved " + result.claimed + " to " + result.moved);
  } else {
    result.moveError = std::strerror(error);
    Record(&VLog::Error, "Cannot move " + result.claimed + ": " + result.moveError);
  }
}

bool OpenClaim(const Options& options) {
  for (int* fd : {&g_claim.fd, &g_claim.done, &g_claim.failed, &g_claim.lock}) {
    if (*fd >= 0) ::close(*fd);
    *fd = -1;
  }
  std::error_code error;
  const std::string watched = std::filesystem::canonical(g_watched.path, error);
  struct stat watchedInfo;
  if (error || ::fstat(g_watched.fd, &watchedInfo) != 0) {
    return Fail("cannot use directory " + g_watched.path);
  }
  // Inside the watched folder only below a dot-name. Tested before DIR is made and again once
  // links in its path are resolved.
  const auto misplaced = [&](const std::string& path) {
    if (path != watched && path.compare(0, watched.size() + 1, watched + "/") != 0) return false;
    if (path.find("/.", watched.size()) != std::string::npos) return false;
    return !Fail("--claim folder " + path +
                 " lies inside the watched folder, where its files would be delivered again: "
                 "use a folder whose name starts with \".\", as " +
                 watched + "/.claimed");
  };
  std::filesystem::path planned = std::filesystem::weakly_canonical(options.claim, error);
  if (misplaced(planned)) return false;
  struct stat info;
  while (::stat(planned.c_str(), &info) != 0 && planned.has_relative_path()) {
    planned = planned.parent_path();  // where DIR would be made
  }
  const auto elsewhere = [&](const std::string& path) {
    return info.st_dev != watchedInfo.st_dev &&
           !Fail("--claim folder " + path + " is on another file system than " + watched +
                 ": files cannot be renamed into it");
  };
  if (elsewhere(planned)) return false;
  const bool made = std::filesystem::create_directories(options.claim, error);
  const std::string path = std::filesystem::canonical(options.claim, error);
  if (error || !std::filesystem::is_directory(path)) {
    return Fail("cannot use --claim folder " + options.claim);
  }
  if (misplaced(path)) return false;
  g_claim.path = path;
  g_claim.fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (g_claim.fd < 0 || ::fstat(g_claim.fd, &info) != 0) {
    return Fail("cannot open --claim folder " + path + ": " + std::strerror(errno));
  }
  if (elsewhere(path)) return false;
  if (!made && ::faccessat(g_claim.fd, kMarker, F_OK, AT_SYMLINK_NOFOLLOW) != 0 &&
      !Empty(g_claim.fd)) {
    return Fail("--claim folder " + path + " holds entries but was not made by vantu-hotfolder (" +
                kMarker + " is missing in it): name a new or empty folder");
  }
  const int marker =
      ::openat(g_claim.fd, kMarker, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (marker < 0)
    return Fail("cannot create " + path + "/" + kMarker + ": " + std::strerror(errno));
  ::close(marker);
  g_claim.lock = ::openat(g_claim.fd, ".lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (g_claim.lock < 0) return Fail("cannot create " + path + "/.lock: " + std::strerror(errno));
  if (!Lock(g_claim.lock, path)) return false;
  for (const char* sub : {"done", "failed"}) {
    if (::mkdirat(g_claim.fd, sub, 0777) != 0 && errno != EEXIST) {
      return Fail("cannot create " + path + "/" + sub + ": " + std::strerror(errno));
    }
    (sub[0] == 'd' ? g_claim.done : g_claim.failed) =
        ::openat(g_claim.fd, sub, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  }
  if (g_claim.done < 0 || g_claim.failed < 0) {
    return Fail("cannot open " + path + "/done and /failed: " + std::strerror(errno));
  }
  std::vector<std::string> left;
  for (const auto& entry : std::filesystem::directory_iterator(path, error)) {
    const std::string name = entry.path().filename();
    if (name[0] != '.' &&
        entry.symlink_status(error).type() == std::filesystem::file_type::regular) {
      left.push_back(entry.path());
    }
  }
  std::sort(left.begin(), left.end());
  for (const std::string& file : left) g_session.Push({std::string(), true, file});
  return true;
}

}  // namespace hotfolder
