// Files and directories by path: what a path is, directory listings, links. Paths are the UTF-8
// bytes the file system sees.
#ifndef VANTU_PLATFORM_FILES_H
#define VANTU_PLATFORM_FILES_H

#include <cstddef>
#include <string>
#include <vector>

namespace vantu::platform {

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

// The path with every link resolved (realpath): throws std::system_error when it cannot be, or
// reports false.
std::string RealPath(const std::string& path);
bool RealPath(const std::string& path, std::string& resolved);

// Renames within one file system, replacing what `to` names (a link is replaced, not followed).
void RenamePath(const std::string& from, const std::string& to);
// Removes a file or a symbolic link; false when it could not be removed.
bool RemovePath(const std::string& path) noexcept;

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_FILES_H
