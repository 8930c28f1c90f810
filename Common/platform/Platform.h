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

// The file opened for reading in binary mode (closed on exec) when IsFileAvailable(path, false,
// false) would say so, else null. The test and the reading use one descriptor, so whatever
// replaces the file at that path afterwards (a FIFO that would block, another file) is not read.
std::FILE* OpenAvailableForReading(const std::string& path);

// Removes a file, a symbolic link (not what it points to) or a directory with everything in it.
// Directories are entered through descriptors opened relative to their parent without
// following links, so a sub-directory swapped for a link during the removal removes the link,
// never what it points to. Returns 0, or the errno value of the first failure, with the path it
// concerned in `failedPath`; what was removed before it stays removed.
int RemoveTree(const std::string& path, std::string& failedPath);

// The running executable's full path; empty when unknown.
std::string ExecutablePath();

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_PLATFORM_H
