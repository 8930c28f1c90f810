// Replacing a file whole.
#ifndef VANTU_PLATFORM_ATOMICSAVE_H
#define VANTU_PLATFORM_ATOMICSAVE_H

#include <cstddef>
#include <string>

namespace vantu::platform {

// Writes a new version of a file that is never seen half written, not even after a crash: the
// bytes go to a temporary file beside the target, which is flushed to disk, given the target's
// permission bits (and owner and group, where allowed), renamed over the target, and the
// directory flushed. The file is replaced, not written into: other hard links keep the old
// content. A target that is a symbolic link is replaced at the file the link names. A target
// that exists but may not be written, or is a directory, is refused before anything is written.
// Until Commit succeeds the target is untouched; the temporary file is removed when the object
// goes without a successful Commit.
//
// The temporary file is unnamed (O_TMPFILE) until Commit links it beside the target (through
// /proc/self/fd) just before the rename, so a process killed while writing leaves nothing. Where
// the file system or /proc does not allow that, it is named from the start. Named temporary
// files carry the writer's process id and stay locked while it writes; each new replacement
// removes those of its target whose process is gone.
class FileReplacement {
 public:
  // Throws std::system_error when the temporary file cannot be made.
  explicit FileReplacement(const std::string& path);
  ~FileReplacement();
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;

  // Appends bytes to the temporary file. After a failure later writes are ignored and Commit
  // throws.
  void Write(const void* bytes, size_t count);
  // Discards what was written, to start again.
  void Restart();
  // Throws std::system_error when the first failed write, the flush or the rename failed.
  void Commit();

 private:
  std::string target_;
  std::string temporary_;  // empty while the file is unnamed
  int fd_ = -1;
  int error_ = 0;
};

// For tests: FileReplacement names its temporary file from the start, as on a file system
// without unnamed files.
void UseNamedTemporaryFiles(bool named);

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_ATOMICSAVE_H
