#include "platform/Files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>
#include <vector>

#include "platform/SystemError.h"

namespace vantu::platform {

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

void RenamePath(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) ThrowErrno(to);
}

bool RemovePath(const std::string& path) noexcept { return ::unlink(path.c_str()) == 0; }

}  // namespace vantu::platform
