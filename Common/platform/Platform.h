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
// Replacing a file whole.

// Writes a new version of a file that is never seen half written, not even after a crash: the
// bytes go to a temporary file beside the target, which is flushed to disk, given the target's
// permission bits (and owner and group, where allowed), renamed over the target, and the
// directory flushed. A target that is a symbolic link is replaced at the file the link names. A
// target that exists but may not be written, or is a directory, is refused before anything is
// written. Until Commit succeeds the target is untouched; the temporary file is removed when
// the object goes without a successful Commit.
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
  std::string temporary_;
  int fd_ = -1;
  int error_ = 0;
};

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_PLATFORM_H
