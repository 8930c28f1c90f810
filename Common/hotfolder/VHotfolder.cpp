#include <vantu/VHotfolder.h>

#include <Poco/Path.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <vector>

#include <vantu/VLogMessage.h>

#include "internal/DirectoryWalk.h"
#include "internal/PathText.h"
#include "platform/Platform.h"

using vantu::internal::PathBytes;

namespace {

// Serialises the callbacks of every hot folder of the process. Recursive, so that a callback may
// run a scan of another hot folder, whose callbacks then come on the same thread.
std::recursive_mutex g_callbackMutex;

// Two size readings of a file are at least this far apart.
constexpr std::chrono::milliseconds kStabilityWait(500);
// A wake-up scan starts once changes have been quiet this long, or this long after the first.
constexpr std::chrono::milliseconds kQuietTime(20);
constexpr std::chrono::milliseconds kLongestGathering(100);
// How often the watcher checks its settings and re-arms a lost watch.
constexpr int kWatcherTick = 1000;

const char kSource[] = "Common/VHotfolder";
const char kScanFunction[] = "VHotfolder::CheckFolderChanges";
const char kRemoveFunction[] = "VHotfolder::Remove";

#define VANTU_SCAN_TRACE(line) VLOG_AT(INFO, kSource, line, kScanFunction)
#define VANTU_REMOVE_TRACE(line) VLOG_AT(INFO, kSource, line, kRemoveFunction)

// The key of an entry in the list: its path's text (every entry a scan makes is UTF8 bytes).
const std::string& Key(const VHFItem& item) { return item.file.Path().GetString(); }

VHFItem ItemAt(const std::string& path) { return VHFItem(VFile(VPath::FromFileSystem(path))); }

// Whether the path's last name starts with ".".
bool DotName(const std::string& path) {
  const size_t name = path.rfind('/') + 1;
  return name < path.size() && path[name] == '.';
}

// Whether a directory of the path (its last name aside) starts with ".", as Poco::Path reads
// the path: "." names are dropped and ".." removes the name before it.
bool UnderDotDirectory(const std::string& path) {
  const size_t last = path.rfind('/');
  if (last == std::string::npos || path.find('.') >= last) return false;  // the common case
  const Poco::Path parsed(path);
  for (int i = 0; i < parsed.depth(); ++i) {
    if (!parsed[i].empty() && parsed[i][0] == '.') return true;
  }
  return false;
}

// The entries listed before a scan, found by their key without copying it: an open-addressing
// table over the list's own strings, built once per scan. Each slot keeps part of its key's hash
// beside the entry's index, so a probe rarely reads another entry's string.
class ListIndex {
 public:
  struct Entry {
    std::string_view key;
    std::list<VHFItem>::iterator item;
    bool seen = false;
    bool alive = true;  // false once Remove took the item out during the scan
  };

  explicit ListIndex(std::list<VHFItem>& list) {
    entries_.reserve(list.size());
    size_t slots = 16;
    while (slots < 2 * list.size()) slots *= 2;
    slots_.assign(slots, 0);
    for (auto it = list.begin(); it != list.end(); ++it) {
      entries_.push_back({Key(*it), it});
      const uint64_t hash = Hash(entries_.back().key);
      size_t slot = hash & (slots_.size() - 1);
      while (slots_[slot] != 0) slot = (slot + 1) & (slots_.size() - 1);
      slots_[slot] = (hash & kHashBits) | entries_.size();
    }
  }

  // Calls `action` for every live entry with this key; false when there is none.
  template <typename Action>
  bool ForEach(std::string_view key, Action action) {
    const uint64_t hash = Hash(key);
    bool any = false;
    for (size_t slot = hash & (slots_.size() - 1); slots_[slot] != 0;
         slot = (slot + 1) & (slots_.size() - 1)) {
      if ((slots_[slot] & kHashBits) != (hash & kHashBits)) continue;
      Entry& entry = entries_[(slots_[slot] & ~kHashBits) - 1];
      if (entry.alive && entry.key == key) {
        action(entry);
        any = true;
      }
    }
    return any;
  }

  std::vector<Entry>& entries() { return entries_; }

 private:
  // The upper half of a slot holds hash bits, the lower half the entry's index + 1 (0: empty).
  static constexpr uint64_t kHashBits = 0xFFFFFFFF00000000ULL;

  static uint64_t Hash(std::string_view key) { return std::hash<std::string_view>()(key); }

  std::vector<Entry> entries_;
  std::vector<uint64_t> slots_;
};

}  // namespace

// One scan of one folder, in two phases so that every candidate of a scan shares one stability
// wait. Phase one runs during the walk: an entry already in the list is marked found; a new one
// gets its availability test and first size reading. Phase two takes the second sizes and
// delivers. A sub-directory in group-folders mode is scanned as a folder of its own (files only,
// not recursive, a list of its own that starts empty) nested in its parent's phases. An idle
// scan (every entry listed) costs a listing, a hash lookup and two filtered traces per entry.
class VHotfolder::Scan : public vantu::internal::DirectoryVisitor {
 public:
  using Clock = std::chrono::steady_clock;

  // `outer` is a scan of the same list in progress on this thread (a callback scanning again).
  Scan(std::list<VHFItem>& list, Callback callback, void* userData, bool groupFolders,
       const std::atomic<bool>* stopping, Clock::time_point* lastReading, Scan* outer = nullptr)
      : list_(list),
        index_(list),
        outer_(outer),
        callback_(callback),
        userData_(userData),
        groupFolders_(groupFolders),
        stopping_(stopping),
        lastReading_(lastReading) {}

  // Phase one over the folder's entries.
  void Walk(const std::string& folder, bool recursive) {
    try {
      complete_ =
          vantu::internal::WalkDirectory(folder, recursive, 0xFFFFFFFF, groupFolders_, *this) == 0;
    } catch (...) {
      complete_ = false;
    }
  }

  bool HasPending() const { return !pending_.empty(); }
  Scan* outer() const { return outer_; }

  // Phase two: second readings and deliveries, in the order the walk found the entries.
  void Deliver() {
    for (Pending& pending : pending_) {
      if (Stopping()) break;
      if (pending.sub) {
        pending.sub->scan->Deliver();
        if (pending.sub->scan->Finish() == 1) Add(pending.item, 175, 181, true);
        continue;
      }
      const uint64_t size2 = pending.item.file.GetSize();
      if (size2 > pending.size1 || size2 == 0) {
        VANTU_SCAN_TRACE(227).Format(
            "File %s is not complete (%llu > %llu)", Key(pending.item).c_str(),
            static_cast<unsigned long long>(size2), static_cast<unsigned long long>(pending.size1));
        continue;
      }
      Add(pending.item, 208, 214, false);
    }
  }

  // Drops listed entries that the walk did not find (entries under a folder that could not be
  // listed stay), and returns the scan's result.
  int Finish() {
    if (!complete_) return 0;  // a stopped scan forgets nothing
    for (ListIndex::Entry& entry : index_.entries()) {
      if (!entry.alive || entry.seen || UnderUnreadable(entry.key)) continue;
      if (outer_ != nullptr) outer_->Forget(entry.key);
      list_.erase(entry.item);
    }
    return (list_.size() == found_ && found_ != 0) ? 1 : 0;
  }

  // These entries are leaving the list while the scan runs (Remove, or a nested scan).
  void Forget(std::string_view key) {
    index_.ForEach(key, [](ListIndex::Entry& entry) { entry.alive = false; });
    if (outer_ != nullptr) outer_->Forget(key);
  }

  int Visit(const std::string& path, bool directory) override {
    if (Stopping()) return 1;
    if (directory) {
      if (DotName(path)) return 0;
    } else if (!groupFolders_ && UnderDotDirectory(path)) {
      return 0;
    }
    ++found_;
    VANTU_SCAN_TRACE(146).Format("Checking file %s", path.c_str());
    if (index_.ForEach(path, [](ListIndex::Entry& entry) { entry.seen = true; })) {
      VANTU_SCAN_TRACE(160).Format("File %s found in the list", path.c_str());
      return 0;
    }
    if (!pendingKeys_.insert(path).second) return 0;  // found twice through links
    VHFItem item = ItemAt(path);
    if (directory) {
      std::vector<std::string> names;
      item.file.List(names);
      for (const std::string& n : names) item.contents.emplace_back(VPath::FromFileSystem(n));
      auto sub = std::make_unique<SubFolder>();
      sub->scan = std::make_unique<Scan>(sub->list, nullptr, nullptr, false, nullptr, lastReading_);
      sub->scan->Walk(path, false);
      pending_.push_back({std::move(item), 0, std::move(sub)});
      return 0;
    }
    if (!item.file.IsAvailable(true, false)) {
      VANTU_SCAN_TRACE(233).Format("File %s is not available", path.c_str());
      return 0;
    }
    const uint64_t size1 = item.file.GetSize();
    pending_.push_back({std::move(item), size1, nullptr});
    *lastReading_ = Clock::now();
    return 0;
  }

  bool Unreadable(const std::string& path, int error) override {
    // A folder that is gone takes its entries with it; one that cannot be read keeps them.
    if (error != ENOENT && error != ENOTDIR) unreadable_.push_back(path + "/");
    return true;
  }

 private:
  struct SubFolder {
    std::list<VHFItem> list;
    std::unique_ptr<Scan> scan;
  };
  struct Pending {
    VHFItem item;
    uint64_t size1;
    std::unique_ptr<SubFolder> sub;
  };

  bool Stopping() const { return stopping_ != nullptr && stopping_->load(); }

  bool UnderUnreadable(std::string_view key) const {
    for (const std::string& folder : unreadable_) {
      if (key.substr(0, folder.size()) == folder) return true;
    }
    return false;
  }

  void Add(const VHFItem& entry, int addingLine, int callingLine, bool directory) {
    const std::string& path = Key(entry);
    VLOG_AT(INFO, kSource, addingLine, kScanFunction).Format("Adding %s to the list", path.c_str());
    list_.push_back(entry);
    if (callback_ == nullptr) return;
    VLOG_AT(INFO, kSource, callingLine, kScanFunction)
        .Format("Calling callback for file %s", path.c_str());
    const std::string delivered = directory ? path + "/" : path;
    std::lock_guard<std::recursive_mutex> lock(g_callbackMutex);
    try {
      callback_(delivered.c_str(), static_cast<int>(delivered.size()), userData_);
    } catch (...) {
      // A callback's exception must not end the scan; its result is ignored anyway.
    }
  }

  std::list<VHFItem>& list_;
  ListIndex index_;
  Scan* const outer_;
  std::unordered_set<std::string> pendingKeys_;
  std::vector<Pending> pending_;
  std::vector<std::string> unreadable_;  // folders that could not be listed, ending in "/"
  size_t found_ = 0;
  bool complete_ = false;
  Callback callback_;
  void* userData_;
  const bool groupFolders_;
  const std::atomic<bool>* stopping_;
  Clock::time_point* lastReading_;
};

// Wakes a hot folder early: watches its folder (and the sub-folders a scan reads) for entries
// closed after writing, moved in or deleted, and runs a scan once a burst of changes is over.
class VHotfolder::Watcher {
 public:
  explicit Watcher(VHotfolder& folder) : folder_(folder), thread_([this] { Run(); }) {}
  ~Watcher() {
    stop_ = true;
    notifier_.Interrupt();
    thread_.join();
  }

 private:
  struct Settings {
    std::string path;
    bool recursive;
    bool groupFolders;
    bool operator==(const Settings& other) const {
      return path == other.path && recursive == other.recursive &&
             groupFolders == other.groupFolders;
    }
  };

  // Watches every directory a scan of `path` reads, except those under a "." directory.
  class DirectoryAdder : public vantu::internal::DirectoryVisitor {
   public:
    explicit DirectoryAdder(vantu::platform::ChangeNotifier& notifier) : notifier_(notifier) {}
    int Visit(const std::string& path, bool directory) override {
      if (directory && Enter(path)) notifier_.Watch(path);
      return 0;
    }
    bool Enter(const std::string& path) override { return !DotName(path); }
    bool Unreadable(const std::string&, int) override { return true; }

   private:
    vantu::platform::ChangeNotifier& notifier_;
  };

  Settings Current() const {
    return {PathBytes(folder_.GetPath()), folder_.recursive_.load(), folder_.groupFolders_.load()};
  }

  // Watches the directories below `directory`, `depth` levels down.
  void WatchBelow(const std::string& directory, unsigned depth) {
    if (depth == 0) return;
    DirectoryAdder adder(notifier_);
    try {
      vantu::internal::WalkDirectory(directory, true, depth - 1, true, adder);
    } catch (...) {
    }
  }

  unsigned Depth(const Settings& settings) const {
    return settings.recursive ? 0xFFFFFFFF : settings.groupFolders ? 1 : 0;
  }

  // Watches the folder as the settings now name it; a folder that is missing is tried again at
  // every tick.
  void Arm() {
    armed_ = Current();
    notifier_.Reset();
    watching_ = notifier_.Watch(armed_.path);
    if (watching_) WatchBelow(armed_.path, Depth(armed_));
  }

  void Run() {
    Arm();
    while (!stop_) {
      auto events = notifier_.Wait(kWatcherTick);
      if (stop_) break;
      if (!watching_ || events.lostWatch || !(Current() == armed_)) Arm();
      if (!events.changed && !events.overflow) continue;
      // Gather the rest of a burst; new directories are watched as they come.
      const auto first = std::chrono::steady_clock::now();
      for (;;) {
        for (const std::string& directory : events.newDirectories) {
          if (DotName(directory) || !notifier_.Watch(directory) || !armed_.recursive) continue;
          WatchBelow(directory, 0xFFFFFFFF);  // made before its watch was added
        }
        if (stop_ || std::chrono::steady_clock::now() - first >= kLongestGathering) break;
        events = notifier_.Wait(static_cast<int>(kQuietTime.count()));
        if (!events.changed && !events.overflow && !events.lostWatch) break;
      }
      if (stop_) break;
      VHotfolder::OnTimer(&folder_);
    }
  }

  VHotfolder& folder_;
  vantu::platform::ChangeNotifier notifier_;
  Settings armed_;
  bool watching_ = false;  // the folder itself is watched
  std::atomic<bool> stop_{false};
  std::thread thread_;  // last: it starts once everything else is ready
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
  StopWatcher();
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
  wakeOnChange_ = other.wakeOnChange_.load();
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
bool VHotfolder::GetWakeOnChange() const { return wakeOnChange_; }

void VHotfolder::SetPath(const VPath& path) {
  std::lock_guard<std::mutex> lock(pathMutex_);
  path_ = path;
}
void VHotfolder::SetTimeMilliseconds(int milliseconds) { period_ = milliseconds; }
void VHotfolder::SetRecursive(bool recursive) { recursive_ = recursive; }
void VHotfolder::SetGroupFolders(bool groupFolders) { groupFolders_ = groupFolders; }
void VHotfolder::SetCallback(Callback callback) { callback_ = callback; }
void VHotfolder::SetUserData(void* userData) { userData_ = userData; }

void VHotfolder::SetWakeOnChange(bool wake) {
  std::unique_ptr<Watcher> stopped;
  {
    std::lock_guard<std::mutex> lock(watcherMutex_);
    wakeOnChange_ = wake;
    if (!wake) {
      stopped.swap(watcher_);
    } else if (running_ && !watcher_) {
      watcher_ = std::make_unique<Watcher>(*this);
    }
  }
  stopped.reset();  // waits for a wake-up scan in progress
}

void VHotfolder::Start() {
  stopping_ = false;
  timer_.SetPeriodicInterval(static_cast<unsigned>(period_.load()));
  timer_.Start();
  std::lock_guard<std::mutex> lock(watcherMutex_);
  running_ = true;
  if (wakeOnChange_ && !watcher_) watcher_ = std::make_unique<Watcher>(*this);
}

void VHotfolder::Stop() {
  stopping_ = true;
  StopWatcher();
  timer_.Stop();
  std::lock_guard<std::recursive_mutex> lock(*scanMutex_);
  fileList_.clear();
}

void VHotfolder::StopWatcher() {
  std::unique_ptr<Watcher> watcher;
  {
    std::lock_guard<std::mutex> lock(watcherMutex_);
    running_ = false;
    watcher.swap(watcher_);
  }
  watcher.reset();  // waits for a wake-up scan in progress
}

int VHotfolder::OnTimer(void* self) {
  try {
    static_cast<VHotfolder*>(self)->CheckFolderChanges();
  } catch (...) {
    // A scan never lets an exception escape into the timer's or the watcher's thread.
  }
  return 0;
}

int VHotfolder::CheckFolderChanges() {
  // The folder as UTF8 file-system bytes, so that the entries keep the exact bytes of their names.
  const std::string folder = PathBytes(GetPath());
  const Callback callback = callback_;
  void* const userData = userData_;
  Scan::Clock::time_point lastReading{};
  std::lock_guard<std::recursive_mutex> lock(*scanMutex_);
  Scan scan(fileList_, callback, userData, groupFolders_, &stopping_, &lastReading, activeScan_);
  activeScan_ = &scan;
  struct Restore {
    Scan*& active;
    Scan* outer;
    ~Restore() { active = outer; }
  } restore{activeScan_, scan.outer()};
  scan.Walk(folder, recursive_);
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
  if (activeScan_ != nullptr) activeScan_->Forget(Key(matched));
  fileList_.remove_if([&](const VHFItem& item) { return item == matched; });
  if (keepFile) return;
  VANTU_REMOVE_TRACE(474).Format("Deleting %s", given.c_str());
  try {
    matched.file.Remove(directory);
  } catch (...) {
    VANTU_REMOVE_TRACE(483).Format("Error deleting file %s", given.c_str());
  }
}
