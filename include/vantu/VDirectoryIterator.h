// VDirectoryIterator: walks a directory and hands each entry to a callback.
//
// Iterate visits the entries in the order the file system lists them (no sorting). Files go to
// the callback; directories too when `includeDirectories` is set, and with `recursive` the walk
// descends into them (after their callback) while `depth` allows: depth counts the levels below
// the starting directory that may still be entered, 0 meaning none. A symbolic link whose target
// exists is followed one level and its resolved target stands for the entry: a link to a file
// hands over that file, a link to a directory is entered wherever it leads, also outside the
// starting directory, so walk only trees whose links you trust. Each directory (device and
// inode) is entered at most once per walk: link cycles end, and a directory that several links
// reach is walked once; such an entry is still handed to the callback when directories are
// included. Entry paths carry the file system's bytes (see VPath).
//
// The walk stops at the first non-zero result of a callback or of a nested walk; on a directory
// entry the nested walk's result replaces the callback's. Iterate returns the last result, 0 when
// no callback was made, or -1 when an exception escaped (the callback's own exceptions
// included); it never throws.
//
// The callback is the classic pointer, called with the entry and Iterate's user data, or a
// callable given to the constructor, called with the entry alone (Iterate's user data is then
// unused). The iterator owns a copy of the callable for its lifetime; it runs on the thread that
// calls Iterate. Building an iterator with a callable may throw std::bad_alloc.
//
// Thread safety: no shared state; one walk per object at a time.
#ifndef VANTU_VDIRECTORYITERATOR_H
#define VANTU_VDIRECTORYITERATOR_H

#include <functional>

#include <vantu/Export.h>
#include <vantu/VFile.h>

class VANTU_API VDirectoryIterator {
 public:
  using Callback = int (*)(VFile& entry, void* userData);
  using Function = std::function<int(VFile& entry)>;

  VDirectoryIterator(Callback callback, bool includeDirectories);
  // Calls `function(entry)` for each entry; an empty function visits nothing.
  VDirectoryIterator(Function function, bool includeDirectories);
  // No callback: a walk visits nothing and returns 0.
  explicit VDirectoryIterator(bool includeDirectories);
  virtual ~VDirectoryIterator();

  int Iterate(const VFile& directory, bool recursive, void* userData, unsigned int depth);

 private:
  bool includeDirectories_;
  Callback callback_;
  Function function_;
};

#endif  // VANTU_VDIRECTORYITERATOR_H
