#include <vantu/VDirectoryIterator.h>

#include <string>
#include <vector>

#include "internal/PathText.h"
#include "platform/Platform.h"

using vantu::internal::PathBytes;

// One directory of the current descent chain, linked to its parent's.
struct VDirectoryIterator::Chain {
  vantu::platform::FileIdentity identity;
  const Chain* parent;

  bool Contains(const vantu::platform::FileIdentity& id) const {
    for (const Chain* c = this; c != nullptr; c = c->parent) {
      if (c->identity == id) return true;
    }
    return false;
  }
};

VDirectoryIterator::VDirectoryIterator(Callback callback, bool includeDirectories)
    : includeDirectories_(includeDirectories), callback_(callback) {}

VDirectoryIterator::VDirectoryIterator(bool includeDirectories)
    : includeDirectories_(includeDirectories), callback_(nullptr) {}

VDirectoryIterator::~VDirectoryIterator() = default;

int VDirectoryIterator::Iterate(const VFile& directory, bool recursive, void* userData,
                                unsigned int depth) {
  try {
    vantu::platform::FileIdentity root;
    if (!vantu::platform::GetFileIdentity(PathBytes(directory.GetPath()), root)) {
      return Walk(directory, recursive, userData, depth, nullptr);
    }
    const Chain chain{root, nullptr};
    return Walk(directory, recursive, userData, depth, &chain);
  } catch (...) {
    return -1;
  }
}

int VDirectoryIterator::Walk(const VFile& directory, bool recursive, void* userData,
                             unsigned int depth, const Chain* chain) {
  using vantu::platform::FileKind;
  const VPath path = directory.GetPath();
  if (path.Length() == 0) return 0;
  std::string prefix = PathBytes(path);
  const std::vector<vantu::platform::DirectoryEntry> entries =
      vantu::platform::ListDirectory(prefix);
  if (prefix.empty() || prefix.back() != '/') prefix.push_back('/');
  int result = 0;
  for (auto it = entries.begin(); it != entries.end() && result == 0; ++it) {
    VPath entryPath;
    vantu::internal::SetPathBytes(entryPath, prefix + it->name, path.GetEncoding());
    FileKind kind = it->kind;
    // A link whose target exists stands for its resolved target from here on.
    if (kind == FileKind::kLinkToExisting) {
      entryPath.ResolveShortcut();
      kind = vantu::platform::GetFileKind(PathBytes(entryPath));
    }
    VFile entry(entryPath);
    if (kind == FileKind::kFile) {
      if (callback_ != nullptr) result = callback_(entry, userData);
    } else if (kind == FileKind::kDirectory) {
      if (includeDirectories_ && callback_ != nullptr) result = callback_(entry, userData);
      if (recursive && depth > 0) {
        vantu::platform::FileIdentity id;
        const bool known = vantu::platform::GetFileIdentity(PathBytes(entryPath), id);
        if (!known || chain == nullptr || !chain->Contains(id)) {
          const Chain link{id, chain};
          result = Walk(entry, true, userData, depth - 1, known ? &link : chain);
        }
      }
    }
  }
  return result;
}
