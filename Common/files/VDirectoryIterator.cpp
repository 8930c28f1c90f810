#include <vantu/VDirectoryIterator.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "internal/PathText.h"
#include "platform/Platform.h"

using vantu::internal::PathBytes;

// The directories a walk has entered, by device and inode: each is entered once per walk, so
// link cycles end and a directory reached through several links is walked once.
struct VDirectoryIterator::Visited {
  std::set<std::pair<unsigned long long, unsigned long long>> directories;

  // True the first time a directory is seen.
  bool Enter(const vantu::platform::FileIdentity& id) {
    return directories.insert({id.device, id.inode}).second;
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
    Visited visited;
    vantu::platform::FileIdentity root;
    if (vantu::platform::GetFileIdentity(PathBytes(directory.GetPath()), root)) {
      visited.Enter(root);
    }
    return Walk(directory, recursive, userData, depth, visited);
  } catch (...) {
    return -1;
  }
}

int VDirectoryIterator::Walk(const VFile& directory, bool recursive, void* userData,
                             unsigned int depth, Visited& visited) {
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
        if (!vantu::platform::GetFileIdentity(PathBytes(entryPath), id) || visited.Enter(id)) {
          result = Walk(entry, true, userData, depth - 1, visited);
        }
      }
    }
  }
  return result;
}
