#include <vantu/VDirectoryIterator.h>

#include <Poco/DirectoryIterator.h>

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
  int result = 0;
  const VPath path = directory.GetPath();
  if (path.Length() == 0) return 0;
  Poco::DirectoryIterator it(PathBytes(path));
  const Poco::DirectoryIterator end;
  for (; it != end && result == 0; ++it) {
    VPath entryPath;
    vantu::internal::SetPathBytes(entryPath, it.path().toString(), path.GetEncoding());
    VFile entry(entryPath);
    // One lstat tells links, files and directories apart; links are resolved first.
    vantu::platform::FileKind kind = vantu::platform::GetFileKind(PathBytes(entry.GetPath()));
    if (kind == vantu::platform::FileKind::kLinkToExisting) {
      VPath target = entry.GetPath();
      target.ResolveShortcut();
      entry = VFile(target);
      kind = vantu::platform::GetFileKind(PathBytes(target));
    }
    if (kind == vantu::platform::FileKind::kFile) {
      if (callback_ != nullptr) result = callback_(entry, userData);
    } else if (kind == vantu::platform::FileKind::kDirectory) {
      if (includeDirectories_ && callback_ != nullptr) result = callback_(entry, userData);
      if (recursive && depth > 0) {
        vantu::platform::FileIdentity id;
        const bool known = vantu::platform::GetFileIdentity(PathBytes(entry.GetPath()), id);
        if (!known || chain == nullptr || !chain->Contains(id)) {
          const Chain link{id, chain};
          result = Walk(entry, true, userData, depth - 1, known ? &link : chain);
        }
      }
    }
  }
  return result;
}
