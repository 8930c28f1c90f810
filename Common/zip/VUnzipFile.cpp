#include <vantu/VUnzipFile.h>

#include <vantu/VException.h>
#include <vantu/VRandom.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "internal/Crc32.h"
#include "internal/PathText.h"
#include "platform/Descriptor.h"
#include "platform/FileIO.h"
#include "platform/FilesBelow.h"
#include "zip/internal/ZipCodec.h"
#include "zip/internal/ZipErrors.h"
#include "zip/internal/ZipFormat.h"

namespace platform = vantu::platform;
using namespace vantu::internal;

namespace {

constexpr size_t kPiece = 256u << 10;
// Longest symbolic-link target read from an archive.
constexpr uint64_t kMaxLinkTarget = 4096;

// A limit set with SetLimits was reached: stops the whole operation.
class LimitExceeded : public VantuDataException {
 public:
  using VantuDataException::VantuDataException;
};

// The output allowed to one Test or extraction call, shared by its threads.
struct Budget {
  uint64_t max = 0;
  std::atomic<uint64_t> used{0};
  std::atomic<bool> stopped{false};

  void Spend(uint64_t bytes) {
    if (max != 0 && used.fetch_add(bytes) + bytes > max) {
      throw LimitExceeded("The archive would produce more than the limit of " +
                          std::to_string(max) + " bytes");
    }
  }
};

// Rethrows the exception in `error` as the same member of the family with another message.
[[noreturn]] void ThrowLike(const std::exception_ptr& error, const std::string& message) {
  try {
    std::rethrow_exception(error);
  } catch (const VantuDataException&) {
    throw VantuDataException(message);
  } catch (const VantuFileNotFoundException&) {
    throw VantuFileNotFoundException(message);
  } catch (const VantuFileAccessDeniedException&) {
    throw VantuFileAccessDeniedException(message);
  } catch (const VantuFileExistsException&) {
    throw VantuFileExistsException(message);
  } catch (const VantuFileReadOnlyException&) {
    throw VantuFileReadOnlyException(message);
  } catch (const VantuIOException&) {
    throw VantuIOException(message);
  } catch (const VantuInvalidArgumentException&) {
    throw VantuInvalidArgumentException(message);
  } catch (...) {
    throw VantuRuntimeException(message);
  }
}

std::string ReasonOf(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const VException& e) {
    return e.Message();
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "unknown error";
  }
}

std::string Join(const std::vector<std::string>& parts, size_t count) {
  std::string path;
  for (size_t i = 0; i < count; ++i) path += "/" + parts[i];
  return path;
}

// Makes something under a fresh hidden name beside `name` in the folder: `make(name)` throws
// std::system_error, and is tried again with another name when the name is taken.
template <typename Make>
std::string MakeUnique(const std::string& name, Make make) {
  thread_local VRandom random;
  for (int attempt = 0;; ++attempt) {
    char suffix[24];
    std::snprintf(suffix, sizeof(suffix), ".vantu-%08x", random.Next());
    const std::string temporary = "." + name.substr(0, 200) + suffix;
    try {
      make(temporary);
      return temporary;
    } catch (const std::system_error& error) {
      if (error.code() != std::errc::file_exists || attempt == 16) throw;
    }
  }
}

// A new file under a temporary name in a folder, removed unless committed.
class TemporaryFile {
 public:
  TemporaryFile(int folder, const std::string& name) : folder_(folder) {
    name_ = MakeUnique(name, [this](const std::string& temporary) {
      fd_ = platform::CreateNewFileAt(folder_, temporary, 0666);
    });
  }
  ~TemporaryFile() {
    if (fd_ >= 0) platform::CloseFileQuietly(fd_);
    if (!name_.empty()) platform::RemoveAt(folder_, name_);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  int fd() const { return fd_; }
  // Closes the file (reporting a failed close) and gives it the name `target` in its folder.
  void Commit(const std::string& target) {
    const int fd = fd_;
    fd_ = -1;
    platform::CloseFile(fd);
    platform::RenameAt(folder_, name_, target);
    name_.clear();
  }

 private:
  int folder_;
  std::string name_;
  int fd_ = -1;
};

// The folder being extracted into, held open: every folder below it is reached from its
// descriptor one component at a time without following links, so a link already there, made
// by the archive or swapped in by someone else meanwhile never leads out of it.
class Target {
 public:
  explicit Target(const std::string& folder) : root_(Open(folder)) {}

  // Opens (with `create`, making what is missing) the folder of the first `count` components.
  // Throws VantuDataException when one of them is a link or not a folder.
  // Returns a descriptor the caller closes.
  int Folder(const std::vector<std::string>& parts, size_t count, bool create = true) const {
    size_t failed = 0;
    const int fd = platform::OpenDirectoryBelow(root_.get(), parts, count, create, failed);
    if (fd >= 0) return fd;
    const int error = errno;
    if (count > 0 && (error == ELOOP || error == ENOTDIR)) {
      throw VantuDataException("\"" + Join(parts, failed + 1).substr(1) +
                               "\" is a link or not a folder");
    }
    throw std::system_error(error, std::generic_category(), count == 0 ? "." : parts[failed]);
  }

 private:
  static int Open(const std::string& folder) {
    try {
      return platform::OpenOrMakeDirectory(folder);
    } catch (const std::system_error& error) {
      ThrowFileError(error, "Cannot create the folder \"" + folder + "\"");
    }
  }

  platform::Descriptor root_;
};

}  // namespace

class VUnzipFile::Impl {
 public:
  void Open(const VPath& archive) {
    Close();
    path_ = PathBytes(archive);
    try {
      file_ = std::make_unique<ArchiveFile>(path_);
    } catch (const std::system_error& error) {
      ThrowFileError(error, "Cannot open the archive \"" + path_ + "\"");
    }
    try {
      records_ = ReadCentralDirectory(*file_);
    } catch (const VantuDataException& error) {
      file_.reset();
      throw VantuDataException("\"" + path_ + "\": " + error.Message());
    } catch (...) {
      file_.reset();
      throw;
    }
    for (const ZipRecord& record : records_) {
      Entry entry;
      entry.name = VString(record.name, UTF8);
      entry.compressedSize = record.compressedSize;
      entry.size = record.size;
      entry.crc = record.crc;
      entry.method = record.method;
      entry.modified = VTimestamp(record.modifiedSeconds * 1000000);
      entry.isDirectory = record.IsDirectory();
      entry.isSymbolicLink = record.IsSymbolicLink();
      entry.isEncrypted = record.IsEncrypted();
      entries_.push_back(std::move(entry));
    }
  }

  void Close() {
    file_.reset();
    records_.clear();
    entries_.clear();
  }

  bool IsOpen() const { return file_ != nullptr; }
  const std::vector<Entry>& Entries() const { return entries_; }

  void SetLimits(uint64_t maxBytes, uint64_t maxEntries) {
    maxBytes_ = maxBytes;
    maxEntries_ = maxEntries;
  }
  void SetThreads(unsigned threads) { threads_ = threads; }

  void Test(std::vector<Failure>* failures) const {
    Budget budget;
    Check(budget);
    std::vector<size_t> all(records_.size());
    for (size_t i = 0; i < all.size(); ++i) all[i] = i;
    Failed failed;
    Run(all, budget, threads_, failed, [&](size_t i) {
      if (!records_[i].IsDirectory())
        Decode(records_[i], budget, [](const unsigned char*, size_t) {});
    });
    Report("test", failed, failures);
  }

  std::string Read(const VString& name) const {
    const ZipRecord& record = Find(name);
    Budget budget;
    budget.max = maxBytes_;
    std::string content;
    try {
      Decode(record, budget, [&](const unsigned char* data, size_t size) {
        content.append(reinterpret_cast<const char*>(data), size);
      });
    } catch (...) {
      ThrowLike(std::current_exception(),
                "\"" + record.name + "\": " + ReasonOf(std::current_exception()));
    }
    return content;
  }

  void Extract(const VString& name, const VPath& folder) const {
    const ZipRecord& record = Find(name);
    Budget budget;
    budget.max = maxBytes_;
    Target target(PathBytes(folder));
    try {
      ExtractOne(record, target, budget, true);
    } catch (...) {
      ThrowLike(std::current_exception(),
                "\"" + record.name + "\": " + ReasonOf(std::current_exception()));
    }
  }

  void ExtractAll(const VPath& folder, std::vector<Failure>* failures) const {
    Budget budget;
    Check(budget);
    Target target(PathBytes(folder));
    // Folders first, in order, then files and links on several threads, then the folders'
    // times and permission bits (writing into a folder changes its time, and a folder may
    // not allow writing).
    std::vector<size_t> folders;
    std::vector<size_t> files;
    for (size_t i = 0; i < records_.size(); ++i) {
      (records_[i].IsDirectory() ? folders : files).push_back(i);
    }
    Failed failed;
    auto extract = [&](size_t i) { ExtractOne(records_[i], target, budget, false); };
    Run(folders, budget, 1, failed, extract);
    Run(files, budget, threads_, failed, extract);
    for (auto it = folders.rbegin(); it != folders.rend(); ++it) {
      const ZipRecord& record = records_[*it];
      try {
        const std::vector<std::string> parts = SafeNameComponents(record.name);
        const platform::Descriptor folder(target.Folder(parts, parts.size(), false));
        platform::SetFileTimeAndMode(folder.get(), record.modifiedSeconds, record.UnixMode());
      } catch (...) {
        // Failed folders are reported already; a folder's time is worth no failure.
      }
    }
    Report("extract", failed, failures);
  }

 private:
  // Entries that failed, by index, with what they threw.
  using Failed = std::vector<std::pair<size_t, std::exception_ptr>>;

  const ZipRecord& Find(const VString& name) const {
    if (!file_) throw VantuInvalidArgumentException("VUnzipFile: no archive is open");
    const std::string wanted = PathBytes(name);
    for (size_t i = 0; i < records_.size(); ++i) {
      if (entries_[i].name.GetString() == wanted || records_[i].name == wanted) return records_[i];
    }
    throw VantuInvalidArgumentException("No entry \"" + wanted + "\" in \"" + path_ + "\"");
  }

  // Refuses before any work an archive over the entry limit or declaring more than the byte
  // limit.
  void Check(Budget& budget) const {
    if (!file_) throw VantuInvalidArgumentException("VUnzipFile: no archive is open");
    budget.max = maxBytes_;
    if (maxEntries_ != 0 && records_.size() > maxEntries_) {
      throw VantuDataException("\"" + path_ + "\" has " + std::to_string(records_.size()) +
                               " entries, more than the limit of " + std::to_string(maxEntries_));
    }
    uint64_t declared = 0;
    for (const ZipRecord& record : records_) {
      declared += std::min<uint64_t>(record.size, UINT64_MAX - declared);
    }
    if (maxBytes_ != 0 && declared > maxBytes_) {
      throw VantuDataException("\"" + path_ + "\" declares " + std::to_string(declared) +
                               " bytes, more than the limit of " + std::to_string(maxBytes_));
    }
  }

  // Runs `work` on the given entries on up to `threads` threads (0: one per processor). A
  // failed entry is recorded and the others go on; an exceeded limit stops everything and is
  // thrown.
  void Run(const std::vector<size_t>& indices, Budget& budget, unsigned threads, Failed& failed,
           const std::function<void(size_t)>& work) const {
    std::mutex mutex;
    std::exception_ptr limit;
    std::atomic<size_t> next{0};
    auto loop = [&] {
      for (;;) {
        const size_t k = next.fetch_add(1);
        if (k >= indices.size() || budget.stopped) return;
        try {
          work(indices[k]);
        } catch (const LimitExceeded&) {
          std::lock_guard<std::mutex> lock(mutex);
          budget.stopped = true;
          if (!limit) limit = std::current_exception();
        } catch (...) {
          std::lock_guard<std::mutex> lock(mutex);
          failed.emplace_back(indices[k], std::current_exception());
        }
      }
    };
    unsigned count = threads ? threads : std::max(1u, std::thread::hardware_concurrency());
    count = static_cast<unsigned>(std::min<size_t>(count, indices.size()));
    std::vector<std::thread> pool;
    for (unsigned t = 1; t < count; ++t) pool.emplace_back(loop);
    loop();
    for (std::thread& thread : pool) thread.join();
    if (limit) throw VantuDataException("\"" + path_ + "\": " + ReasonOf(limit));
  }

  // Hands the failures back, or throws one exception naming them all.
  void Report(const char* verb, Failed& failed, std::vector<Failure>* failures) const {
    if (failed.empty()) return;
    std::sort(failed.begin(), failed.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string message = "Cannot " + std::string(verb) + " " + std::to_string(failed.size()) +
                          " of " + std::to_string(records_.size()) + " entries of \"" + path_ +
                          "\":";
    for (const auto& [index, error] : failed) {
      const std::string reason = ReasonOf(error);
      if (failures) failures->push_back({entries_[index].name, reason});
      message += " \"" + records_[index].name + "\": " + reason + ";";
    }
    message.pop_back();
    if (!failures) ThrowLike(failed.front().second, message);
  }

  // Feeds the entry's content to `sink` piece by piece and checks its size and CRC-32.
  template <typename Sink>
  void Decode(const ZipRecord& record, Budget& budget, Sink sink) const {
    if (record.IsEncrypted()) throw VantuDataException("encrypted entries are not supported");
    auto decoder =
        ZipDecoder::Create(record.method, record.flags & kZipFlagLzmaEndMarker, record.size);
    if (!decoder) {
      throw VantuDataException("compression method " + std::to_string(record.method) +
                               " is not supported");
    }
    uint64_t offset = LocateEntryData(*file_, record);
    uint64_t remaining = record.compressedSize;
    // Buffers no larger than the entry needs (one byte more shows output beyond its size),
    // left uninitialised: small entries are common.
    const auto inSize = static_cast<size_t>(std::clamp<uint64_t>(remaining, 1, kPiece));
    const auto outSize = static_cast<size_t>(std::min<uint64_t>(record.size, kPiece - 1) + 1);
    const std::unique_ptr<unsigned char[]> in(new unsigned char[inSize]);
    const std::unique_ptr<unsigned char[]> out(new unsigned char[outSize]);
    size_t inStart = 0;
    size_t inEnd = 0;
    uint64_t produced = 0;
    uint32_t crc = 0;
    for (;;) {
      if (inStart == inEnd && remaining > 0) {
        inEnd = static_cast<size_t>(std::min<uint64_t>(inSize, remaining));
        file_->Read(in.get(), inEnd, offset);
        offset += inEnd;
        remaining -= inEnd;
        inStart = 0;
      }
      const bool last = remaining == 0;
      size_t used = 0;
      size_t made = 0;
      const bool ended = decoder->Decode(in.get() + inStart, inEnd - inStart, used, out.get(),
                                         outSize, made, last);
      inStart += used;
      if (made > 0) {
        if (made > record.size - produced) {
          throw VantuDataException("the data yields more than the declared " +
                                   std::to_string(record.size) + " bytes");
        }
        budget.Spend(made);
        produced += made;
        crc = Crc32(crc, out.get(), made);
        sink(out.get(), made);
      }
      if (ended) break;
      if (used == 0 && made == 0) {
        if (last && inStart == inEnd) throw VantuDataException("the compressed data is truncated");
        throw VantuDataException("the compressed data is corrupt");
      }
    }
    if (produced != record.size) {
      throw VantuDataException("the data yields " + std::to_string(produced) +
                               " bytes, not the declared " + std::to_string(record.size));
    }
    if (crc != record.crc) throw VantuDataException("CRC-32 mismatch");
  }

  // Extracts one entry. A folder gets its time and permission bits at once with
  // `folderAttributes`; ExtractAll gives them once the folders' content is written.
  void ExtractOne(const ZipRecord& record, const Target& target, Budget& budget,
                  bool folderAttributes) const {
    const std::vector<std::string> parts = SafeNameComponents(record.name);
    try {
      if (record.IsDirectory()) {
        const platform::Descriptor folder(target.Folder(parts, parts.size()));
        if (folderAttributes) {
          platform::SetFileTimeAndMode(folder.get(), record.modifiedSeconds, record.UnixMode());
        }
        return;
      }
      if (parts.empty())
        throw VantuDataException("Unsafe entry name (empty): \"" + record.name + "\"");
      const platform::Descriptor folder(target.Folder(parts, parts.size() - 1));
      const std::string& name = parts.back();
      if (record.IsSymbolicLink()) {
        if (record.size > kMaxLinkTarget) throw VantuDataException("symbolic link target too long");
        std::string link;
        Decode(record, budget, [&](const unsigned char* data, size_t size) {
          link.append(reinterpret_cast<const char*>(data), size);
        });
        // The folders on the way are real folders, never links: the name's depth is the
        // link's depth.
        if (!LinkTargetStaysInside(parts, link)) {
          throw VantuDataException("symbolic link to \"" + link +
                                   "\" leads out of the target folder");
        }
        const std::string temporary = MakeUnique(name, [&](const std::string& at) {
          platform::MakeSymbolicLinkAt(link, folder.get(), at);
        });
        try {
          platform::SetTimeAt(folder.get(), temporary, record.modifiedSeconds);
          platform::RenameAt(folder.get(), temporary, name);
        } catch (...) {
          platform::RemoveAt(folder.get(), temporary);
          throw;
        }
        return;
      }
      TemporaryFile temp(folder.get(), name);
      Decode(record, budget, [&](const unsigned char* data, size_t size) {
        platform::WriteAll(temp.fd(), data, size);
      });
      platform::SetFileTimeAndMode(temp.fd(), record.modifiedSeconds, record.UnixMode());
      temp.Commit(name);
    } catch (const std::system_error& error) {
      ThrowFileError(error, "cannot write \"" + Join(parts, parts.size()).substr(1) + "\"");
    }
  }

  std::unique_ptr<ArchiveFile> file_;
  std::vector<ZipRecord> records_;
  std::vector<Entry> entries_;
  std::string path_;
  uint64_t maxBytes_ = 0;
  uint64_t maxEntries_ = 0;
  unsigned threads_ = 0;
};

VUnzipFile::VUnzipFile() : impl_(std::make_unique<Impl>()) {}
VUnzipFile::VUnzipFile(const VPath& archive) : VUnzipFile() { Open(archive); }
VUnzipFile::VUnzipFile(const char* archive, StringEncoding encoding) : VUnzipFile() {
  Open(archive, encoding);
}
VUnzipFile::~VUnzipFile() = default;

void VUnzipFile::Open(const VPath& archive) { impl_->Open(archive); }
void VUnzipFile::Open(const char* archive, StringEncoding encoding) {
  impl_->Open(VPath(archive, encoding));
}
bool VUnzipFile::IsOpen() const { return impl_->IsOpen(); }
void VUnzipFile::Close() { impl_->Close(); }
void VUnzipFile::SetLimits(uint64_t maxTotalBytes, uint64_t maxEntries) {
  impl_->SetLimits(maxTotalBytes, maxEntries);
}
void VUnzipFile::SetThreads(unsigned threads) { impl_->SetThreads(threads); }
const std::vector<VUnzipFile::Entry>& VUnzipFile::GetEntries() const { return impl_->Entries(); }
size_t VUnzipFile::GetEntryCount() const { return impl_->Entries().size(); }
void VUnzipFile::Test(std::vector<Failure>* failures) const { impl_->Test(failures); }
std::string VUnzipFile::Read(const VString& name) const { return impl_->Read(name); }
void VUnzipFile::Extract(const VString& name, const VPath& folder) const {
  impl_->Extract(name, folder);
}
void VUnzipFile::ExtractAll(const VPath& folder, std::vector<Failure>* failures) const {
  impl_->ExtractAll(folder, failures);
}
void VUnzipFile::ExtractAll(const char* folder, StringEncoding encoding) const {
  impl_->ExtractAll(VPath(folder, encoding), nullptr);
}
