#include <vantu/VFile.h>

#include <Poco/File.h>

#include <cerrno>
#include <iterator>

#include "internal/FileErrors.h"
#include "internal/PathText.h"
#include "platform/FileAvailability.h"
#include "platform/Files.h"
#include "platform/FilesBelow.h"

using vantu::internal::PathBytes;

namespace {

// Runs a query on the path's Poco::File; an empty path or any exception gives `failure`.
template <typename Result, typename Query>
Result Ask(const VPath& path, Result failure, Query query) {
  if (path.Length() == 0) return failure;
  try {
    Poco::File file(PathBytes(path));
    return query(file);
  } catch (...) {
    return failure;
  }
}

}  // namespace

VFile::VFile() = default;
VFile::VFile(const VFile& other) = default;
VFile::VFile(const VPath& path) : path_(path) {}
VFile::VFile(const VString& path) : path_(path) {}
VFile::VFile(const char* path, StringEncoding encoding) : path_(path, encoding) {}
VFile::VFile(const char* path) : path_(path) {}
VFile& VFile::operator=(const VFile& other) {
  if (this != &other) path_ = other.path_;
  return *this;
}
VFile::~VFile() = default;

VPath VFile::GetPath() const { return path_; }

bool VFile::Exists() const {
  return Ask(path_, false, [](const Poco::File& file) { return file.exists(); });
}

bool VFile::IsFile() const {
  return Ask(path_, false, [](const Poco::File& file) { return file.isFile(); });
}

bool VFile::IsDirectory() const {
  return Ask(path_, false, [](const Poco::File& file) { return file.isDirectory(); });
}

uint64_t VFile::GetSize() const {
  return Ask(path_, uint64_t{0}, [](const Poco::File& file) { return uint64_t{file.getSize()}; });
}

bool VFile::CreateDirectory() const {
  return Ask(path_, false, [](Poco::File& file) { return file.createDirectory(); });
}

void VFile::CreateDirectories() const {
  if (path_.Length() == 0) return;
  try {
    Poco::File(PathBytes(path_)).createDirectories();
  } catch (...) {
    vantu::internal::RethrowAsVantuException();
  }
}

void VFile::Remove(bool recursive) const {
  if (path_.Length() == 0) return;
  try {
    if (!recursive) {
      Poco::File(PathBytes(path_)).remove(false);
      return;
    }
    // A tree is removed without following links, also links swapped in during the removal.
    std::string failedPath;
    const int error = vantu::platform::RemoveTree(PathBytes(path_), failedPath);
    if (error != 0) {
      errno = error;
      Poco::File::handleLastError(failedPath);  // throws the file system layer's exception
    }
  } catch (...) {
    vantu::internal::RethrowAsVantuException();
  }
}

void VFile::List(std::vector<std::string>& names) const {
  if (path_.Length() == 0) return;
  // Poco::File::list replaces the vector's content; list into a scratch vector and append.
  std::vector<std::string> listed;
  try {
    Poco::File(PathBytes(path_)).list(listed);
  } catch (...) {
  }
  names.insert(names.end(), std::make_move_iterator(listed.begin()),
               std::make_move_iterator(listed.end()));
}

bool VFile::IsShortcut() const {
  if (path_.Length() == 0) return false;
  return vantu::platform::IsSymbolicLinkToExisting(PathBytes(path_));
}

bool VFile::IsAvailable(bool requireNonEmpty, bool forWrite) const {
  if (path_.Length() == 0) return false;
  return vantu::platform::IsFileAvailable(PathBytes(path_), requireNonEmpty, forWrite);
}
