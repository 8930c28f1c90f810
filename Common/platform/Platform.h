// The operating-system services that POCO does not wrap. One implementation per platform
// (Platform_POSIX.cpp here); class code calls these functions and includes no OS header.
#ifndef VANTU_PLATFORM_PLATFORM_H
#define VANTU_PLATFORM_PLATFORM_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace vantu::platform {

// The calling thread's narrow code page (the codeset of its LC_CTYPE locale) is UTF-8. Under the
// C/POSIX locale the code page counts as UTF-8.
bool CodePageIsUtf8();

// Converts text in the thread's code page into UTF-16LE bytes, replacing `out`. Each byte that
// is not valid in the code page becomes "?".
void CodePageToUtf16(const std::string& in, std::string& out);

// Converts UTF-16LE bytes into the thread's code page, replacing `out`. Characters the code page
// cannot hold, unpaired surrogates and a trailing odd byte become "?".
void Utf16ToCodePage(const std::string& in, std::string& out);

// ---------------------------------------------------------------------------------------------
// Files. Paths are the UTF-8 bytes the file system sees.

// The longest path, in bytes, that the system's calls accept (PATH_MAX less its NUL).
size_t LongestPath();

// What a directory entry is, from one lstat (and a stat for a symbolic link).
enum class FileKind { kMissing, kFile, kDirectory, kLinkToExisting, kOther };
FileKind GetFileKind(const std::string& path);

// The entries of a directory, as DirectoryReader reads them, collected. Throws
// std::system_error when the directory cannot be opened or read.
struct DirectoryEntry {
  std::string name;
  FileKind kind;
};
std::vector<DirectoryEntry> ListDirectory(const std::string& path);

// Reads a directory's entries in the order the file system lists them, without "." and "..",
// each with its kind (taken from the listing where the file system gives it, else from fstatat
// on the open directory). Allocates nothing per entry.
class DirectoryReader {
 public:
  // Throws std::system_error (with errno) when the directory cannot be opened.
  explicit DirectoryReader(const std::string& path);
  ~DirectoryReader();
  DirectoryReader(const DirectoryReader&) = delete;
  DirectoryReader& operator=(const DirectoryReader&) = delete;

  // The next entry: its name (valid until the next call) and kind; false at the end. Throws
  // std::system_error when the directory cannot be read.
  bool Next(const char*& name, FileKind& kind);

 private:
  void* dir_;  // DIR*
};

// Device and inode of what the path names (links followed).
struct FileIdentity {
  unsigned long long device = 0;
  unsigned long long inode = 0;
  bool operator==(const FileIdentity& other) const {
    return device == other.device && inode == other.inode;
  }
};
bool GetFileIdentity(const std::string& path, FileIdentity& identity);

// The path is a symbolic link whose target exists.
bool IsSymbolicLinkToExisting(const std::string& path);
// For a symbolic link whose target exists: its fully resolved target. False otherwise.
bool ResolveSymbolicLink(const std::string& path, std::string& target);

// Whether no one is still writing the file; see VFile::IsAvailable.
bool IsFileAvailable(const std::string& path, bool requireNonEmpty, bool forWrite);

// The file opened for reading (a descriptor, closed on exec) when IsFileAvailable(path, false,
// false) would say so, else -1. The test and the reading use one descriptor, so whatever
// replaces the file at that path afterwards (a FIFO that would block, another file) is not read.
int OpenAvailableForReadingFd(const std::string& path);

// Removes a file, a symbolic link (not what it points to) or a directory with everything in it.
// Directories are entered through descriptors opened relative to their parent without
// following links, so a sub-directory swapped for a link during the removal removes the link,
// never what it points to. Returns 0, or the errno value of the first failure, with the path it
// concerned in `failedPath`; what was removed before it stays removed.
int RemoveTree(const std::string& path, std::string& failedPath);
// Removes `relative` (names joined by "/") below the directory `root`. Each directory on the way
// is opened relative to the one before it without following a link, so a link there, also one
// swapped in meanwhile, fails (ELOOP, ENOTDIR) instead of leading out; the last name is removed
// as itself (a link, not what it points to), with everything in it when `tree` (as RemoveTree),
// else only when it is not a directory. Returns 0, or the errno value of the first failure with
// the path it concerned in `failedPath`.
int RemoveBelow(const std::string& root, const std::string& relative, bool tree,
                std::string& failedPath);

// Opens a file for writing in binary mode, closed on exec, creating it or truncating it (devices
// and pipes are not truncated), and holds an exclusive flock on it until the stream is closed:
// cooperating processes that take a flock cannot write it meanwhile. Null when the file cannot
// be opened or another open file description holds a flock on it; the file is then left as it
// was.
std::FILE* OpenForWritingLocked(const std::string& path);

// ---------------------------------------------------------------------------------------------
// Address ranges: address space reserved once and made accessible piece by piece, so that a
// growing buffer keeps its address and never copies its bytes.

// Reservations are whole multiples of, and aligned to, this size (a huge page), and the kernel may
// back accessible parts of them with huge pages.
constexpr size_t kRangeAlignment = size_t{2} << 20;
// The size of a memory page.
size_t PageSize();
// Reserves `bytes` (a multiple of kRangeAlignment) of inaccessible address space; null on
// failure.
void* ReserveRange(size_t bytes);
// Makes [start, start + bytes) of a reservation readable and writable (page-aligned); false when
// the system refuses the memory.
bool CommitRange(void* start, size_t bytes);
// Moves the first `bytes` (page-aligned) of one reservation onto the start of another, keeping
// their content without copying it (the page tables move). Afterwards those bytes of the source
// are no longer mapped. False when the system refuses; both are then as they were.
bool MoveRange(void* from, void* to, size_t bytes);
// Returns [start, start + bytes) to the system.
void ReleaseRange(void* start, size_t bytes);

// The running executable's full path; empty when unknown.
std::string ExecutablePath();

// ---------------------------------------------------------------------------------------------
// Change notification on directories (inotify): which entries were closed after writing, moved
// in or out, created or deleted. A file system that reports nothing (NFS changes made elsewhere)
// simply sends no events.
class ChangeNotifier {
 public:
  // What one Wait brought.
  struct Events {
    bool changed = false;    // an entry of a watched directory changed
    bool overflow = false;   // events were lost: anything may have changed
    bool lostWatch = false;  // the first directory watched since Reset went away or moved
    std::vector<std::string> newDirectories;  // directories created or moved in, full paths
  };

  ChangeNotifier();
  ~ChangeNotifier();
  ChangeNotifier(const ChangeNotifier&) = delete;
  ChangeNotifier& operator=(const ChangeNotifier&) = delete;

  // False when the system offers no notification (then nothing is ever reported).
  bool Valid() const { return fd_ >= 0; }
  // Starts watching a directory; false when it cannot be watched (limits, permissions).
  bool Watch(const std::string& directory);
  // Forgets every watch.
  void Reset();
  // Waits up to `timeoutMs` milliseconds (or until Interrupt) and returns the events read.
  Events Wait(int timeoutMs);
  // Makes the current or next Wait return at once; callable from any thread.
  void Interrupt();

 private:
  int fd_ = -1;
  int wake_ = -1;                                     // an eventfd for Interrupt
  std::vector<std::pair<int, std::string>> watches_;  // watch descriptor, directory
};
// Files by descriptor, for archives and extraction. Failures throw std::system_error carrying
// the errno value (generic category) and the path or the operation.

// What a path is, with lstat (`follow` false) or stat.
struct FileStatus {
  FileKind kind = FileKind::kMissing;  // with lstat: kOther for any symbolic link
  bool isLink = false;
  unsigned long long size = 0;
  long long modifiedSeconds = 0;  // since the Unix epoch
  unsigned mode = 0;              // permission bits
  FileIdentity identity;
};
bool GetFileStatus(const std::string& path, bool follow, FileStatus& status);

// Opens a regular file for reading (closed on exec). A directory fails with EISDIR; anything
// else that is not a regular file (a FIFO, a device, a socket) fails at once, with an error of
// NotRegularFileCategory, rather than blocking or reading without end.
int OpenForReadingFd(const std::string& path);
// Its message is "Not a regular file"; it compares equal to std::errc::invalid_argument.
const std::error_category& NotRegularFileCategory();
// Creates a new file for writing; fails if anything, a link included, already has the name.
int CreateNewFile(const std::string& path, unsigned mode);
// Reads up to `size` bytes at `offset` (fewer only at the end of the file); safe to call from
// several threads on one descriptor.
size_t ReadAt(int fd, void* buffer, size_t size, unsigned long long offset);
void WriteAll(int fd, const void* buffer, size_t size);
// Opens an existing regular file for reading and writing in place (closed on exec), without
// following a symbolic link (ELOOP) and failing on anything but a regular file, as
// OpenForReadingFd does.
int OpenForUpdateFd(const std::string& path);
// Writes all `size` bytes at `offset`.
void WriteAt(int fd, const void* buffer, size_t size, unsigned long long offset);
// Cuts or extends the file to `size` bytes.
void SetFileSize(int fd, unsigned long long size);
unsigned long long GetFileSize(int fd);
// Sets the modification (and access) time, and the permission bits unless `mode` is 0.
void SetFileTimeAndMode(int fd, long long modifiedSeconds, unsigned mode);
// Closes and reports a failure of the close itself (a write the file system could not finish).
void CloseFile(int fd);
void CloseFileQuietly(int fd) noexcept;

// Renames within one file system, replacing what `to` names (a link is replaced, not followed).
void RenamePath(const std::string& from, const std::string& to);
// Removes a file or a symbolic link; false when it could not be removed.
bool RemovePath(const std::string& path) noexcept;
// Directories by descriptor, for extraction: every step below a folder the caller gave is made
// relative to a directory descriptor and never follows a symbolic link, so no link planted or
// swapped in meanwhile can lead elsewhere. `name` is one component (no "/").
// Opens a directory the caller gave (links followed), creating it and its parents as needed.
int OpenOrMakeDirectory(const std::string& path);
// Opens the directory `name` in `dirFd`, first creating it (mode 0777 less the umask) when
// `create` says so and it is missing; a symbolic link or anything else but a directory fails
// (ELOOP or ENOTDIR).
int OpenDirectoryAt(int dirFd, const std::string& name, bool create);
// Creates a new file in `dirFd`; fails if anything, a link included, already has the name.
int CreateNewFileAt(int dirFd, const std::string& name, unsigned mode);
void MakeSymbolicLinkAt(const std::string& target, int dirFd, const std::string& name);
// Renames within one directory, replacing what `to` names (a link is replaced, not followed).
void RenameAt(int dirFd, const std::string& from, const std::string& to);
// Removes a file or a symbolic link in `dirFd`; false when it could not be removed.
bool RemoveAt(int dirFd, const std::string& name) noexcept;
// Sets the modification time of `name` in `dirFd` without following a symbolic link.
void SetTimeAt(int dirFd, const std::string& name, long long modifiedSeconds);
// Seconds by which local time is ahead of UTC at that instant. The time zone is read once per
// process, on the first call; no call after that touches the file system.
long LocalTimeOffset(long long epochSeconds);
// The path with every link resolved (realpath): throws std::system_error when it cannot be, or
// reports false.
std::string RealPath(const std::string& path);
bool RealPath(const std::string& path, std::string& resolved);

// ---------------------------------------------------------------------------------------------
// Randomness and processes

// Fills the buffer from the kernel's cryptographic generator (getrandom), waiting for it to be
// seeded at boot, retrying on interruption. Throws std::system_error if the kernel refuses.
void FillRandom(void* buffer, size_t size);
// A number that changes in a child process each time the process forks: state derived from
// randomness (buffered random bytes, generators) compares it to know it must start afresh.
unsigned long ForkGeneration();
// Replacing a file whole.

// Writes a new version of a file that is never seen half written, not even after a crash: the
// bytes go to a temporary file beside the target, which is flushed to disk, given the target's
// permission bits (and owner and group, where allowed), renamed over the target, and the
// directory flushed. The file is replaced, not written into: other hard links keep the old
// content. A target that is a symbolic link is replaced at the file the link names. A target
// that exists but may not be written, or is a directory, is refused before anything is written.
// Until Commit succeeds the target is untouched; the temporary file is removed when the object
// goes without a successful Commit.
//
// The temporary file is unnamed (O_TMPFILE) until Commit links it beside the target (through
// /proc/self/fd) just before the rename, so a process killed while writing leaves nothing. Where
// the file system or /proc does not allow that, it is named from the start. Named temporary
// files carry the writer's process id and stay locked while it writes; each new replacement
// removes those of its target whose process is gone.
class FileReplacement {
 public:
  // Throws std::system_error when the temporary file cannot be made.
  explicit FileReplacement(const std::string& path);
  ~FileReplacement();
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;

  // Appends bytes to the temporary file. After a failure later writes are ignored and Commit
  // throws.
  void Write(const void* bytes, size_t count);
  // Discards what was written, to start again.
  void Restart();
  // Throws std::system_error when the first failed write, the flush or the rename failed.
  void Commit();

 private:
  std::string target_;
  std::string temporary_;  // empty while the file is unnamed
  int fd_ = -1;
  int error_ = 0;
};

// For tests: FileReplacement names its temporary file from the start, as on a file system
// without unnamed files.
void UseNamedTemporaryFiles(bool named);

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_PLATFORM_H
