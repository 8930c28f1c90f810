#include <vantu/VHotfolder.h>

#include <Poco/Path.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <vantu/VLogMessage.h>

#include "internal/DirectoryWalk.h"
#include "internal/PathText.h"
#include "platform/ChangeNotifier.h"
#include "platform/Files.h"
#include "platform/FilesBelow.h"

using vantu::internal::PathBytes;

namespace {

// Serialises the callbacks of every hot folder of the process. Recursive, so that a callback may
// run a scan of another hot folder, whose callbacks then come on the same thread. A scan waits
// for it holding no lock of its folder, and gives up waiting when its folder stops.
class CallbackGate {
 public:
  // Enters unless `halted()` turns true first; false then.
  template <typename Halted>
  bool Enter(Halted halted) {
    std::unique_lock<std::mutex> lock(mutex_);
    const std::thread::id self = std::this_thread::get_id();
    if (depth_ == 0 || owner_ != self) {
      free_.wait(lock, [&] { return depth_ == 0 || halted(); });
      if (depth_ != 0) return false;
      owner_ = self;
    }
    ++depth_;
    return true;
  }
  void Leave() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (--depth_ == 0) {
      owner_ = std::thread::id();
      free_.notify_all();
    }
  }
  // A hot folder stops: its scans waiting here look again.
  void Wake() {
    std::lock_guard<std::mutex> lock(mutex_);
    free_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable free_;
  std::thread::id owner_;
  int depth_ = 0;
};
CallbackGate g_callbackGate;

// Two size readings of a file are at least this far apart.
constexpr std::chrono::milliseconds kStabilityWait(500);
// A scan told of changes while it waits takes new candidates along for this long, so a steady
// stream of files is served by one scan whose end still comes.
constexpr std::chrono::seconds kLongestExtension(30);
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

using LinkUse = vantu::internal::DirectoryVisitor::LinkUse;

// What the settings say about the entries of one watched folder, the same for a scan, its
// sub-folder scans and the watcher.
struct Rules {
  std::string folder;  // the watched folder as given, ending in "/"
  std::string real;    // its fully resolved path, ending in "/"; empty when it cannot be resolved
  bool followLinks = false;
  bool dotBelowOnly = false;

  Rules() = default;
  Rules(const std::string& path, bool follow, bool dotBelow)
      : folder(path), followLinks(follow), dotBelowOnly(dotBelow) {
    if (folder.empty() || folder.back() != '/') folder.push_back('/');
    if (vantu::platform::RealPath(path, real) && real.back() != '/') real.push_back('/');
  }

  bool Inside(const std::string& target) const {
    return !real.empty() && (target.compare(0, real.size(), real) == 0 ||
                             target.compare(0, std::string::npos, real, 0, real.size() - 1) == 0);
  }
  // A link whose target lies inside the folder stands for its target; one that leads out is
  // walked under its own name when links are followed, else skipped.
  LinkUse ForLink(const std::string& target) const {
    return Inside(target) ? LinkUse::kTarget : followLinks ? LinkUse::kName : LinkUse::kSkip;
  }
  // Whether a file is ignored because a directory of its path starts with ".": every directory
  // of the path, or only those below the folder.
  bool UnderDot(const std::string& path) const {
    if (!dotBelowOnly) return UnderDotDirectory(path);
    for (const std::string* prefix : {&folder, &real}) {
      if (!prefix->empty() && path.compare(0, prefix->size(), *prefix) == 0) {
        return UnderDotDirectory(path.substr(prefix->size()));
      }
    }
    return UnderDotDirectory(path);
  }
};

}  // namespace

// The list of delivered entries, indexed by key: an entry is found by its path's bytes without
// touching the disk, and the list keeps the order of delivery.
class VHotfolder::Listing {
 public:
  struct Entry {
    std::list<VHFItem>::iterator item;
    uint64_t ticket;  // distinct for every entry ever listed here
    uint64_t seen;    // the latest scan that found it
    bool directory;   // a sub-directory in group-folders mode, named with a final "/"
  };

  explicit Listing(std::list<VHFItem>& list) : list_(list) {}

  size_t size() const { return index_.size(); }
  uint64_t NextScan() { return ++scans_; }
  uint64_t LastTicket() const { return tickets_; }
  Entry* Find(std::string_view key) {
    const auto it = index_.find(key);
    return it == index_.end() ? nullptr : &it->second;
  }
  const Entry& Add(const VHFItem& item, bool directory, uint64_t scan) {
    list_.push_back(item);
    const Entry entry{std::prev(list_.end()), ++tickets_, scan, directory};
    return index_.emplace(Key(list_.back()), entry).first->second;
  }
  void Erase(std::string_view key) {
    const auto it = index_.find(key);
    if (it == index_.end()) return;
    const auto item = it->second.item;
    index_.erase(it);
    list_.erase(item);
  }
  // Erases every entry for which `drop(key, entry)` is true.
  template <typename Drop>
  void EraseIf(Drop drop) {
    for (auto it = index_.begin(); it != index_.end();) {
      if (drop(it->first, it->second)) {
        const auto item = it->second.item;
        it = index_.erase(it);
        list_.erase(item);
      } else {
        ++it;
      }
    }
  }
  void Clear() {
    index_.clear();
    list_.clear();
  }

 private:
  std::list<VHFItem>& list_;
  std::unordered_map<std::string_view, Entry> index_;  // keys point into the list's items
  uint64_t tickets_ = 0;
  uint64_t scans_ = 0;
};

// One scan of one folder, in two phases. Phase one runs during the walk: an entry already in
// the list is marked found; a new one gets its availability test and first size reading. Phase
// two takes each candidate's second size once 500 ms have passed since its first, and delivers,
// in the order the walk found the candidates (the first readings of one walk come within
// moments of each other, so its candidates share one wait). Delivering lists an entry and
// queues its callback, which the hot folder makes once the scan has let go of its locks. While
// it waits, a scan told of new changes (wake on change) walks the folder again and takes the new
// candidates along, for a while. A sub-directory in group-folders mode is scanned as a folder of
// its own (files only, not recursive, a list of its own that starts empty) nested in its
// parent's phases. An idle scan (every entry listed) costs a listing, a hash lookup and two
// filtered traces per entry.
class VHotfolder::Scan : public vantu::internal::DirectoryVisitor {
 public:
  using Clock = std::chrono::steady_clock;
  // Waits until the deadline or until changes are reported; true for changes.
  using Waiter = std::function<bool(Clock::time_point deadline)>;

  // A callback to make once the scan is over, unless the entry left the list meanwhile.
  struct Delivery {
    std::string key;
    uint64_t ticket;
    bool directory;
  };

  // The scan stops early once `stopping` or `cancel` (either may be null) is set.
  Scan(Listing& listing, const Rules& rules, bool groupFolders, const std::atomic<bool>* stopping,
       const std::atomic<bool>* cancel = nullptr)
      : rules_(rules),
        listing_(listing),
        serial_(listing.NextScan()),
        lastTicket_(listing.LastTicket()),
        groupFolders_(groupFolders),
        stopping_(stopping),
        cancel_(cancel) {}

  // Phase one over the folder's entries.
  void Walk(const std::string& folder, bool recursive) {
    folder_ = folder;
    recursive_ = recursive;
    try {
      complete_ =
          vantu::internal::WalkDirectory(folder, recursive, 0xFFFFFFFF, groupFolders_, *this) == 0;
    } catch (...) {
      complete_ = false;
    }
  }

  std::vector<Delivery>& deliveries() { return deliveries_; }
  // When the last candidate may have its second reading.
  Clock::time_point LastDeadline() const {
    return pending_.empty() ? Clock::time_point() : pending_.back().deadline;
  }

  // Phase two. `wait` (may be empty: sleep) waits for each candidate's deadline.
  void Deliver(const Waiter& wait = nullptr) {
    const auto start = Clock::now();
    for (size_t i = 0; i < pending_.size() && !Stopping(); ++i) {
      while (Clock::now() < pending_[i].deadline && !Stopping()) {
        if (!wait) {
          std::this_thread::sleep_for(
              std::chrono::ceil<std::chrono::milliseconds>(pending_[i].deadline - Clock::now()));
        } else if (wait(pending_[i].deadline) && !Stopping() &&
                   Clock::now() - start < kLongestExtension) {
          Rewalk();  // new candidates join the end of the queue
        }
      }
      if (Stopping()) break;
      Pending& pending = pending_[i];
      if (pending.sub) {
        pending.sub->scan->Deliver();
        if (pending.sub->scan->Finish() == 1) Add(pending.item, 175, true);
        continue;
      }
      const uint64_t size2 = pending.item.file.GetSize();
      if (size2 > pending.size1 || size2 == 0) {
        VANTU_SCAN_TRACE(227).Format(
            "File %s is not complete (%llu > %llu)", Key(pending.item).c_str(),
            static_cast<unsigned long long>(size2), static_cast<unsigned long long>(pending.size1));
        continue;
      }
      Add(pending.item, 208, false);
    }
  }

  // Drops the entries listed before the scan that neither its walk nor a later scan's found
  // (entries under a folder that could not be listed stay), and returns the scan's result.
  int Finish() {
    if (!complete_) return 0;  // a stopped scan forgets nothing
    listing_.EraseIf([this](std::string_view key, const Listing::Entry& entry) {
      return entry.ticket <= lastTicket_ && entry.seen < serial_ && !UnderUnreadable(key);
    });
    return (listing_.size() == found_ && found_ != 0) ? 1 : 0;
  }

  int Visit(const std::string& path, bool directory) override {
    if (Stopping()) return 1;
    if (path.size() > vantu::platform::LongestPath()) {
      TooLong(path);
      return 0;
    }
    if (directory) {
      if (DotName(path)) return 0;
    } else if (!groupFolders_ && rules_.UnderDot(path)) {
      return 0;
    }
    Listing::Entry* listed = listing_.Find(path);
    if (listed != nullptr) listed->seen = std::max(listed->seen, serial_);
    // A second walk takes only what the first did not: new entries, and entries not ready.
    if (rewalking_ && (listed != nullptr || pendingKeys_.count(path) != 0)) return 0;
    ++found_;
    VANTU_SCAN_TRACE(146).Format("Checking file %s", path.c_str());
    if (listed != nullptr) {
      VANTU_SCAN_TRACE(160).Format("File %s found in the list", path.c_str());
      return 0;
    }
    if (pendingKeys_.count(path) != 0) return 0;  // found twice through links
    VHFItem item = ItemAt(path);
    if (directory) {
      std::vector<std::string> names;
      item.file.List(names);
      for (const std::string& n : names) item.contents.emplace_back(VPath::FromFileSystem(n));
      auto sub = std::make_unique<SubFolder>();
      sub->scan = std::make_unique<Scan>(sub->listing, rules_, false, nullptr);
      sub->scan->Walk(path, false);
      const Clock::time_point deadline = sub->scan->LastDeadline();
      pendingKeys_.insert(path);
      pending_.push_back({std::move(item), 0, deadline, std::move(sub)});
      return 0;
    }
    if (!item.file.IsAvailable(true, false)) {
      VANTU_SCAN_TRACE(233).Format("File %s is not available", path.c_str());
      return 0;
    }
    const uint64_t size1 = item.file.GetSize();
    pendingKeys_.insert(path);
    pending_.push_back({std::move(item), size1, Clock::now() + kStabilityWait, nullptr});
    return 0;
  }

  LinkUse Link(const std::string& path, const std::string& target) override {
    const LinkUse use = rules_.ForLink(target);
    if (use == LinkUse::kSkip) {
      VANTU_SCAN_TRACE(236).Format("Skipping %s: the link leads outside the folder, to %s",
                                   path.c_str(), target.c_str());
    }
    return use;
  }

  bool Unreadable(const std::string& path, int error) override {
    if (error == ENAMETOOLONG) TooLong(path);
    // A folder that is gone takes its entries with it; one that cannot be read keeps them.
    if (error != ENOENT && error != ENOTDIR) unreadable_.push_back(path + "/");
    return true;
  }

 private:
  struct SubFolder {
    std::list<VHFItem> list;
    Listing listing{list};
    std::unique_ptr<Scan> scan;
  };
  struct Pending {
    VHFItem item;
    uint64_t size1;
    Clock::time_point deadline;  // of the second reading
    std::unique_ptr<SubFolder> sub;
  };

  // What lies at such a path cannot be reached: never delivered, and said at warning level with
  // the watched folder and the path's end (a line holds 2047 bytes).
  void TooLong(const std::string& path) const {
    const std::string folder = rules_.folder.substr(0, rules_.folder.size() - 1);
    VLOG_AT(WARNING, kSource, 238, kScanFunction)
        .Format("Skipping a path of %zu bytes in %s, longer than the system accepts: ...%s",
                path.size(), folder.c_str(), path.substr(path.size() - 200).c_str());
  }

  bool Stopping() const {
    return (stopping_ != nullptr && stopping_->load()) || (cancel_ != nullptr && cancel_->load());
  }

  // Walks the folder again for entries that changed since the first walk.
  void Rewalk() {
    rewalking_ = true;
    try {
      vantu::internal::WalkDirectory(folder_, recursive_, 0xFFFFFFFF, groupFolders_, *this);
    } catch (...) {
    }
    rewalking_ = false;
  }

  bool UnderUnreadable(std::string_view key) const {
    for (const std::string& folder : unreadable_) {
      if (key.substr(0, folder.size()) == folder) return true;
    }
    return false;
  }

  void Add(const VHFItem& entry, int addingLine, bool directory) {
    const std::string& path = Key(entry);
    if (listing_.Find(path) != nullptr) return;
    VLOG_AT(INFO, kSource, addingLine, kScanFunction).Format("Adding %s to the list", path.c_str());
    deliveries_.push_back({path, listing_.Add(entry, directory, serial_).ticket, directory});
  }

  const Rules& rules_;
  Listing& listing_;
  const uint64_t serial_;      // later scans have greater serials
  const uint64_t lastTicket_;  // of the entries listed before the scan
  std::vector<Delivery> deliveries_;
  std::unordered_set<std::string> pendingKeys_;
  std::vector<Pending> pending_;
  std::vector<std::string> unreadable_;  // folders that could not be listed, ending in "/"
  std::string folder_;
  bool recursive_ = false;
  size_t found_ = 0;
  bool complete_ = false;
  bool rewalking_ = false;
  const bool groupFolders_;
  const std::atomic<bool>* stopping_;
  const std::atomic<bool>* cancel_;
};

// Wakes a hot folder early. One thread watches the folder (and the sub-folders a scan reads)
// for entries closed after writing, moved in or deleted; once a burst of changes is over it
// tells a scan that is waiting (which then takes the new files along) and asks its second
// thread for a scan.
class VHotfolder::Watcher {
 public:
  explicit Watcher(VHotfolder& folder)
      : folder_(folder), reader_([this] { WatchChanges(); }), scanner_([this] { RunScans(); }) {}
  ~Watcher() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    notifier_.Interrupt();
    requested_.notify_one();
    folder_.ReportChanges();  // a wake-up scan waiting for second readings ends now
    g_callbackGate.Wake();    // and one waiting to call back gives up
    reader_.join();
    scanner_.join();
  }

 private:
  struct Settings {
    std::string path;
    bool recursive;
    bool groupFolders;
    bool followLinks;
    bool operator==(const Settings& other) const {
      return path == other.path && recursive == other.recursive &&
             groupFolders == other.groupFolders && followLinks == other.followLinks;
    }
  };

  // Watches every directory a scan of `path` reads, except those under a "." directory.
  class DirectoryAdder : public vantu::internal::DirectoryVisitor {
   public:
    DirectoryAdder(vantu::platform::ChangeNotifier& notifier, const Rules& rules)
        : notifier_(notifier), rules_(rules) {}
    int Visit(const std::string& path, bool directory) override {
      if (directory && Enter(path)) notifier_.Watch(path);
      return 0;
    }
    bool Enter(const std::string& path) override { return !DotName(path); }
    LinkUse Link(const std::string&, const std::string& target) override {
      return rules_.ForLink(target);
    }
    bool Unreadable(const std::string&, int) override { return true; }

   private:
    vantu::platform::ChangeNotifier& notifier_;
    const Rules& rules_;
  };

  Settings Current() const {
    return {PathBytes(folder_.GetPath()), folder_.recursive_.load(), folder_.groupFolders_.load(),
            folder_.followLinks_.load()};
  }

  // Watches the directories below `directory`, `depth` levels down.
  void WatchBelow(const std::string& directory, unsigned depth) {
    if (depth == 0) return;
    DirectoryAdder adder(notifier_, rules_);
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
    rules_ = Rules(armed_.path, armed_.followLinks, false);
    notifier_.Reset();
    watching_ = notifier_.Watch(armed_.path);
    if (watching_) WatchBelow(armed_.path, Depth(armed_));
  }

  void WatchChanges() {
    Arm();
    while (!stop_) {
      auto events = notifier_.Wait(kWatcherTick);
      if (stop_) break;
      if (!watching_ || events.lostWatch || !(Current() == armed_)) {
        Arm();
        // A folder watched anew (made again, or another one) may hold files already: no event
        // will announce them.
        if (watching_) RequestScan();
      }
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
      folder_.ReportChanges();
      RequestScan();
    }
  }

  void RequestScan() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      scanRequested_ = true;
    }
    requested_.notify_one();
  }

  void RunScans() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      requested_.wait(lock, [this] { return scanRequested_ || stop_; });
      if (stop_) return;
      scanRequested_ = false;
      lock.unlock();
      try {
        folder_.RunScan(&stop_);
      } catch (...) {
        // A scan never lets an exception escape into the watcher's thread.
      }
      lock.lock();
    }
  }

  VHotfolder& folder_;
  vantu::platform::ChangeNotifier notifier_;
  Settings armed_;
  Rules rules_;
  bool watching_ = false;  // the folder itself is watched
  std::mutex mutex_;
  std::condition_variable requested_;
  bool scanRequested_ = false;
  std::atomic<bool> stop_{false};
  // Last: they start once everything else is ready.
  std::thread reader_;
  std::thread scanner_;
};

void VHotfolder::ReportChanges() {
  {
    std::lock_guard<std::mutex> lock(changeMutex_);
    changed_ = true;
  }
  changeCv_.notify_all();
}

bool VHotfolder::WaitForChanges(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock<std::mutex> lock(changeMutex_);
  changeCv_.wait_until(lock, deadline, [this] { return changed_ || stopping_; });
  const bool changed = changed_;
  changed_ = false;
  return changed;
}

VHotfolder::VHotfolder()
    : listMutex_(std::make_unique<std::recursive_mutex>()),
      listing_(std::make_unique<Listing>(fileList_)) {
  timer_.SetCallback(&VHotfolder::OnTimer, this);
}

VHotfolder::VHotfolder(const VHotfolder& other)
    : VBaseObject(other),
      listMutex_(std::make_unique<std::recursive_mutex>()),
      listing_(std::make_unique<Listing>(fileList_)) {
  timer_.SetCallback(&VHotfolder::OnTimer, this);
  CopyFrom(other);
}

VHotfolder& VHotfolder::operator=(const VHotfolder& other) {
  Assign(other);
  return *this;
}

VHotfolder::~VHotfolder() { Stop(); }

void VHotfolder::Assign(const VHotfolder& other) {
  if (this != &other) CopyFrom(other);
}

void VHotfolder::CopyFrom(const VHotfolder& other) {
  SetPath(other.GetPath());
  groupFolders_ = other.groupFolders_.load();
  recursive_ = other.recursive_.load();
  period_ = other.period_.load();
  {
    std::shared_ptr<const Handler> handler;
    Callback callback = nullptr;
    {
      std::lock_guard<std::mutex> lock(other.handlerMutex_);
      handler = other.handler_;
      callback = other.callback_;
    }
    if (handler) handler = std::make_shared<const Handler>(*handler);
    std::lock_guard<std::mutex> lock(handlerMutex_);
    callback_ = callback;
    handler_.swap(handler);
  }  // the replaced callable goes here, with no lock held
  userData_ = other.userData_.load();
  enabled_ = other.enabled_.load();
  stopping_ = other.stopping_.load();
  wakeOnChange_ = other.wakeOnChange_.load();
  followLinks_ = other.followLinks_.load();
  dotBelowOnly_ = other.dotBelowOnly_.load();
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
bool VHotfolder::GetFollowLinks() const { return followLinks_; }
bool VHotfolder::GetDotRuleBelowFolderOnly() const { return dotBelowOnly_; }

void VHotfolder::SetPath(const VPath& path) {
  std::lock_guard<std::mutex> lock(pathMutex_);
  path_ = path;
}
void VHotfolder::SetTimeMilliseconds(int milliseconds) { period_ = milliseconds; }
void VHotfolder::SetRecursive(bool recursive) { recursive_ = recursive; }
void VHotfolder::SetGroupFolders(bool groupFolders) { groupFolders_ = groupFolders; }
void VHotfolder::SetCallback(Callback callback) {
  std::shared_ptr<const Handler> replaced;
  std::lock_guard<std::mutex> lock(handlerMutex_);
  callback_ = callback;
  handler_.swap(replaced);
}
void VHotfolder::SetCallback(Handler handler) {
  std::shared_ptr<const Handler> replaced =
      handler ? std::make_shared<const Handler>(std::move(handler)) : nullptr;
  std::lock_guard<std::mutex> lock(handlerMutex_);
  callback_ = nullptr;
  handler_.swap(replaced);
}
void VHotfolder::SetUserData(void* userData) { userData_ = userData; }
void VHotfolder::SetFollowLinks(bool follow) { followLinks_ = follow; }
void VHotfolder::SetDotRuleBelowFolderOnly(bool belowOnly) { dotBelowOnly_ = belowOnly; }

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
  ReportChanges();        // a scan waiting for its second readings ends now
  g_callbackGate.Wake();  // and one waiting to call back gives up
  StopWatcher();
  timer_.Stop();
  {
    // Scans that other threads run themselves; this thread's own (a callback stopping its own
    // hot folder) end when the callback returns.
    std::unique_lock<std::mutex> lock(scansMutex_);
    scansDone_.wait(lock, [this] {
      return std::count(scanThreads_.begin(), scanThreads_.end(), std::this_thread::get_id()) ==
             static_cast<std::ptrdiff_t>(scanThreads_.size());
    });
  }
  std::lock_guard<std::recursive_mutex> lock(*listMutex_);
  listing_->Clear();
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
    static_cast<VHotfolder*>(self)->RunScan(nullptr);
  } catch (...) {
    // A scan never lets an exception escape into the timer's or the watcher's thread.
  }
  return 0;
}

int VHotfolder::CheckFolderChanges() { return RunScan(nullptr); }

int VHotfolder::RunScan(const std::atomic<bool>* cancel) {
  // Counted, so that Stop and the destructor wait for the scan, callbacks included.
  struct Counted {
    VHotfolder& folder;
    explicit Counted(VHotfolder& f) : folder(f) {
      std::lock_guard<std::mutex> lock(folder.scansMutex_);
      folder.scanThreads_.push_back(std::this_thread::get_id());
    }
    ~Counted() {
      std::lock_guard<std::mutex> lock(folder.scansMutex_);
      folder.scanThreads_.erase(std::find(folder.scanThreads_.begin(), folder.scanThreads_.end(),
                                          std::this_thread::get_id()));
      folder.scansDone_.notify_all();
    }
  } counted(*this);
  // The folder as UTF8 file-system bytes, so that the entries keep the exact bytes of their names.
  const std::string folder = PathBytes(GetPath());
  std::shared_ptr<const Handler> handler;
  Callback callback = nullptr;
  {
    std::lock_guard<std::mutex> lock(handlerMutex_);
    handler = handler_;
    callback = callback_;
  }
  const bool calling = handler || callback != nullptr;
  void* const userData = userData_;
  const auto halted = [this, cancel] { return stopping_ || (cancel != nullptr && *cancel); };
  // The queued callbacks, made with no lock of this hot folder held, so that a callback may use
  // any hot folder. An entry that left the list meanwhile (Remove, Stop, another scan) is not
  // called back.
  std::vector<Scan::Delivery> deliveries;
  size_t called = 0;
  const auto callBack = [&] {
    for (; called < deliveries.size() && calling && !halted(); ++called) {
      const Scan::Delivery& delivery = deliveries[called];
      if (!g_callbackGate.Enter(halted)) break;
      struct Leave {
        ~Leave() { g_callbackGate.Leave(); }
      } leave;
      {
        std::lock_guard<std::recursive_mutex> lock(*listMutex_);
        const Listing::Entry* entry = listing_->Find(delivery.key);
        if (entry == nullptr || entry->ticket != delivery.ticket) continue;
      }
      VLOG_AT(INFO, kSource, delivery.directory ? 181 : 214, kScanFunction)
          .Format("Calling callback for file %s", delivery.key.c_str());
      const std::string path = delivery.directory ? delivery.key + "/" : delivery.key;
      try {
        if (handler) {
          (*handler)(std::string_view(path));
        } else {
          callback(path.c_str(), static_cast<int>(path.size()), userData);
        }
      } catch (...) {
        // A callback's exception must not end the scan; its result is ignored anyway.
      }
    }
  };
  std::unique_lock<std::recursive_mutex> listed(*listMutex_);
  {
    std::lock_guard<std::mutex> changes(changeMutex_);
    changed_ = false;  // this scan's walk sees them
  }
  const Rules rules(folder, followLinks_, dotBelowOnly_);
  Scan scan(*listing_, rules, groupFolders_, &stopping_, cancel);
  scan.Walk(folder, recursive_);
  // While it waits for second readings the scan lets go of the list (Remove, other scans may
  // come in) and calls back what it has delivered so far.
  scan.Deliver([&](Scan::Clock::time_point deadline) {
    std::move(scan.deliveries().begin(), scan.deliveries().end(), std::back_inserter(deliveries));
    scan.deliveries().clear();
    listed.unlock();
    callBack();
    const bool changed = WaitForChanges(deadline);
    listed.lock();
    return changed;
  });
  const int result = scan.Finish();
  std::move(scan.deliveries().begin(), scan.deliveries().end(), std::back_inserter(deliveries));
  listed.unlock();
  callBack();
  if (called < deliveries.size() && calling) {
    // Stopped before calling these back: they leave the list, so that a later scan delivers them.
    listed.lock();
    for (; called < deliveries.size(); ++called) {
      const Listing::Entry* entry = listing_->Find(deliveries[called].key);
      if (entry != nullptr && entry->ticket == deliveries[called].ticket) {
        listing_->Erase(deliveries[called].key);
      }
    }
  }
  return result;
}

void VHotfolder::Remove(const VFile& file, bool keepFile) {
  const std::string given = PathBytes(file.GetPath());
  VANTU_REMOVE_TRACE(447).Format("Removing %s", given.c_str());
  // A sub-directory is named in directory form, with a final "/".
  const bool directory = given.size() > 1 && given.back() == '/';
  const std::string_view key(given.data(), given.size() - (directory ? 1 : 0));
  std::lock_guard<std::recursive_mutex> lock(*listMutex_);
  const Listing::Entry* entry = listing_->Find(key);
  if (entry == nullptr || entry->directory != directory) return;
  VANTU_REMOVE_TRACE(464).Format("Removing %s, found in the list", given.c_str());
  listing_->Erase(key);
  if (keepFile) return;
  VANTU_REMOVE_TRACE(474).Format("Deleting %s", given.c_str());
  // Relative to the watched folder, through descriptors that follow no link: the entry's path
  // below the folder as given, or below its resolved path (where links inside lead).
  const Rules rules(PathBytes(GetPath()), false, false);
  int error = EINVAL;
  std::string failed;
  for (const std::string* root : {&rules.folder, &rules.real}) {
    if (!root->empty() && key.size() > root->size() && key.compare(0, root->size(), *root) == 0) {
      error = vantu::platform::RemoveBelow(*root, std::string(key.substr(root->size())), directory,
                                           failed);
      break;
    }
  }
  if (error != 0) VANTU_REMOVE_TRACE(483).Format("Error deleting file %s", given.c_str());
}
