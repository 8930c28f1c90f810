#include "internal/DirectoryWalk.h"

#include <memory>
#include <set>
#include <system_error>
#include <utility>

#include "platform/Files.h"

namespace vantu::internal {
namespace {

using platform::FileKind;

class Walk {
 public:
  Walk(bool includeDirectories, DirectoryVisitor& visitor)
      : includeDirectories_(includeDirectories), visitor_(visitor) {}

  int Run(const std::string& root, bool recursive, unsigned depth) {
    path_ = root;
    Enter();
    return Directory(recursive, depth);
  }

 private:
  // True the first time the directory in path_ is seen.
  bool Enter() {
    platform::FileIdentity id;
    if (!platform::GetFileIdentity(path_, id)) return true;
    return visited_.insert({id.device, id.inode}).second;
  }

  // Walks the directory whose path is in path_, leaving path_ as it found it.
  int Directory(bool recursive, unsigned depth) {
    const size_t base = path_.size();
    std::unique_ptr<platform::DirectoryReader> reader;
    try {
      reader = std::make_unique<platform::DirectoryReader>(path_);
    } catch (const std::system_error& e) {
      if (visitor_.Unreadable(path_, e.code().value())) return 0;
      throw;
    }
    if (path_.empty() || path_.back() != '/') path_.push_back('/');
    const size_t prefix = path_.size();
    int result = 0;
    const char* name = nullptr;
    FileKind kind = FileKind::kMissing;
    std::string directory;  // the directory's own path while path_ holds a link's target
    while (result == 0 && reader->Next(name, kind)) {
      path_.resize(prefix);
      path_ += name;
      bool link = kind == FileKind::kLinkToExisting;
      if (link) {
        std::string target;
        if (!platform::ResolveSymbolicLink(path_, target)) continue;
        const DirectoryVisitor::LinkUse use = visitor_.Link(path_, target);
        if (use == DirectoryVisitor::LinkUse::kSkip) continue;
        kind = platform::GetFileKind(target);
        if (use == DirectoryVisitor::LinkUse::kTarget) {
          directory.assign(path_, 0, prefix);
          path_ = std::move(target);
        } else {
          link = false;  // walked under its own path, which path_ already holds
        }
      }
      if (kind == FileKind::kFile) {
        result = visitor_.Visit(path_, false);
      } else if (kind == FileKind::kDirectory) {
        if (includeDirectories_) result = visitor_.Visit(path_, true);
        if (recursive && depth > 0 && visitor_.Enter(path_) && Enter()) {
          result = Directory(true, depth - 1);
        }
      }
      if (link) path_ = directory;
    }
    path_.resize(base);
    return result;
  }

  const bool includeDirectories_;
  DirectoryVisitor& visitor_;
  std::string path_;  // the entry at hand, reused for every entry
  std::set<std::pair<unsigned long long, unsigned long long>> visited_;
};

}  // namespace

int WalkDirectory(const std::string& root, bool recursive, unsigned depth, bool includeDirectories,
                  DirectoryVisitor& visitor) {
  return Walk(includeDirectories, visitor).Run(root, recursive, depth);
}

}  // namespace vantu::internal
