// The directory walk behind VDirectoryIterator and the hot folder's scan, on file-system bytes.
#ifndef VANTU_INTERNAL_DIRECTORYWALK_H
#define VANTU_INTERNAL_DIRECTORYWALK_H

#include <string>

namespace vantu::internal {

// Receives what a walk finds.
class DirectoryVisitor {
 public:
  virtual ~DirectoryVisitor() = default;
  // A file, or a directory before its descent. `path` holds the entry's bytes (the directory's
  // path, "/", the name; a link stands for its fully resolved target) and is valid during the
  // call only. A non-zero result ends the walk; a directory's descent result replaces its own.
  virtual int Visit(const std::string& path, bool directory) = 0;
  // Whether to descend into this directory (after its Visit); the walk's own rules apply too.
  virtual bool Enter(const std::string& /*path*/) { return true; }
  // How a symbolic link is walked: as its target (the target's path stands for the entry), under
  // its own path (a directory is entered through the link), or not at all.
  enum class LinkUse { kTarget, kName, kSkip };
  // A symbolic link at `path` whose fully resolved target `target` exists.
  virtual LinkUse Link(const std::string& /*path*/, const std::string& /*target*/) {
    return LinkUse::kTarget;
  }
  // A directory that could not be listed (errno value `error`). True goes on as if it were
  // empty; false ends the walk with std::system_error.
  virtual bool Unreadable(const std::string& path, int error) = 0;
};

// Walks `root`: entries in the order the file system lists them; files always, directories when
// `includeDirectories`; with `recursive` it descends into each directory after visiting it while
// `depth` allows (depth counts the levels below root that may still be entered). A symbolic link
// whose target exists is followed one level, as the visitor's Link says; each directory (device
// and inode) is entered at most once per walk. Other entries (broken links, devices) are skipped.
// Returns the last result, 0 when nothing was visited. Allocates nothing per entry beyond what a
// link's resolution or the visitor needs.
int WalkDirectory(const std::string& root, bool recursive, unsigned depth, bool includeDirectories,
                  DirectoryVisitor& visitor);

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_DIRECTORYWALK_H
