// Work below a folder a caller gave: every step is made relative to a directory descriptor and
// never follows a symbolic link, so no link planted or swapped in meanwhile can lead elsewhere.
// `name` is one component (no "/"). Unless said otherwise, failures throw std::system_error
// carrying the errno value (generic category) and the name.
#ifndef VANTU_PLATFORM_FILESBELOW_H
#define VANTU_PLATFORM_FILESBELOW_H

#include <cstddef>
#include <string>
#include <vector>

namespace vantu::platform {

// Opens a directory the caller gave (links followed), creating it and its parents as needed.
int OpenOrMakeDirectory(const std::string& path);
// Opens the directory reached from `dirFd` through the first `count` of `names`, each opened
// relative to the one before it without following a link; with `create`, a missing one is made
// first (mode 0777 less the umask). A symbolic link or anything else but a directory on the way
// fails (ELOOP, ENOTDIR), and so does a name that is empty, "." or ".." or holds a "/" (EINVAL).
// Returns a new descriptor (of `dirFd`'s own directory when `count` is 0), or -1 with errno set
// and `failed` the index of the name that failed. Throws nothing.
int OpenDirectoryBelow(int dirFd, const std::vector<std::string>& names, size_t count, bool create,
                       size_t& failed) noexcept;
// Creates a new file in `dirFd`; fails if anything, a link included, already has the name.
int CreateNewFileAt(int dirFd, const std::string& name, unsigned mode);
void MakeSymbolicLinkAt(const std::string& target, int dirFd, const std::string& name);
// Renames within one directory, replacing what `to` names (a link is replaced, not followed).
void RenameAt(int dirFd, const std::string& from, const std::string& to);
// Removes a file or a symbolic link in `dirFd`; false when it could not be removed.
bool RemoveAt(int dirFd, const std::string& name) noexcept;
// Sets the modification time of `name` in `dirFd` without following a symbolic link.
void SetTimeAt(int dirFd, const std::string& name, long long modifiedSeconds);

// Removes a file, a symbolic link (not what it points to) or a directory with everything in it.
// Directories are entered through descriptors opened relative to their parent without
// following links, so a sub-directory swapped for a link during the removal removes the link,
// never what it points to. Returns 0, or the errno value of the first failure, with the path it
// concerned in `failedPath`; what was removed before it stays removed.
int RemoveTree(const std::string& path, std::string& failedPath);
// Removes `relative` (names joined by "/") below the directory `root`. Each directory on the way
// is opened relative to the one before it without following a link, so a link there, also one
// swapped in meanwhile, fails (ELOOP, ENOTDIR) instead of leading out; the last name is removed
// as itself (a link, not what it points to), with everything in it when `tree` (as RemoveTree),
// else only when it is not a directory. Returns 0, or the errno value of the first failure with
// the path it concerned in `failedPath`.
int RemoveBelow(const std::string& root, const std::string& relative, bool tree,
                std::string& failedPath);

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_FILESBELOW_H
