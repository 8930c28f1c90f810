#include <vantu/VXMLFile.h>

#include <vantu/VFile.h>

#include <string>
#include <vector>

#include "internal/PathText.h"
#include "platform/Files.h"

using vantu::internal::PathBytes;

namespace {

// `path` with its folder resolved as the file system reaches it: the longest leading part that
// exists through realpath (links and ".." followed), the missing rest by name ("." dropped, ".."
// dropping the name before it). The last name is kept as it is. Relative paths become absolute.
std::string Resolved(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  std::vector<std::string> parts;
  if (slash != std::string::npos) {
    for (size_t start = 0; start <= slash;) {
      const size_t end = path.find('/', start);
      parts.push_back(path.substr(start, end - start));
      start = end + 1;
    }
  }
  std::string folder;
  if (!vantu::platform::RealPath(path.empty() || path[0] != '/' ? "." : "/", folder)) return path;
  size_t i = 0;
  for (std::string next;
       i < parts.size() && vantu::platform::RealPath(folder + "/" + parts[i], next); ++i) {
    folder = next;
  }
  for (; i < parts.size(); ++i) {
    if (parts[i] == "..") {
      folder.resize(std::max<size_t>(folder.rfind('/'), 1));
    } else if (!parts[i].empty() && parts[i] != ".") {
      folder += (folder == "/" ? "" : "/") + parts[i];
    }
  }
  return folder + (folder == "/" ? "" : "/") + name;
}

}  // namespace

VXMLFile::VXMLFile() : container_(std::make_shared<VXML>()) {}

VXMLFile::VXMLFile(const VPath& path) : container_(std::make_shared<VXML>()), path_(path) {
  // Resolved once, so that the file loaded is the one saved, and its folder the one created.
  if (path_.Length() != 0) {
    vantu::internal::SetPathBytes(path_, Resolved(PathBytes(path_)), path_.GetEncoding());
  }
  // A file that is missing, or that cannot be loaded, leaves no document, so nothing replaces it
  // unless the caller builds one.
  if (!container_->Load(PathBytes(path_), true)) container_->Clear();
}

VXMLFile::VXMLFile(const VXMLFile& other)
    : VBaseObject(other), container_(other.container_), path_(other.path_), name_(other.name_) {}

VXMLFile& VXMLFile::operator=(const VXMLFile& other) {
  if (this != &other) {
    if (container_ != other.container_ || !path_.IsEqual(other.path_)) SaveQuietly();
    container_ = other.container_;
    path_ = other.path_;
    name_ = other.name_;
  }
  return *this;
}

VXMLFile::~VXMLFile() { SaveQuietly(); }

void VXMLFile::SaveQuietly() noexcept {
  if (!container_ || path_.Length() == 0) return;
  try {
    const VFile parent(path_.Parent());
    if (!parent.Exists()) parent.CreateDirectories();
    container_->Save(PathBytes(path_));
  } catch (...) {
  }
}
