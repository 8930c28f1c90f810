// VZipFile: writes a zip archive: files, memory buffers and whole directory trees.
//
// Open (or the constructor) creates the archive, or with `append` adds to an existing one (an
// archive that does not exist yet is created). A new archive is written beside its final name
// under a temporary name and takes that name only when Close succeeds. Appending gathers the new
// entries in a temporary file beside the archive and Close writes them into the archive itself,
// over its old central directory, then the new directory: until Close has written all of it, the
// archive reads as it was (a process stopped in between leaves the old entries readable, after
// some unused bytes). An archive that cannot be written in place (a symbolic link, which is
// replaced rather than followed, or a file without write permission) is copied and replaced as a
// new one is. So an existing archive is never left half-written. Close writes the central
// directory and throws when any part could not be written; the destructor closes too but cannot
// report a failure (and then leaves the previous file untouched). A VZipFile destroyed by an
// exception thrown after Open discards what it added instead.
//
// Entries are compressed with deflate (level 6) unless SetMethod chooses store or zstd (method
// 93, level 3 by default, read by few other tools); a file of up to 8 MiB that compression
// would not shrink is stored. Names are relative, with "/" separators; directories end in "/". They
// are stored in UTF-8 with the format's UTF-8 flag; file names from the disk that are not valid
// UTF-8 are stored as their bytes, without the flag. Each entry keeps its modification time (MS-DOS
// local time, 1980-2107, and the exact UTC seconds, 1901-2106, in a "UT" extra field) and
// Unix permission bits. ZIP64 records are written as soon as a size, an offset or the number
// of entries needs them. AddDirectory compresses several files at once on SetThreads threads
// (by default one per processor) and writes them in a fixed order (names sorted per folder);
// it leaves out the archive itself and its temporary file when the tree holds them.
//
// Errors: a missing source throws VantuFileNotFoundException (other file errors their own
// member of the family); a bad name (empty, absolute, "..", "\", NUL, a drive letter, a name
// already in the archive), a method other than store/deflate/zstd, a bad level or an operation
// on a closed archive throw VantuInvalidArgumentException; a failed write throws
// VantuIOException. A source that fails while its entry is half written leaves the archive
// unusable: every later call throws and Close discards it.
//
// Thread safety: none; one object per thread.
//
//   VZipFile zip("/tmp/out.zip");
//   zip.AddFile("/etc/hostname");                  // stored as "hostname"
//   zip.AddDirectory("/home/me/photos");           // "photos/", "photos/..." recursively
//   zip.Close();
#ifndef VANTU_VZIPFILE_H
#define VANTU_VZIPFILE_H

#include <cstddef>
#include <functional>
#include <memory>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VPath.h>
#include <vantu/VTimestamp.h>

// Compression methods by their numbers in the zip format. VZipFile writes Store, Deflate and
// Zstd; VUnzipFile reads all of them.
enum class VZipMethod : int {
  Store = 0,
  Deflate = 8,
  BZip2 = 12,
  LZMA = 14,
  Zstd = 93,
  XZ = 95,
};

class VANTU_API VZipFile : public VBaseObject {
 public:
  // Decides which entries of a directory tree are added: called with the entry's name in the
  // archive (UTF8) and whether it is a directory; false leaves it (and a directory's content)
  // out.
  using Filter = std::function<bool(const VString& name, bool isDirectory)>;

  VZipFile();
  explicit VZipFile(const VPath& archive, bool append = false);
  VZipFile(const char* archive, StringEncoding encoding, bool append = false);
  VZipFile(const VZipFile&) = delete;
  VZipFile& operator=(const VZipFile&) = delete;
  // Slot 1: closes the archive if it is open, without reporting failure.
  ~VZipFile() override;

  void Open(const VPath& archive, bool append = false);
  void Open(const char* archive, StringEncoding encoding, bool append = false);
  bool IsOpen() const;
  // Writes the central directory and gives the archive its name. Throws on failure; the
  // archive is closed either way. Does nothing when nothing is open.
  void Close();

  // The method and level for the entries added from now on: Store; Deflate with level 0-9;
  // Zstd with level 1-22; -1 picks the method's default (6 for deflate, 3 for zstd).
  void SetMethod(VZipMethod method, int level = -1);
  // Threads AddDirectory compresses on; 0 means one per processor.
  void SetThreads(unsigned threads);

  // Adds a file under its own file name, or under `nameInArchive`.
  void AddFile(const VPath& file);
  void AddFile(const VPath& file, const VString& nameInArchive);
  void AddFile(const char* file, StringEncoding encoding);
  // Adds `size` bytes from memory as a file entry.
  void AddBuffer(const void* data, size_t size, const VString& nameInArchive,
                 const VTimestamp& modified = VTimestamp());
  // Adds a directory and everything under it. The tree goes under the directory's own name,
  // or under `nameInArchive` ("" puts its content at the top of the archive). Symbolic links
  // are stored as what they point to (a link to a directory already being walked is left out,
  // and so is a link that points nowhere), or left out with `skipLinks`. Other special files
  // (pipes, sockets, devices) are left out.
  void AddDirectory(const VPath& directory);
  void AddDirectory(const VPath& directory, const VString& nameInArchive,
                    const Filter& filter = Filter(), bool skipLinks = false);
  void AddDirectory(const char* directory, StringEncoding encoding);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

#endif  // VANTU_VZIPFILE_H
