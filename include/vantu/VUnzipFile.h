// VUnzipFile: reads a zip archive: lists its entries, tests them and extracts them.
//
// Open reads the central directory (ZIP64 included, and archives with bytes before them such
// as self-extractors). Entries compressed with store (0), deflate (8), bzip2 (12), LZMA (14),
// zstd (93) and xz (95) are read; other methods and encrypted entries are refused. Names are
// read as UTF-8 (old archives' code page 437 names are converted).
//
// Extraction writes each file beside its target under a temporary name and renames it only
// once its size and CRC-32 are right, so a complete file is never replaced by a broken one;
// it keeps modification times and Unix permission bits (never set-id bits) and replaces files
// already there; folders get their times and permission bits once their content is written.
// It never writes outside the target folder, whatever links others plant or swap in it
// meanwhile: every folder below the target is entered by descriptor without following a link,
// so names with "..", absolute names, drive letters, "\" or NUL, symbolic links whose target
// would leave the folder, and paths through any symbolic link (already in the folder or made
// by the archive) are refused. A "./" entry names the target itself. Symbolic links that stay
// inside are made as links. The archive's sizes are not trusted: an entry whose data yields
// more than its declared size fails as soon as it does, entries that share bytes are refused
// at Open, and SetLimits can cap the total output and the number of entries (no limit by
// default); a limit is checked against the declared sizes before anything is written, and
// against the real output while writing.
//
// Errors: VantuFileNotFoundException when the archive is missing; VantuDataException for a
// file that is not a zip archive, a corrupt directory or entry, a CRC or size mismatch, an
// unsafe name, an unsupported method, an encrypted entry or an exceeded limit;
// VantuInvalidArgumentException for an unknown entry name or a call without an open archive;
// file exceptions (VantuFileAccessDeniedException, VantuIOException...) when the target cannot
// be written. Test and ExtractAll go on after an entry fails: with a `failures` list they
// append each failed entry's name and reason there and do not throw for it; without one they
// throw once the others are done, naming every failed entry (as the first failure's class).
// An exceeded limit stops them at once and always throws.
//
// Thread safety: the const operations may run on several threads at once; Open, Close and
// SetLimits need the object to themselves. ExtractAll uses SetThreads threads (by default one
// per processor).
//
//   VUnzipFile zip("/tmp/in.zip");
//   for (const VUnzipFile::Entry& entry : zip.GetEntries()) std::puts(entry.name.c_str());
//   zip.ExtractAll("/tmp/out");
#ifndef VANTU_VUNZIPFILE_H
#define VANTU_VUNZIPFILE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VPath.h>
#include <vantu/VTimestamp.h>

class VANTU_API VUnzipFile : public VBaseObject {
 public:
  // One entry as the central directory describes it.
  struct Entry {
    VString name;                 // UTF8, as stored ("/" separators; directories end in "/")
    uint64_t compressedSize = 0;  // declared
    uint64_t size = 0;            // declared
    uint32_t crc = 0;
    int method = 0;  // the format's number (see VZipMethod in <vantu/VZipFile.h>)
    VTimestamp modified{0};
    bool isDirectory = false;
    bool isSymbolicLink = false;
    bool isEncrypted = false;
  };
  // An entry that could not be tested or extracted, and why.
  struct Failure {
    VString name;
    std::string reason;
  };

  VUnzipFile();
  explicit VUnzipFile(const VPath& archive);
  VUnzipFile(const char* archive, StringEncoding encoding);
  VUnzipFile(const VUnzipFile&) = delete;
  VUnzipFile& operator=(const VUnzipFile&) = delete;
  // Slot 1.
  ~VUnzipFile() override;

  void Open(const VPath& archive);
  void Open(const char* archive, StringEncoding encoding);
  bool IsOpen() const;
  void Close();

  // Caps the bytes Test and the extractions may produce in one call, and the number of entries
  // an archive may have for them to start; 0 means no limit (the default).
  void SetLimits(uint64_t maxTotalBytes, uint64_t maxEntries);
  // Threads ExtractAll and Test work on; 0 means one per processor.
  void SetThreads(unsigned threads);

  // The entries in the order of the central directory.
  const std::vector<Entry>& GetEntries() const;
  size_t GetEntryCount() const;

  // Decompresses every entry and checks its size and CRC-32, writing nothing.
  void Test(std::vector<Failure>* failures = nullptr) const;
  // The content of one entry.
  std::string Read(const VString& name) const;
  // Extracts one entry to its path under `folder` (created as needed).
  void Extract(const VString& name, const VPath& folder) const;
  // Extracts every entry under `folder` (created as needed); directories get their times once
  // their content is written.
  void ExtractAll(const VPath& folder, std::vector<Failure>* failures = nullptr) const;
  void ExtractAll(const char* folder, StringEncoding encoding) const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

#endif  // VANTU_VUNZIPFILE_H
