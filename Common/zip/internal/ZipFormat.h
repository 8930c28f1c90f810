// The zip file format as libvantu reads it: the central directory, local headers, entry names,
// times and the checks that keep extraction inside its target folder.
#ifndef VANTU_ZIP_INTERNAL_ZIPFORMAT_H
#define VANTU_ZIP_INTERNAL_ZIPFORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vantu::internal {

// General-purpose flag bits.
constexpr uint16_t kZipFlagEncrypted = 0x0001;
constexpr uint16_t kZipFlagLzmaEndMarker = 0x0002;
constexpr uint16_t kZipFlagStrongEncryption = 0x0040;
constexpr uint16_t kZipFlagUtf8 = 0x0800;

// Unix file types in the upper half of the external attributes of Unix-made entries.
constexpr uint32_t kUnixTypeMask = 0170000;
constexpr uint32_t kUnixDirectory = 0040000;
constexpr uint32_t kUnixRegular = 0100000;
constexpr uint32_t kUnixSymbolicLink = 0120000;
constexpr uint16_t kMadeByUnix = 3;

// An open archive file read at offsets; safe for several threads at once.
class ArchiveFile {
 public:
  // Throws std::system_error when the file cannot be opened.
  explicit ArchiveFile(const std::string& path);
  ~ArchiveFile();
  ArchiveFile(const ArchiveFile&) = delete;
  ArchiveFile& operator=(const ArchiveFile&) = delete;

  uint64_t Size() const { return size_; }
  // Exactly `size` bytes at `offset`; VantuDataException("... truncated") when the file ends.
  void Read(void* buffer, size_t size, uint64_t offset) const;
  // Up to `size` bytes.
  size_t ReadSome(void* buffer, size_t size, uint64_t offset) const;

 private:
  int fd_;
  uint64_t size_;
};

// One entry of the central directory.
struct ZipRecord {
  std::string name;  // UTF-8 (converted from code page 437 for old archives)
  uint16_t madeBy = 0;
  uint16_t flags = 0;
  uint16_t method = 0;
  uint32_t crc = 0;
  uint32_t externalAttributes = 0;
  uint64_t compressedSize = 0;
  uint64_t size = 0;
  uint64_t localOffset = 0;   // where the local header starts in the file
  uint64_t recordOffset = 0;  // where this record starts in the file
  long long modifiedSeconds = 0;

  bool IsDirectory() const;
  bool IsSymbolicLink() const;
  bool IsEncrypted() const { return (flags & (kZipFlagEncrypted | kZipFlagStrongEncryption)) != 0; }
  // The Unix permission bits of a Unix-made entry, else 0.
  unsigned UnixMode() const;
};

// Where the central directory lies, and what follows it.
struct ZipDirectoryPlace {
  uint64_t start = 0;  // where the first record starts in the file
  uint64_t size = 0;   // the records' bytes
  uint64_t count = 0;
  uint64_t shift = 0;   // bytes before the archive (a self-extractor's program)
  std::string comment;  // the archive's comment
};

// Reads the central directory (and where it lies, into `place`). Archives with bytes before
// them (self-extractors) are read with their offsets shifted. Throws VantuDataException when the
// file is not a zip archive, when the directory is truncated or inconsistent, or when two
// entries' data overlap.
std::vector<ZipRecord> ReadCentralDirectory(const ArchiveFile& file,
                                            ZipDirectoryPlace* place = nullptr);

// The records that end an archive: the end of central directory record with `comment`, preceded
// by the ZIP64 end record and its locator when the count, size or offset does not fit it.
// `directoryOffset` and `at` (where these records will start) count from the archive's start.
std::string EndRecords(uint64_t count, uint64_t directorySize, uint64_t directoryOffset,
                       uint64_t at, const std::string& comment);

// Where the entry's compressed bytes start, from its local header; checks that they lie within
// the file. Throws VantuDataException.
uint64_t LocateEntryData(const ArchiveFile& file, const ZipRecord& record);

// Splits an entry name into the components of a relative path, dropping empty and "." ones.
// Throws VantuDataException naming the reason for names that would leave the target folder or
// that no file system here can hold: absolute names, ".." components, drive letters, "\"
// separators and NUL bytes. A name of "." components only ("./") yields none: the folder itself.
std::vector<std::string> SafeNameComponents(const std::string& name);
// Whether a symbolic link stored at `linkComponents` with text `target` stays inside the
// folder by its text alone: relative, its ".." components all leading and never climbing above
// the folder. (Extraction never passes through a link, so the name's depth is the real one.)
bool LinkTargetStaysInside(const std::vector<std::string>& linkComponents,
                           const std::string& target);

// MS-DOS date and time (date in the upper 16 bits) of a local time, clamped to 1980-2107.
uint32_t DosTimeFromSeconds(long long epochSeconds);
long long SecondsFromDosTime(uint32_t dosTime);
// The "UT" extra field holding a modification time, as written in both headers: a signed
// 32-bit time (before 1970 too), or an unsigned one from 2038 on, as the MS-DOS time tells.
std::string ExtendedTimestampField(long long epochSeconds);

// Completes a closed archive whose classic end record holds 65,535 entries (the writer's
// most) without a ZIP64 end record: adds the ZIP64 end record and its locator with the real
// number of entries. Throws VantuDataException or VantuIOException.
void AddZip64EndRecords(const std::string& path);

// Called by VZipFile between the steps of an append in place: 1 once the old central directory
// is copied past the end of the file, 2 once the new entries and directory are written over the
// old one, before the file is cut to its new end. Tests stop the process there; null otherwise.
extern void (*g_appendStepHook)(int step);

// Sets the method number of the named entries in a closed archive, in their local headers and
// central records (for methods the archive writer does not know by number).
void PatchEntryMethods(const std::string& path, const std::vector<std::string>& names,
                       uint16_t method);

}  // namespace vantu::internal

#endif  // VANTU_ZIP_INTERNAL_ZIPFORMAT_H
