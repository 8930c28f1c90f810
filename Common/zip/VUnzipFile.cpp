#include <vantu/VUnzipFile.h>

#include <vantu/VException.h>
#include <vantu/VRandom.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>

#include "internal/PathText.h"
#include "internal/ZipCodec.h"
#include "internal/ZipErrors.h"
#include "internal/ZipFormat.h"
#include "platform/Platform.h"

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

// Makes something under a fresh hidden name beside `name` in `folder`: `make(path)` throws
// std::system_error, and is tried again with another name when the name is taken.
template <typename Make>
std::string MakeUnique(const std::string& folder, const std::string& name, Make make) {
  thread_local VRandom random;
  for (int attempt = 0;; ++attempt) {
    char suffix[24];
    std::snprintf(suffix, sizeof(suffix), ".vantu-%08x", random.Next());
    const std::string path = folder + "/." + name.substr(0, 200) + suffix;
    try {
      make(path);
      return path;
    } catch (const std::system_error& error) {
      if (error.code() != std::errc::file_exists || attempt == 16) throw;
    }
  }
}

// A new file under a temporary name, removed unless committed.
class TemporaryFile {
 public:
  TemporaryFile(const std::string& folder, const std::string& name) {
    path_ = MakeUnique(folder, name, [this](const std::string& path) {
      fd_ = platform::CreateNewFile(path, 0666);
    });
  }
  ~TemporaryFile() {
    if (fd_ >= 0) platform::CloseFileQuietly(fd_);
    if (!path_.empty()) platform::RemovePath(path_);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  int fd() const { return fd_; }
  // Closes the file (reporting a failed close) and moves it to `target`.
  void Commit(const std::string& target) {
    const int fd = fd_;
    fd_ = -1;
    platform::CloseFile(fd);
    platform::RenamePath(path_, target);
    path_.clear();
  }

 private:
  std::string path_;
  int fd_ = -1;
};

// The folder being extracted into and the subfolders already checked to lie inside it.
class Target {
 public:
  explicit Target(const std::string& folder) {
    try {
      std::string path;
      for (const std::string& part : SplitPath(folder)) {
        path += (path.empty() && folder[0] != '/') ? part : "/" + part;
        platform::FileStatus status;
        if (!platform::GetFileStatus(path, true, status)) platform::MakeDirectory(path, 0777);
      }
      root_ = platform::RealPath(folder);
    } catch (const std::system_error& error) {
      ThrowFileError(error, "Cannot create the folder \"" + folder + "\"");
    }
    if (root_ == "/") root_.clear();
  }

  // Whether a link in `folder` (a path Folder returned) whose text climbs with leading ".."
  // components stays inside the target: the climb starts where the folder really is, which
  // links among its components may make shallower than its name.
  bool LinkStaysInside(const std::string& folder, const std::string& target) const {
    std::string path = platform::RealPath(folder);
    for (const std::string& part : SplitPath(target)) {
      if (part == ".") continue;
      if (part != "..") break;
      if (!Inside(path) || path == root_) return false;
      path.erase(path.rfind('/'));
    }
    return Inside(path);
  }

  // Makes the folders of the first `count` components and checks that each lies inside the
  // target (a link among them must resolve inside). Returns the full path.
  std::string Folder(const std::vector<std::string>& parts, size_t count) {
    std::string path = root_;
    for (size_t i = 0; i < count; ++i) {
      path += "/" + parts[i];
      {
        std::lock_guard<std::mutex> lock(mutex_);
        if (checked_.count(path) != 0) continue;
      }
      platform::FileStatus status;
      if (!platform::GetFileStatus(path, false, status)) {
        platform::MakeDirectory(path, 0777);
      } else if (status.isLink) {
        const std::string real = platform::RealPath(path);
        if (!Inside(real)) {
          throw VantuDataException("the path leads out of the target folder through a link");
        }
        if (!platform::GetFileStatus(real, true, status) ||
            status.kind != platform::FileKind::kDirectory) {
          throw VantuDataException("\"" + path + "\" is not a folder");
        }
      } else if (status.kind != platform::FileKind::kDirectory) {
        throw VantuDataException("\"" + path + "\" is not a folder");
      }
      std::lock_guard<std::mutex> lock(mutex_);
      checked_.insert(path);
    }
    return path;
  }

 private:
  bool Inside(const std::string& path) const {
    return path == root_ || path.compare(0, root_.size() + 1, root_ + "/") == 0;
  }

  static std::vector<std::string> SplitPath(const std::string& path) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= path.size()) {
      size_t slash = path.find('/', start);
      if (slash == std::string::npos) slash = path.size();
      if (slash > start) parts.push_back(path.substr(start, slash - start));
      start = slash + 1;
    }
    return parts;
  }

  std::string root_;
  std::mutex mutex_;
  std::set<std::string> checked_;
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
    // times (writing into a folder changes its time).
    std::vector<size_t> folders;
    std::vector<size_t> files;
    for (size_t i = 0; i < records_.size(); ++i) {
      (records_[i].IsDirectory() ? folders : files).push_back(i);
    }
    std::vector<std::pair<std::string, long long>> times;
    std::mutex timesMutex;
    Failed failed;
    auto extract = [&](size_t i) {
      const std::string path = ExtractOne(records_[i], target, budget, false);
      if (records_[i].IsDirectory()) {
        std::lock_guard<std::mutex> lock(timesMutex);
        times.emplace_back(path, records_[i].modifiedSeconds);
      }
    };
    Run(folders, budget, 1, failed, extract);
    Run(files, budget, threads_, failed, extract);
    for (auto it = times.rbegin(); it != times.rend(); ++it) {
      try {
        platform::SetPathTime(it->first, it->second);
      } catch (const std::system_error&) {
        // A folder's time is worth no failure of the extraction.
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

  // Extracts one entry; returns the path written.
  std::string ExtractOne(const ZipRecord& record, Target& target, Budget& budget,
                         bool folderTime) const {
    const std::vector<std::string> parts = SafeNameComponents(record.name);
    try {
      if (record.IsDirectory()) {
        const std::string path = target.Folder(parts, parts.size());
        if (folderTime) platform::SetPathTime(path, record.modifiedSeconds);
        return path;
      }
      const std::string folder = target.Folder(parts, parts.size() - 1);
      const std::string path = folder + "/" + parts.back();
      if (record.IsSymbolicLink()) {
        if (record.size > kMaxLinkTarget) throw VantuDataException("symbolic link target too long");
        std::string link;
        Decode(record, budget, [&](const unsigned char* data, size_t size) {
          link.append(reinterpret_cast<const char*>(data), size);
        });
        if (!LinkTargetStaysInside(parts, link) || !target.LinkStaysInside(folder, link)) {
          throw VantuDataException("symbolic link to \"" + link +
                                   "\" leads out of the target folder");
        }
        const std::string linkPath = MakeUnique(folder, parts.back(), [&](const std::string& at) {
          platform::MakeSymbolicLink(link, at);
        });
        try {
          platform::SetPathTime(linkPath, record.modifiedSeconds);
          platform::RenamePath(linkPath, path);
        } catch (...) {
          platform::RemovePath(linkPath);
          throw;
        }
        return path;
      }
      TemporaryFile temp(folder, parts.back());
      Decode(record, budget, [&](const unsigned char* data, size_t size) {
        platform::WriteAll(temp.fd(), data, size);
      });
      platform::SetFileTimeAndMode(temp.fd(), record.modifiedSeconds, record.UnixMode());
      temp.Commit(path);
      return path;
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
