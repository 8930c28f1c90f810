#include <vantu/VXMLFile.h>

#include <vantu/VFile.h>

#include "internal/PathText.h"

using vantu::internal::PathBytes;

VXMLFile::VXMLFile() : container_(std::make_shared<VXML>()) {}

VXMLFile::VXMLFile(const VPath& path) : container_(std::make_shared<VXML>()), path_(path) {
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
