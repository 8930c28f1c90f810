// VFile: a path together with questions and actions on the file or directory it names.
//
// Queries (Exists, IsFile, IsDirectory, GetSize, CreateDirectory, List, IsShortcut,
// IsAvailable) never throw: on an empty path they answer false or 0 without touching the file
// system, and any failure gives the same answer. CreateDirectories and Remove throw the
// library's file exceptions (VantuFileNotFoundException, VantuFileAccessDeniedException, ...)
// carrying the file system layer's message.
//
// Thread safety: no locks; one object per thread at a time, different objects on different
// threads at once.
#ifndef VANTU_VFILE_H
#define VANTU_VFILE_H

#include <cstdint>
#include <string>
#include <vector>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VPath.h>

class VANTU_API VFile : public VBaseObject {
 public:
  VFile();
  VFile(const VFile& other);
  explicit VFile(const VPath& path);
  explicit VFile(const VString& path);
  VFile(const char* path, StringEncoding encoding);
  explicit VFile(const char* path);
  VFile& operator=(const VFile& other);
  ~VFile() override;

  VPath GetPath() const;
  // The path itself, without the copy GetPath makes.
  const VPath& Path() const noexcept { return path_; }

  bool Exists() const;
  // An existing regular file (a symbolic link counts as what it points to).
  bool IsFile() const;
  bool IsDirectory() const;
  // Size in bytes; 0 when it cannot be read.
  uint64_t GetSize() const;
  // True when the directory was created now; false when it existed or could not be made.
  bool CreateDirectory() const;
  // Creates the directory and its missing parents. Throws the library's file exceptions.
  void CreateDirectories() const;
  // Removes the file, or the directory (with its content when `recursive`). A symbolic link is
  // removed itself, never what it points to; a recursive removal never follows a link, not even
  // one swapped in for a sub-directory while the removal runs. Throws the library's file
  // exceptions, VantuFileNotFoundException when nothing is there; on a failure half way, what
  // was removed stays removed.
  void Remove(bool recursive) const;
  // Appends the names (UTF-8) of the directory's entries; on failure, what was listed.
  void List(std::vector<std::string>& names) const;
  // The path is a symbolic link whose target exists.
  bool IsShortcut() const;
  // Whether the file can be taken now: it opens (for reading, or for reading and writing with
  // `forWrite`), is a regular file, no process holds it open for writing (with `forWrite`: no
  // other process holds it open at all), and with `requireNonEmpty` it is not empty. Writers are
  // seen through file leases; where the file belongs to another user, through /proc for the
  // processes this one may inspect; on file systems without leases (NFS) a writer elsewhere
  // cannot be seen and the file counts as available.
  bool IsAvailable(bool requireNonEmpty, bool forWrite) const;

 private:
  VPath path_;
};

#endif  // VANTU_VFILE_H
