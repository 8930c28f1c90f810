#include <vantu/VDirectoryIterator.h>

#include <string>
#include <utility>

#include "internal/DirectoryWalk.h"
#include "internal/PathText.h"

namespace {

// Hands each entry to the callback as a VFile in the directory's encoding; a directory that
// cannot be listed ends the walk.
class CallbackVisitor : public vantu::internal::DirectoryVisitor {
 public:
  CallbackVisitor(VDirectoryIterator::Callback callback,
                  const VDirectoryIterator::Function& function, void* userData,
                  StringEncoding encoding)
      : callback_(callback), function_(function), userData_(userData), encoding_(encoding) {}

  int Visit(const std::string& path, bool) override {
    if (callback_ == nullptr && !function_) return 0;
    VPath entryPath;
    vantu::internal::SetPathBytes(entryPath, path, encoding_);
    VFile entry(entryPath);
    return function_ ? function_(entry) : callback_(entry, userData_);
  }
  bool Unreadable(const std::string&, int) override { return false; }

 private:
  VDirectoryIterator::Callback callback_;
  const VDirectoryIterator::Function& function_;
  void* userData_;
  StringEncoding encoding_;
};

}  // namespace

VDirectoryIterator::VDirectoryIterator(Callback callback, bool includeDirectories)
    : includeDirectories_(includeDirectories), callback_(callback) {}

VDirectoryIterator::VDirectoryIterator(Function function, bool includeDirectories)
    : includeDirectories_(includeDirectories), callback_(nullptr), function_(std::move(function)) {}

VDirectoryIterator::VDirectoryIterator(bool includeDirectories)
    : includeDirectories_(includeDirectories), callback_(nullptr) {}

VDirectoryIterator::~VDirectoryIterator() = default;

int VDirectoryIterator::Iterate(const VFile& directory, bool recursive, void* userData,
                                unsigned int depth) {
  try {
    const VPath path = directory.GetPath();
    if (path.Length() == 0) return 0;
    CallbackVisitor visitor(callback_, function_, userData, path.GetEncoding());
    return vantu::internal::WalkDirectory(vantu::internal::PathBytes(path), recursive, depth,
                                          includeDirectories_, visitor);
  } catch (...) {
    return -1;
  }
}
