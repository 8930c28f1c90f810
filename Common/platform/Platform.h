// The operating-system services that POCO does not wrap. One implementation per platform
// (Platform_POSIX.cpp here); class code calls these functions and includes no OS header.
#ifndef VANTU_PLATFORM_PLATFORM_H
#define VANTU_PLATFORM_PLATFORM_H

#include <cstdio>
#include <string>
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

// What a directory entry is, from one lstat (and a stat for a symbolic link).
enum class FileKind { kMissing, kFile, kDirectory, kLinkToExisting, kOther };
FileKind GetFileKind(const std::string& path);

// The entries of a directory in the order the file system lists them, without "." and "..",
// each with its kind (taken from the directory listing where the file system gives it, else
// from lstat). Throws std::system_error when the directory cannot be opened or read.
struct DirectoryEntry {
  std::string name;
  FileKind kind;
};
std::vector<DirectoryEntry> ListDirectory(const std::string& path);

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

// Opens a file for reading in binary mode, closed on exec; null on failure.
std::FILE* OpenForReading(const std::string& path);

// The running executable's full path; empty when unknown.
std::string ExecutablePath();

// ---------------------------------------------------------------------------------------------
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

// Opens for reading (O_RDONLY, closed on exec).
int OpenForReadingFd(const std::string& path);
// Creates a new file for writing; fails if anything, a link included, already has the name.
int CreateNewFile(const std::string& path, unsigned mode);
// Reads up to `size` bytes at `offset` (fewer only at the end of the file); safe to call from
// several threads on one descriptor.
size_t ReadAt(int fd, void* buffer, size_t size, unsigned long long offset);
void WriteAll(int fd, const void* buffer, size_t size);
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
// Creates one directory; false when a directory (not a link) already has the name.
bool MakeDirectory(const std::string& path, unsigned mode);
void MakeSymbolicLink(const std::string& target, const std::string& path);
// Sets a path's modification time without following a final symbolic link.
void SetPathTime(const std::string& path, long long modifiedSeconds);
// The path with every link resolved (realpath).
std::string RealPath(const std::string& path);

// ---------------------------------------------------------------------------------------------
// Randomness and processes

// Fills the buffer from the kernel's cryptographic generator (getrandom), waiting for it to be
// seeded at boot, retrying on interruption. Throws std::system_error if the kernel refuses.
void FillRandom(void* buffer, size_t size);
// A number that changes in a child process each time the process forks: state derived from
// randomness (buffered random bytes, generators) compares it to know it must start afresh.
unsigned long ForkGeneration();

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_PLATFORM_H
