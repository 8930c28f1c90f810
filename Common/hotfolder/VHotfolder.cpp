#include <vantu/VHotfolder.h>

#include <Poco/Path.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include <vantu/VDirectoryIterator.h>
#include <vantu/VLogMessage.h>

#include "internal/PathText.h"

using vantu::internal::PathBytes;

namespace {

// Serialises the callbacks of every hot folder of the process. Recursive, so that a callback may
// run a scan of another hot folder, whose callbacks then come on the same thread.
std::recursive_mutex g_callbackMutex;

// Two size readings of a file are at least this far apart.
constexpr std::chrono::milliseconds kStabilityWait(500);

const char kSource[] = "Common/VHotfolder";
const char kScanFunction[] = "VHotfolder::CheckFolderChanges";
const char kRemoveFunction[] = "VHotfolder::Remove";

#define VANTU_SCAN_TRACE(line) VLOG_AT(INFO, kSource, line, kScanFunction)
#define VANTU_REMOVE_TRACE(line) VLOG_AT(INFO, kSource, line, kRemoveFunction)

// The key of an entry in the list: its path's text (every entry of one scan has one encoding).
std::string Key(const VHFItem& item) { return item.file.GetPath().GetString(); }

// Walker callbacks; userData is the found list.
int PlainFilter(VFile& entry, void* userData) {
  if (userData == nullptr) return -1;
  // Entries below any directory whose name starts with "." are ignored, also above the folder.
  const Poco::Path path(PathBytes(entry.GetPath()));
  for (int i = 0; i < path.depth(); ++i) {
    if (!path[i].empty() && path[i][0] == '.') return 0;
  }
  static_cast<std::vector<VHFItem>*>(userData)->emplace_back(entry);
  return 0;
}

int GroupFilter(VFile& entry, void* userData) {
  auto* found = static_cast<std::vector<VHFItem>*>(userData);
  if (!entry.IsDirectory()) {
    found->emplace_back(entry);
    return 0;
  }
  const std::string name = Poco::Path(PathBytes(entry.GetPath())).getFileName();
  if (!name.empty() && name[0] == '.') return 0;
  VHFItem item(entry);
  std::vector<std::string> names;
  entry.List(names);
  for (const std::string& n : names) {
    VPath name;
    vantu::internal::SetPathBytes(name, n, UTF8);
    item.contents.emplace_back(VFile(name));
  }
  found->push_back(std::move(item));
  return 0;
}

}  // namespace

// One scan of one folder, in two phases so that every candidate of a scan shares one stability
// wait: phase one takes each new entry's first size, phase two its second size, then delivers.
// A sub-directory in group-folders mode is scanned as a folder of its own (files only, not
// recursive, a list of its own that starts empty) nested in its parent's phases.
class VHotfolder::Scan {
 public:
  using Clock = std::chrono::steady_clock;

  // The entries of a folder, in the walker's order.
  static std::vector<VHFItem> Walk(const VPath& folder, bool recursive, bool groupFolders) {
    std::vector<VHFItem> found;
    VDirectoryIterator walker(groupFolders ? GroupFilter : PlainFilter, groupFolders);
    walker.Iterate(VFile(folder), recursive, &found, 0xFFFFFFFF);
    return found;
  }

  Scan(std::vector<VHFItem> found, std::list<VHFItem>& list, Callback callback, void* userData,
       const std::atomic<bool>* stopping, Clock::time_point* lastReading)
      : list_(list),
        found_(std::move(found)),
        callback_(callback),
        userData_(userData),
        stopping_(stopping),
        lastReading_(lastReading) {
    for (const VHFItem& item : list_) listed_.insert(Key(item));
  }

  // Phase one: the tests before the first size reading.
  void TakeFirstReadings() {
    for (size_t i = 0; i < found_.size() && !Stopping(); ++i) {
      const VHFItem& entry = found_[i];
      const std::string path = PathBytes(entry.file.GetPath());
      VANTU_SCAN_TRACE(146).Format("Checking file %s", path.c_str());
      if (listed_.count(Key(entry)) != 0) {
        VANTU_SCAN_TRACE(160).Format("File %s found in the list", path.c_str());
        continue;
      }
      if (entry.file.IsDirectory()) {
        auto sub = std::make_unique<SubFolder>();
        sub->scan = std::make_unique<Scan>(Walk(entry.file.GetPath(), false, false), sub->list,
                                           nullptr, nullptr, nullptr, lastReading_);
        sub->scan->TakeFirstReadings();
        pending_.push_back({i, 0, std::move(sub)});
        continue;
      }
      if (!entry.file.IsAvailable(true, false)) {
        VANTU_SCAN_TRACE(233).Format("File %s is not available", path.c_str());
        continue;
      }
      pending_.push_back({i, entry.file.GetSize(), nullptr});
      *lastReading_ = Clock::now();
    }
  }

  bool HasPending() const { return !pending_.empty(); }

  // Phase two: second readings and deliveries, in the order the walk found the entries.
  void Deliver() {
    for (Pending& pending : pending_) {
      if (Stopping()) break;
      const VHFItem& entry = found_[pending.index];
      if (pending.sub) {
        pending.sub->scan->Deliver();
        if (pending.sub->scan->Finish() == 1) Add(entry, 175, 181, true);
        continue;
      }
      const uint64_t size2 = entry.file.GetSize();
      if (size2 > pending.size1 || size2 == 0) {
        VANTU_SCAN_TRACE(227).Format(
            "File %s is not complete (%llu > %llu)", PathBytes(entry.file.GetPath()).c_str(),
            static_cast<unsigned long long>(size2), static_cast<unsigned long long>(pending.size1));
        continue;
      }
      Add(entry, 208, 214, false);
    }
  }

  // Drops listed entries that were not found, and returns the scan's result.
  int Finish() {
    std::unordered_set<std::string> found;
    for (const VHFItem& item : found_) found.insert(Key(item));
    list_.remove_if([&](const VHFItem& item) { return found.count(Key(item)) == 0; });
    return (list_.size() == found_.size() && !found_.empty()) ? 1 : 0;
  }

 private:
  struct SubFolder {
    std::list<VHFItem> list;
    std::unique_ptr<Scan> scan;
  };
  struct Pending {
    size_t index;
    uint64_t size1;
    std::unique_ptr<SubFolder> sub;
  };

  bool Stopping() const { return stopping_ != nullptr && stopping_->load(); }

  void Add(const VHFItem& entry, int addingLine, int callingLine, bool directory) {
    VPath path = entry.file.GetPath();
    if (directory) path.MakeDirectory();
    const std::string bytes = PathBytes(path);
    VLOG_AT(INFO, kSource, addingLine, kScanFunction)
        .Format("Adding %s to the list", PathBytes(entry.file.GetPath()).c_str());
    list_.push_back(entry);
    listed_.insert(Key(entry));
    if (callback_ == nullptr) return;
    VLOG_AT(INFO, kSource, callingLine, kScanFunction)
        .Format("Calling callback for file %s", PathBytes(entry.file.GetPath()).c_str());
    std::lock_guard<std::recursive_mutex> lock(g_callbackMutex);
    try {
      callback_(bytes.c_str(), static_cast<int>(bytes.size()), userData_);
    } catch (...) {
      // A callback's exception must not end the scan; its result is ignored anyway.
    }
  }

  std::list<VHFItem>& list_;
  std::unordered_set<std::string> listed_;
  std::vector<VHFItem> found_;
  std::vector<Pending> pending_;
  Callback callback_;
  void* userData_;
  const std::atomic<bool>* stopping_;
  Clock::time_point* lastReading_;
};

VHotfolder::VHotfolder() : scanMutex_(std::make_unique<std::recursive_mutex>()) {
  timer_.SetCallback(&VHotfolder::OnTimer, this);
}

VHotfolder::VHotfolder(const VHotfolder& other)
    : VBaseObject(other), scanMutex_(std::make_unique<std::recursive_mutex>()) {
  timer_.SetCallback(&VHotfolder::OnTimer, this);
  CopyFrom(other);
}

VHotfolder& VHotfolder::operator=(const VHotfolder& other) {
  Assign(other);
  return *this;
}

VHotfolder::~VHotfolder() {
  stopping_ = true;
  timer_.Stop();
  std::lock_guard<std::recursive_mutex> lock(*scanMutex_);
  fileList_.clear();
}

void VHotfolder::Assign(const VHotfolder& other) {
  if (this != &other) CopyFrom(other);
}

void VHotfolder::CopyFrom(const VHotfolder& other) {
  SetPath(other.GetPath());
  groupFolders_ = other.groupFolders_.load();
  recursive_ = other.recursive_.load();
  period_ = other.period_.load();
  callback_ = other.callback_.load();
  userData_ = other.userData_.load();
  enabled_ = other.enabled_.load();
  stopping_ = other.stopping_.load();
}

std::list<VHFItem>* VHotfolder::GetFileList() { return &fileList_; }
bool VHotfolder::GetGroupFolders() const { return groupFolders_; }
VHotfolder::Callback VHotfolder::GetHolfoderCbFn() const { return callback_; }
VPath VHotfolder::GetPath() const {
  std::lock_guard<std::mutex> lock(pathMutex_);
  return path_;
}
bool VHotfolder::GetRecursive() const { return recursive_; }
long VHotfolder::GetTimeMilliseconds() const { return period_; }
VTimer VHotfolder::GetTimer() const { return VTimer(timer_); }
void* VHotfolder::GetUserData() const { return userData_; }
void VHotfolder::Enable(bool enabled) { enabled_ = enabled; }
bool VHotfolder::isEnabled() const { return enabled_; }

void VHotfolder::SetPath(const VPath& path) {
  std::lock_guard<std::mutex> lock(pathMutex_);
  path_ = path;
}
void VHotfolder::SetTimeMilliseconds(int milliseconds) { period_ = milliseconds; }
void VHotfolder::SetRecursive(bool recursive) { recursive_ = recursive; }
void VHotfolder::SetGroupFolders(bool groupFolders) { groupFolders_ = groupFolders; }
void VHotfolder::SetCallback(Callback callback) { callback_ = callback; }
void VHotfolder::SetUserData(void* userData) { userData_ = userData; }

void VHotfolder::Start() {
  stopping_ = false;
  timer_.SetPeriodicInterval(static_cast<unsigned>(period_.load()));
  timer_.Start();
}

void VHotfolder::Stop() {
  stopping_ = true;
  timer_.Stop();
  std::lock_guard<std::recursive_mutex> lock(*scanMutex_);
  fileList_.clear();
}

int VHotfolder::OnTimer(void* self) {
  try {
    static_cast<VHotfolder*>(self)->CheckFolderChanges();
  } catch (...) {
    // A scan never lets an exception escape into the timer's thread.
  }
  return 0;
}

int VHotfolder::CheckFolderChanges() {
  // The folder as UTF8 file-system bytes, so that the entries keep the exact bytes of their names.
  VPath folder;
  vantu::internal::SetPathBytes(folder, PathBytes(GetPath()), UTF8);
  std::vector<VHFItem> found = Scan::Walk(folder, recursive_, groupFolders_);
  const Callback callback = callback_;
  void* const userData = userData_;
  Scan::Clock::time_point lastReading{};
  std::lock_guard<std::recursive_mutex> lock(*scanMutex_);
  Scan scan(std::move(found), fileList_, callback, userData, &stopping_, &lastReading);
  scan.TakeFirstReadings();
  if (scan.HasPending()) {
    // One wait for every candidate: sleep in whole milliseconds until the second readings may
    // be taken for the last file read first.
    const auto deadline = lastReading + kStabilityWait;
    while (Scan::Clock::now() < deadline && !stopping_) {
      std::this_thread::sleep_for(
          std::chrono::ceil<std::chrono::milliseconds>(deadline - Scan::Clock::now()));
    }
  }
  scan.Deliver();
  return scan.Finish();
}

void VHotfolder::Remove(const VFile& file, bool keepFile) {
  std::lock_guard<std::recursive_mutex> lock(*scanMutex_);
  const std::string given = PathBytes(file.GetPath());
  VANTU_REMOVE_TRACE(447).Format("Removing %s", given.c_str());
  auto match = fileList_.end();
  bool directory = false;
  for (auto it = fileList_.begin(); it != fileList_.end(); ++it) {
    VPath text = it->file.GetPath();
    const bool isDirectory = it->file.IsDirectory();
    if (isDirectory) text.MakeDirectory();
    if (PathBytes(text) == given) {
      match = it;
      directory = isDirectory;
      break;
    }
  }
  if (match == fileList_.end()) return;
  VANTU_REMOVE_TRACE(464).Format("Removing %s, found in the list", given.c_str());
  const VHFItem matched = *match;
  fileList_.remove_if([&](const VHFItem& item) { return item == matched; });
  if (keepFile) return;
  VANTU_REMOVE_TRACE(474).Format("Deleting %s", given.c_str());
  try {
    matched.file.Remove(directory);
  } catch (...) {
    VANTU_REMOVE_TRACE(483).Format("Error deleting file %s", given.c_str());
  }
}
