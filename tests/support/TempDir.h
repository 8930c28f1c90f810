// Temporary directories and helper processes for tests that touch the file system.
#ifndef VANTU_TESTS_SUPPORT_TEMPDIR_H
#define VANTU_TESTS_SUPPORT_TEMPDIR_H

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

namespace vantu::test {

// A fresh directory under $TMPDIR (else /tmp), removed with everything in it on destruction.
class TempDir {
 public:
  TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/vantu-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    path_ = pattern;
  }
  ~TempDir() {
    // Make everything writable again so that a test that removed permissions cleans up too.
    std::error_code ignored;
    for (auto it = std::filesystem::recursive_directory_iterator(
             path_, std::filesystem::directory_options::skip_permission_denied, ignored);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
      if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ignored);
      }
    }
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // The full path of `name` inside the directory.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  // Writes `content` into `name` (creating parent directories) and returns its full path.
  std::string Write(const std::string& name, const std::string& content) const {
    const std::string full = *this / name;
    std::filesystem::create_directories(std::filesystem::path(full).parent_path());
    std::ofstream(full, std::ios::binary) << content;
    return full;
  }

 private:
  std::string path_;
};

// A child process that opens a file (O_WRONLY | O_APPEND, or O_RDONLY) and holds it open until
// Release() or destruction. The constructor returns once the child has the file open.
class HeldOpen {
 public:
  HeldOpen(const std::string& path, bool forWriting) {
    int ready[2];
    int release[2];
    if (::pipe(ready) != 0 || ::pipe(release) != 0) std::abort();
    pid_ = ::fork();
    if (pid_ == 0) {
      ::close(ready[0]);
      ::close(release[1]);
      const int fd = ::open(path.c_str(), forWriting ? (O_WRONLY | O_APPEND) : O_RDONLY);
      char byte = fd >= 0 ? 'y' : 'n';
      (void)!::write(ready[1], &byte, 1);
      (void)!::read(release[0], &byte, 1);  // returns when the parent writes or closes
      ::_exit(0);
    }
    ::close(ready[1]);
    ::close(release[0]);
    release_ = release[1];
    char byte = 'n';
    opened_ = ::read(ready[0], &byte, 1) == 1 && byte == 'y';
    ::close(ready[0]);
  }
  ~HeldOpen() { Release(); }
  HeldOpen(const HeldOpen&) = delete;
  HeldOpen& operator=(const HeldOpen&) = delete;

  bool opened() const { return opened_; }

  // Makes the child close the file and exit, and waits for it.
  void Release() {
    if (pid_ <= 0) return;
    ::close(release_);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
  int release_ = -1;
  bool opened_ = false;
};

inline bool RunningAsRoot() { return ::geteuid() == 0; }

// The path with every link resolved.
inline std::string RealPath(const std::string& path) {
  char* real = ::realpath(path.c_str(), nullptr);
  const std::string resolved = real != nullptr ? real : "";
  std::free(real);
  return resolved;
}

// Sets an environment variable for the object's lifetime (XDG_DATA_HOME, so that no test writes
// under the real home directory; TMPDIR).
class EnvironmentAt {
 public:
  EnvironmentAt(const char* name, const std::string& value) : name_(name) {
    const char* old = std::getenv(name);
    had_ = old != nullptr;
    if (had_) old_ = old;
    ::setenv(name, value.c_str(), 1);
  }
  ~EnvironmentAt() {
    if (had_) {
      ::setenv(name_, old_.c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }
  EnvironmentAt(const EnvironmentAt&) = delete;
  EnvironmentAt& operator=(const EnvironmentAt&) = delete;

 private:
  const char* name_;
  bool had_ = false;
  std::string old_;
};

// Runs `body` in a forked child process; true when it returned true there. The child ends with
// _exit, so the parent's destructors and exit handlers do not run twice.
inline bool InChild(const std::function<bool()>& body) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    bool ok = false;
    try {
      ok = body();
    } catch (...) {
    }
    ::_exit(ok ? 0 : 1);
  }
  int status = -1;
  return pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

}  // namespace vantu::test

#endif  // VANTU_TESTS_SUPPORT_TEMPDIR_H
