#include <vantu/VZipFile.h>

#include <vantu/VException.h>
#include <vantu/VRandom.h>

#include <minizip/zip.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "internal/Crc32.h"
#include "internal/PathText.h"
#include "internal/TextConversion.h"
#include "platform/Descriptor.h"
#include "platform/FileIO.h"
#include "platform/Files.h"
#include "zip/internal/ZipCodec.h"
#include "zip/internal/ZipErrors.h"
#include "zip/internal/ZipFormat.h"

namespace platform = vantu::platform;
using namespace vantu::internal;

namespace {

// Files up to this size are read and compressed whole, on worker threads; larger ones are
// streamed through the archive in pieces of kPiece bytes.
constexpr uint64_t kInMemoryLimit = 8u << 20;
constexpr size_t kPiece = 1u << 20;
// Entries this large or larger carry ZIP64 sizes in their local header from the start.
constexpr uint64_t kZip64Threshold = 0xF0000000u;
constexpr uint16_t kZipStore = static_cast<uint16_t>(VZipMethod::Store);
constexpr uint16_t kZipDeflate = static_cast<uint16_t>(VZipMethod::Deflate);
constexpr uint16_t kZipZstd = static_cast<uint16_t>(VZipMethod::Zstd);
// Version made by: Unix, format version 6.3.
constexpr uLong kVersionMadeBy = (kMadeByUnix << 8) | 63;

// One entry to write.
struct Item {
  std::string source;  // file-system path; empty for directories and buffers
  std::string name;    // UTF-8 name in the archive; directories end in "/"
  bool directory = false;
  uint64_t size = 0;
  long long modified = 0;
  unsigned mode = 0;
};

// An entry's content, compressed.
struct Packed {
  std::string data;
  uint16_t method = kZipStore;
  uint32_t crc = 0;
  uint64_t size = 0;
};

// The whole file, read in one piece when it has the size it had when listed.
std::string ReadWholeFile(const std::string& path, uint64_t expectedSize) {
  try {
    const platform::Descriptor file(platform::OpenForReadingFd(path));
    std::string data;
    size_t piece = static_cast<size_t>(expectedSize) + 1;
    for (;;) {
      const size_t start = data.size();
      data.resize(start + piece);
      const size_t n = platform::ReadAt(file.get(), &data[start], piece, start);
      data.resize(start + n);
      if (n < piece) return data;
      piece = kPiece;
    }
  } catch (const std::system_error& error) {
    ThrowFileError(error, "Cannot read \"" + path + "\"");
  }
}

// A name for the archive: relative, "/"-separated, without "." parts; directories end in "/".
std::string ArchiveName(const VString& text, bool directory) {
  std::vector<std::string> parts;
  try {
    parts = SafeNameComponents(PathBytes(text));
  } catch (const VantuDataException& error) {
    throw VantuInvalidArgumentException(error.Message());
  }
  if (parts.empty()) throw VantuInvalidArgumentException("Empty name: \"" + PathBytes(text) + "\"");
  std::string name;
  for (const std::string& part : parts) name += part + "/";
  if (!directory) name.pop_back();
  return name;
}

std::string LastComponent(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// An archive being appended to in place, as the archive writer sees it. The bytes before the old
// central directory (`split`) are the archive's own and are only read; from there on everything
// is read from and written to a side file at the same offsets (a sparse file that starts with a
// copy of the old directory), so the archive itself stays as it was until Close copies the new
// part over its old directory.
class AppendView {
 public:
  AppendView(int archive, int side, uint64_t split, uint64_t size)
      : archive_(archive), side_(side), split_(split), size_(size) {}

  int archive() const { return archive_.get(); }
  int side() const { return side_.get(); }

  // The functions through which the archive writer reaches the view.
  zlib_filefunc64_def Functions() {
    zlib_filefunc64_def functions{};
    functions.zopen64_file = [](voidpf opaque, const void*, int) -> voidpf { return opaque; };
    functions.zread_file = [](voidpf, voidpf view, void* buffer, uLong size) -> uLong {
      return static_cast<AppendView*>(view)->Read(buffer, size);
    };
    functions.zwrite_file = [](voidpf, voidpf view, const void* buffer, uLong size) -> uLong {
      return static_cast<AppendView*>(view)->Write(buffer, size);
    };
    functions.ztell64_file = [](voidpf, voidpf view) -> ZPOS64_T {
      return static_cast<AppendView*>(view)->position_;
    };
    functions.zseek64_file = [](voidpf, voidpf view, ZPOS64_T offset, int origin) -> long {
      auto* self = static_cast<AppendView*>(view);
      const uint64_t base = origin == ZLIB_FILEFUNC_SEEK_SET   ? 0
                            : origin == ZLIB_FILEFUNC_SEEK_CUR ? self->position_
                                                               : self->size_;
      self->position_ = base + offset;
      return 0;
    };
    functions.zclose_file = [](voidpf, voidpf) -> int { return 0; };
    functions.zerror_file = [](voidpf, voidpf view) -> int {
      return static_cast<AppendView*>(view)->failed_ ? 1 : 0;
    };
    functions.opaque = this;
    return functions;
  }

 private:
  uLong Read(void* buffer, uLong size) {
    auto* out = static_cast<char*>(buffer);
    uLong done = 0;
    try {
      while (done < size && position_ < size_) {
        const bool own = position_ < split_;
        const uint64_t limit = own ? split_ : size_;
        const auto piece = static_cast<size_t>(std::min<uint64_t>(size - done, limit - position_));
        const size_t n =
            platform::ReadAt(own ? archive_.get() : side_.get(), out + done, piece, position_);
        done += n;
        position_ += n;
        if (n < piece) break;
      }
    } catch (const std::system_error&) {
      failed_ = true;
    }
    return done;
  }

  uLong Write(const void* buffer, uLong size) {
    // The archive's own bytes are never written.
    if (position_ < split_) {
      failed_ = true;
      return 0;
    }
    try {
      platform::WriteAt(side_.get(), buffer, size, position_);
    } catch (const std::system_error&) {
      failed_ = true;
      return 0;
    }
    position_ += size;
    size_ = std::max(size_, position_);
    return size;
  }

  platform::Descriptor archive_;
  platform::Descriptor side_;
  uint64_t split_;
  uint64_t size_;
  uint64_t position_ = 0;
  bool failed_ = false;
};

}  // namespace

class VZipFile::Impl {
 public:
  ~Impl() {
    if (zip_ == nullptr) return;
    // Destroyed by an exception that arose after Open: the archive is unfinished business.
    if (std::uncaught_exceptions() > uncaughtAtOpen_) broken_ = true;
    try {
      Close();
    } catch (...) {
    }
  }

  bool IsOpen() const { return zip_ != nullptr; }

  void Open(const VPath& archive, bool append) {
    if (zip_ != nullptr) Close();
    final_ = PathBytes(archive);
    if (final_.empty()) throw VantuInvalidArgumentException("VZipFile: empty archive path");
    names_.clear();
    zstdNames_.clear();
    broken_ = false;
    wrote_ = false;
    uncaughtAtOpen_ = std::uncaught_exceptions();
    platform::FileStatus status;
    const bool exists = append && platform::GetFileStatus(final_, true, status);
    // An archive is appended to in place; one that cannot be written in place (a symbolic link,
    // which is replaced rather than followed, or a file without write permission) is copied.
    int update = -1;
    if (exists) {
      try {
        update = platform::OpenForUpdateFd(final_);
      } catch (const std::system_error&) {
      }
    }
    platform::Descriptor updateCloser(update);
    const int fd = CreateTemporaryFile();
    try {
      const platform::Descriptor closer(fd);
      // Neither the archive nor its temporary file goes into a tree that holds them.
      own_.clear();
      for (const std::string& path : {temp_, final_}) {
        if (platform::GetFileStatus(path, true, status)) own_.push_back(status.identity);
      }
      if (exists) {
        const ArchiveFile existing(final_);
        for (ZipRecord& record : ReadCentralDirectory(existing, &old_)) names_.insert(record.name);
        // In place, the side file starts with the old directory at its own offsets; otherwise
        // the temporary file starts as a copy of the whole archive.
        const uint64_t start = update >= 0 ? old_.start : 0;
        std::string buffer(kPiece, '\0');
        for (uint64_t offset = start;;) {
          const size_t n = existing.ReadSome(&buffer[0], buffer.size(), offset);
          if (n == 0) break;
          platform::WriteAt(fd, buffer.data(), n, offset);
          offset += n;
        }
        if (update >= 0) {
          oldSize_ = existing.Size();
          // The side file is read back as well as written.
          platform::Descriptor side(platform::OpenForUpdateFd(temp_));
          view_ =
              std::make_unique<AppendView>(updateCloser.release(), side.release(), start, oldSize_);
        }
      }
    } catch (const std::system_error& error) {
      platform::RemovePath(temp_);
      ThrowFileError(error, "Cannot open \"" + final_ + "\"");
    } catch (...) {
      platform::RemovePath(temp_);
      throw;
    }
    if (view_) {
      zlib_filefunc64_def functions = view_->Functions();
      zip_ = zipOpen2_64(temp_.c_str(), APPEND_STATUS_ADDINZIP, nullptr, &functions);
    } else {
      zip_ = zipOpen64(temp_.c_str(), exists ? APPEND_STATUS_ADDINZIP : APPEND_STATUS_CREATE);
    }
    if (zip_ == nullptr) {
      view_.reset();
      platform::RemovePath(temp_);
      throw VantuIOException("Cannot write the archive \"" + final_ + "\"");
    }
  }

  void Close() {
    if (zip_ == nullptr) return;
    const int rc = zipClose(zip_, nullptr);
    zip_ = nullptr;
    try {
      if (broken_) throw VantuIOException("The archive \"" + final_ + "\" was not completed");
      if (rc != ZIP_OK) throw VantuIOException("Cannot write the archive \"" + final_ + "\"");
      // The archive writer's end record counts 65,535 entries at most.
      AddZip64EndRecords(temp_);
      PatchEntryMethods(temp_, zstdNames_, kZipZstd);
      if (view_) {
        if (wrote_) CommitInPlace();
        view_.reset();
        platform::RemovePath(temp_);
      } else {
        platform::RenamePath(temp_, final_);
      }
    } catch (const std::system_error& error) {
      view_.reset();
      platform::RemovePath(temp_);
      ThrowFileError(error, "Cannot write the archive \"" + final_ + "\"");
    } catch (...) {
      view_.reset();
      platform::RemovePath(temp_);
      throw;
    }
  }

  void SetMethod(VZipMethod method, int level) {
    const int maxLevel = method == VZipMethod::Deflate ? 9 : method == VZipMethod::Zstd ? 22 : 0;
    if (method != VZipMethod::Store && method != VZipMethod::Deflate &&
        method != VZipMethod::Zstd) {
      throw VantuInvalidArgumentException("VZipFile writes store, deflate or zstd entries only");
    }
    if (level < -1 || level > maxLevel || (method == VZipMethod::Zstd && level == 0)) {
      throw VantuInvalidArgumentException("Compression level " + std::to_string(level) +
                                          " is out of range");
    }
    method_ = static_cast<uint16_t>(method);
    level_ = level;
  }

  void SetThreads(unsigned threads) { threads_ = threads; }

  void AddFile(const VPath& file, const VString* nameInArchive) {
    CheckUsable();
    Item item;
    item.source = PathBytes(file);
    platform::FileStatus status;
    if (!platform::GetFileStatus(item.source, true, status)) {
      throw VantuFileNotFoundException("No such file: \"" + item.source + "\"");
    }
    if (status.kind != platform::FileKind::kFile) {
      throw VantuInvalidArgumentException("Not a regular file: \"" + item.source + "\"");
    }
    item.name = ArchiveName(
        nameInArchive ? *nameInArchive : VString(LastComponent(item.source), UTF8), false);
    item.size = status.size;
    item.modified = status.modifiedSeconds;
    item.mode = status.mode;
    std::vector<Item> items{std::move(item)};
    AddItems(items);
  }

  void AddBuffer(const void* data, size_t size, const VString& nameInArchive,
                 const VTimestamp& modified) {
    CheckUsable();
    if (data == nullptr && size != 0) throw VantuInvalidArgumentException("Null buffer");
    Item item;
    item.name = ArchiveName(nameInArchive, false);
    item.size = size;
    item.modified = modified.EpochTime();
    item.mode = 0644;
    ClaimName(item.name);
    Packed packed = Pack(static_cast<const char*>(data), size);
    WriteEntry(item, packed);
  }

  void AddDirectory(const VPath& directory, const VString* nameInArchive, const Filter& filter,
                    bool skipLinks) {
    CheckUsable();
    const std::string root = PathBytes(directory);
    platform::FileStatus status;
    if (!platform::GetFileStatus(root, true, status)) {
      throw VantuFileNotFoundException("No such directory: \"" + root + "\"");
    }
    if (status.kind != platform::FileKind::kDirectory) {
      throw VantuInvalidArgumentException("Not a directory: \"" + root + "\"");
    }
    std::string prefix;
    if (nameInArchive == nullptr) {
      std::string own;
      try {
        own = LastComponent(platform::RealPath(root));
      } catch (const std::system_error& error) {
        ThrowFileError(error, "Cannot read \"" + root + "\"");
      }
      if (own != "/") prefix = ArchiveName(VString(own, UTF8), true);
    } else if (nameInArchive->Length() != 0) {
      prefix = ArchiveName(*nameInArchive, true);
    }
    std::vector<Item> items;
    if (!prefix.empty() && (!filter || filter(VString(prefix, UTF8), true))) {
      items.push_back(DirectoryItem(prefix, status));
    }
    std::vector<platform::FileIdentity> chain{status.identity};
    Walk(root, prefix, filter, skipLinks, chain, items);
    AddItems(items);
  }

 private:
  // Puts the side file's new part (entries, directory and end records, from the old directory's
  // offset on) into the archive. Every step leaves an archive that reads completely: first a copy
  // of the old directory with its own end records goes past both the old and the new end, so the
  // old entries stay listed while the new part is copied over the old directory; cutting the file
  // at the new end then makes the new directory the last one.
  void CommitInPlace() {
    const int archive = view_->archive();
    const uint64_t newSize = platform::GetFileSize(view_->side());
    const uint64_t at = std::max(oldSize_, newSize);
    std::string tail(static_cast<size_t>(old_.size), '\0');
    if (platform::ReadAt(archive, &tail[0], tail.size(), old_.start) != tail.size()) {
      throw VantuIOException("The archive \"" + final_ + "\" changed while it was appended to");
    }
    tail += EndRecords(old_.count, old_.size, at - old_.shift, at + old_.size - old_.shift,
                       old_.comment);
    try {
      platform::WriteAt(archive, tail.data(), tail.size(), at);
    } catch (...) {
      try {
        platform::SetFileSize(archive, oldSize_);
      } catch (...) {
      }
      throw;
    }
    if (g_appendStepHook) g_appendStepHook(1);
    std::string buffer(kPiece, '\0');
    for (uint64_t offset = old_.start; offset < newSize;) {
      const size_t n = platform::ReadAt(
          view_->side(), &buffer[0],
          static_cast<size_t>(std::min<uint64_t>(kPiece, newSize - offset)), offset);
      if (n == 0) throw VantuIOException("Cannot read the new part of \"" + final_ + "\"");
      platform::WriteAt(archive, buffer.data(), n, offset);
      offset += n;
    }
    if (g_appendStepHook) g_appendStepHook(2);
    platform::SetFileSize(archive, newSize);
  }

  void CheckUsable() const {
    if (zip_ == nullptr) throw VantuInvalidArgumentException("VZipFile: no archive is open");
    if (broken_)
      throw VantuIOException("The archive \"" + final_ + "\" is unusable after a failure");
  }

  void ClaimName(const std::string& name) {
    if (!names_.insert(name).second) {
      throw VantuInvalidArgumentException("The archive already holds \"" + name + "\"");
    }
  }

  static Item DirectoryItem(const std::string& name, const platform::FileStatus& status) {
    Item item;
    item.name = name;
    item.directory = true;
    item.modified = status.modifiedSeconds;
    item.mode = status.mode;
    return item;
  }

  // Creates the file the archive is written into, beside its final name.
  int CreateTemporaryFile() {
    VRandom random;
    for (int attempt = 0;; ++attempt) {
      char suffix[24];
      std::snprintf(suffix, sizeof(suffix), ".vantu-%08x", random.Next());
      temp_ = final_ + suffix;
      try {
        return platform::CreateNewFile(temp_, 0644);
      } catch (const std::system_error& error) {
        if (error.code() != std::errc::file_exists || attempt == 16) {
          ThrowFileError(error, "Cannot create the archive \"" + final_ + "\"");
        }
      }
    }
  }

  // Collects a directory's entries, sorted by name, depth first.
  void Walk(const std::string& directory, const std::string& prefix, const Filter& filter,
            bool skipLinks, std::vector<platform::FileIdentity>& chain, std::vector<Item>& items) {
    std::vector<platform::DirectoryEntry> entries;
    try {
      entries = platform::ListDirectory(directory);
    } catch (const std::system_error& error) {
      ThrowFileError(error, "Cannot list \"" + directory + "\"");
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    for (const platform::DirectoryEntry& entry : entries) {
      const std::string path = directory + "/" + entry.name;
      platform::FileStatus status;
      if (!platform::GetFileStatus(path, false, status)) continue;  // gone meanwhile
      if (status.isLink && (skipLinks || !platform::GetFileStatus(path, true, status))) continue;
      if (entry.name.find('\\') != std::string::npos) {
        throw VantuInvalidArgumentException("A name with \"\\\" cannot be archived: \"" + path +
                                            "\"");
      }
      if (status.kind == platform::FileKind::kDirectory) {
        if (std::find(chain.begin(), chain.end(), status.identity) != chain.end()) continue;
        const std::string name = prefix + entry.name + "/";
        if (filter && !filter(VString(name, UTF8), true)) continue;
        items.push_back(DirectoryItem(name, status));
        chain.push_back(status.identity);
        Walk(path, name, filter, skipLinks, chain, items);
        chain.pop_back();
      } else if (status.kind == platform::FileKind::kFile &&
                 std::find(own_.begin(), own_.end(), status.identity) == own_.end()) {
        Item item;
        item.source = path;
        item.name = prefix + entry.name;
        if (filter && !filter(VString(item.name, UTF8), false)) continue;
        item.size = status.size;
        item.modified = status.modifiedSeconds;
        item.mode = status.mode;
        items.push_back(std::move(item));
      }
    }
  }

  // Compresses a whole buffer; keeps it stored when compression would not make it smaller.
  Packed Pack(const char* data, size_t size) const {
    Packed packed;
    packed.crc = Crc32(0, data, size);
    packed.size = size;
    packed.method = method_;
    if (method_ != kZipStore) {
      ZipEncoder::Create(method_, level_)->Encode(data, size, true, packed.data);
      if (packed.data.size() >= size) packed.method = kZipStore;
    }
    if (packed.method == kZipStore) packed.data.assign(data, size);
    return packed;
  }

  void BeginEntry(const Item& item, uint16_t method, bool zip64) {
    zip_fileinfo info{};
    info.dosDate = DosTimeFromSeconds(item.modified);
    const uint32_t type = item.directory ? kUnixDirectory : kUnixRegular;
    info.external_fa = (type | (item.mode & 07777)) << 16 | (item.directory ? 0x10 : 0);
    const std::string extra = ExtendedTimestampField(item.modified);
    const int rc = zipOpenNewFileInZip4_64(
        zip_, item.name.c_str(), &info, extra.data(), static_cast<uInt>(extra.size()), extra.data(),
        static_cast<uInt>(extra.size()), nullptr, method == kZipZstd ? int{kZipStore} : int{method},
        level_ < 0 ? Z_DEFAULT_COMPRESSION : level_, 1, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY, nullptr,
        0, kVersionMadeBy, IsValidUtf8(item.name) ? kZipFlagUtf8 : 0, zip64 ? 1 : 0);
    if (rc != ZIP_OK) Fail(item.name);
    wrote_ = true;
    if (method == kZipZstd) zstdNames_.push_back(item.name);
  }

  void WriteData(const Item& item, const char* data, size_t size) {
    while (size > 0) {
      const auto piece = static_cast<unsigned>(std::min<size_t>(size, 1u << 30));
      if (zipWriteInFileInZip(zip_, data, piece) != ZIP_OK) Fail(item.name);
      data += piece;
      size -= piece;
    }
  }

  void EndEntry(const Item& item, uint64_t size, uint32_t crc) {
    if (zipCloseFileInZipRaw64(zip_, size, crc) != ZIP_OK) Fail(item.name);
  }

  [[noreturn]] void Fail(const std::string& name) {
    broken_ = true;
    throw VantuIOException("Cannot write \"" + name + "\" into the archive \"" + final_ + "\"");
  }

  void WriteEntry(const Item& item, const Packed& packed) {
    BeginEntry(item, packed.method,
               std::max<uint64_t>(packed.size, packed.data.size()) >= kZip64Threshold);
    WriteData(item, packed.data.data(), packed.data.size());
    EndEntry(item, packed.size, packed.crc);
  }

  // Streams a large file through the archive piece by piece.
  void StreamFile(const Item& item) {
    int fd;
    try {
      fd = platform::OpenForReadingFd(item.source);
    } catch (const std::system_error& error) {
      ThrowFileError(error, "Cannot read \"" + item.source + "\"");
    }
    const platform::Descriptor closer(fd);
    const bool zip64 = item.size >= kZip64Threshold;
    BeginEntry(item, method_, zip64);
    auto encoder = ZipEncoder::Create(method_, level_);
    std::string in(kPiece, '\0');
    std::string out;
    uint32_t crc = 0;
    uint64_t size = 0;
    for (;;) {
      size_t n;
      try {
        n = platform::ReadAt(fd, &in[0], kPiece, size);
      } catch (const std::system_error& error) {
        broken_ = true;
        ThrowFileError(error, "Cannot read \"" + item.source + "\"");
      }
      crc = Crc32(crc, in.data(), n);
      size += n;
      out.clear();
      encoder->Encode(in.data(), n, n == 0, out);
      WriteData(item, out.data(), out.size());
      if (n == 0) break;
    }
    if (!zip64 && size >= 0xFFFFFFFFu) {
      broken_ = true;
      throw VantuIOException("\"" + item.source + "\" grew past 4 GiB while it was archived");
    }
    EndEntry(item, size, crc);
  }

  static bool InMemory(const Item& item) { return !item.directory && item.size <= kInMemoryLimit; }

  void WriteItem(const Item& item, const Packed* packed) {
    if (item.directory) {
      WriteEntry(item, Packed());
    } else if (packed != nullptr) {
      WriteEntry(item, *packed);
    } else {
      StreamFile(item);
    }
  }

  // Writes the items in order. Small files are read and compressed ahead on worker threads,
  // at most a window of entries ahead of the writer.
  void AddItems(std::vector<Item>& items) {
    std::set<std::string> added;
    for (const Item& item : items) {
      if (names_.count(item.name) != 0 || !added.insert(item.name).second) ClaimName(item.name);
    }
    names_.insert(added.begin(), added.end());
    size_t small = 0;
    for (const Item& item : items) small += InMemory(item) ? 1 : 0;
    unsigned workers = threads_ ? threads_ : std::max(1u, std::thread::hardware_concurrency());
    workers = static_cast<unsigned>(std::min<size_t>(workers, small));
    if (workers <= 1) {
      for (const Item& item : items) {
        if (InMemory(item)) {
          const std::string data = ReadWholeFile(item.source, item.size);
          const Packed packed = Pack(data.data(), data.size());
          WriteItem(item, &packed);
        } else {
          WriteItem(item, nullptr);
        }
      }
      return;
    }

    struct Job {
      Packed packed;
      std::exception_ptr error;
      bool done = false;
    };
    std::vector<Job> jobs(items.size());
    std::mutex mutex;
    std::condition_variable changed;
    size_t next = 0;
    size_t written = 0;
    bool stop = false;
    const size_t window = 4 * workers;
    auto work = [&] {
      for (;;) {
        size_t i;
        {
          std::unique_lock<std::mutex> lock(mutex);
          changed.wait(lock,
                       [&] { return stop || next >= items.size() || next < written + window; });
          if (stop || next >= items.size()) return;
          i = next++;
        }
        Job& job = jobs[i];
        if (InMemory(items[i])) {
          try {
            const std::string data = ReadWholeFile(items[i].source, items[i].size);
            job.packed = Pack(data.data(), data.size());
          } catch (...) {
            job.error = std::current_exception();
          }
        }
        std::lock_guard<std::mutex> lock(mutex);
        job.done = true;
        changed.notify_all();
      }
    };
    std::vector<std::thread> threads;
    auto finish = [&] {
      {
        std::lock_guard<std::mutex> lock(mutex);
        stop = true;
        changed.notify_all();
      }
      for (std::thread& thread : threads) thread.join();
    };
    try {
      for (unsigned t = 0; t < workers; ++t) threads.emplace_back(work);
      for (size_t i = 0; i < items.size(); ++i) {
        {
          std::unique_lock<std::mutex> lock(mutex);
          changed.wait(lock, [&] { return jobs[i].done; });
        }
        if (jobs[i].error) std::rethrow_exception(jobs[i].error);
        WriteItem(items[i], InMemory(items[i]) ? &jobs[i].packed : nullptr);
        jobs[i].packed = Packed();
        std::lock_guard<std::mutex> lock(mutex);
        written = i + 1;
        changed.notify_all();
      }
    } catch (...) {
      finish();
      // Names of entries never written may be added again later.
      std::lock_guard<std::mutex> lock(mutex);
      for (size_t i = written; i < items.size(); ++i) names_.erase(items[i].name);
      throw;
    }
    finish();
  }

  zipFile zip_ = nullptr;
  std::string final_;
  std::string temp_;
  bool broken_ = false;
  bool wrote_ = false;                       // an entry was begun since Open
  std::unique_ptr<AppendView> view_;         // appending in place
  ZipDirectoryPlace old_;                    // the existing archive's directory
  uint64_t oldSize_ = 0;                     // and its size
  int uncaughtAtOpen_ = 0;                   // exceptions in flight when Open ran
  std::vector<platform::FileIdentity> own_;  // the archive's files
  uint16_t method_ = kZipDeflate;
  int level_ = -1;
  unsigned threads_ = 0;
  std::set<std::string> names_;
  std::vector<std::string> zstdNames_;
};

VZipFile::VZipFile() : impl_(std::make_unique<Impl>()) {}
VZipFile::VZipFile(const VPath& archive, bool append) : VZipFile() { Open(archive, append); }
VZipFile::VZipFile(const char* archive, StringEncoding encoding, bool append) : VZipFile() {
  Open(archive, encoding, append);
}
VZipFile::~VZipFile() = default;

void VZipFile::Open(const VPath& archive, bool append) { impl_->Open(archive, append); }
void VZipFile::Open(const char* archive, StringEncoding encoding, bool append) {
  impl_->Open(VPath(archive, encoding), append);
}
bool VZipFile::IsOpen() const { return impl_->IsOpen(); }
void VZipFile::Close() { impl_->Close(); }
void VZipFile::SetMethod(VZipMethod method, int level) { impl_->SetMethod(method, level); }
void VZipFile::SetThreads(unsigned threads) { impl_->SetThreads(threads); }
void VZipFile::AddFile(const VPath& file) { impl_->AddFile(file, nullptr); }
void VZipFile::AddFile(const VPath& file, const VString& nameInArchive) {
  impl_->AddFile(file, &nameInArchive);
}
void VZipFile::AddFile(const char* file, StringEncoding encoding) {
  impl_->AddFile(VPath(file, encoding), nullptr);
}
void VZipFile::AddBuffer(const void* data, size_t size, const VString& nameInArchive,
                         const VTimestamp& modified) {
  impl_->AddBuffer(data, size, nameInArchive, modified);
}
void VZipFile::AddDirectory(const VPath& directory) {
  impl_->AddDirectory(directory, nullptr, Filter(), false);
}
void VZipFile::AddDirectory(const VPath& directory, const VString& nameInArchive,
                            const Filter& filter, bool skipLinks) {
  impl_->AddDirectory(directory, &nameInArchive, filter, skipLinks);
}
void VZipFile::AddDirectory(const char* directory, StringEncoding encoding) {
  impl_->AddDirectory(VPath(directory, encoding), nullptr, Filter(), false);
}
