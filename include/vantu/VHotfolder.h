// VHotfolder: watches one directory and hands each complete arriving file to a callback, once.
//
// On a periodic timer (first scan one second after Start, then every period) a scan walks the
// directory (recursively if asked), and for each entry not yet delivered checks that no process
// holds it open for writing, that it is not empty, and that its size did not grow between two
// readings at least 500 ms apart. A complete entry is appended to the file list and the callback
// receives its path (UTF-8 bytes as the file system names it, NUL-terminated), the path's length
// and the user data. In group-folders mode a sub-directory is one entry, delivered (its path ending
// in "/") once every file directly inside it is complete in the same scan. A scan takes the first
// size of every candidate as it walks, then each candidate's second size once 500 ms have passed
// since its first, and delivers: it waits about 500 ms however many files it checks. An entry
// already delivered costs a scan its listing and one lookup. A scan lists what it delivers, then
// calls back (in the order the walk found the entries) while it waits for further readings and
// at its end, holding no lock of the hot folder; an entry that left the list before its callback
// came (Remove, Stop) is not called back. All callbacks of all hot folders of the process are
// serialised by one recursive lock, so a callback may itself scan or Remove on any hot folder.
//
// The callback is either the classic function pointer with its user data (SetCallback(Callback),
// SetUserData) or a callable (SetCallback(Handler)): the one set last is called, the other is
// cleared (GetHolfoderCbFn() is null while a callable is set). A callable receives the path's
// bytes as a std::string_view (valid during the call, NUL-terminated after its end); its result
// is ignored, as the pointer's. The hot folder owns a copy of it (copies and CopyFrom copy it
// too) and destroys it when it is replaced or the hot folder goes. Either kind runs on the
// scanning thread (the timer's pool thread, the watcher's, or the caller of
// CheckFolderChanges) under the process-wide callback lock. Each scan takes the callback once, at
// its start: setting another one, from any thread or from inside a callback, applies from the
// next scan, and the replaced callable lives until the scans using it have ended.
//
// Entries under a directory whose name starts with "." are ignored. By default every directory
// of the path counts, also those above the watched folder: a folder that lies below a "."
// directory delivers nothing (in group-folders mode only its own files, never a sub-directory).
// SetDotRuleBelowFolderOnly(true) applies the rule to the names below the watched folder only.
//
// A hot folder never delivers, nor deletes, anything whose resolved location lies outside its
// watched folder: a symbolic link whose target lies inside stands for its target (delivered
// under the target's path); one that leads out is skipped and traced ("Skipping <link>: the link
// leads outside the folder, to <target>"). SetFollowLinks(true), for trusted folders, delivers
// outside targets too, under the link's own path (a linked directory's files under the link's
// name).
//
// The file list is the hot folder's only memory: an entry stays in it, and is not delivered
// again, for as long as every scan finds it. An entry that disappears drops out of the list and
// is delivered again if it comes back. Remove takes an entry out of the list (and, unless asked
// to keep it, deletes it); a file taken out of the list but left on the disk is therefore
// delivered again at the next scan. Remove finds the entry by its path's bytes, without touching
// the disk: a path that is not listed costs one hash lookup. Stop empties the list, so a later
// Start delivers again everything still there.
//
// With SetWakeOnChange(true) the hot folder also watches its folder (and the sub-folders a scan
// reads) for entries closed after writing, moved in or deleted, and runs a scan soon after a
// burst of such changes; a scan that is waiting for its second readings when changes come walks
// again and takes the new files along (for up to 30 s), so a file is delivered about half a
// second after its writer closed it, also in a steady stream. The periodic scan stays as the safety
// net for what notification misses: overflowed event queues, network file systems that report
// nothing, folders that could not be watched.
//
// Every step is traced at level "INFO" through VLogMessage into the current log. Nothing is
// thrown out of a scan or out of Remove; a missing folder gives an empty scan. A recursive scan
// that cannot read a sub-folder keeps the entries it delivered under it.
//
// Thread safety: scans run on a pool thread (or the watcher's thread, or the caller's); scans of
// one hot folder take turns on its list, each letting go of it while it waits for second
// readings and while it calls back. Every operation of every hot folder may be called from any
// thread and from inside any callback, with these exceptions: Stop, SetWakeOnChange(false) and
// the destructor wait for the hot folder's scans in progress (a scan waiting to call back gives
// up, and what it has not called back is delivered by a later scan), so they must not be called
// from inside this hot folder's own callback.
#ifndef VANTU_VHOTFOLDER_H
#define VANTU_VHOTFOLDER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VFile.h>
#include <vantu/VHFItem.h>
#include <vantu/VPath.h>
#include <vantu/VTimer.h>

class VANTU_API VHotfolder : public VBaseObject {
 public:
  using Callback = int (*)(const char* path, int length, void* userData);
  // The callable form of the callback (see above).
  using Handler = std::function<int(std::string_view path)>;

  VHotfolder();
  // Copies the settings (CopyFrom), not the list, the timer or the mutex.
  VHotfolder(const VHotfolder& other);
  VHotfolder& operator=(const VHotfolder& other);
  // Sets the stopping flag, stops the timer (waiting for a scan in progress), empties the list.
  ~VHotfolder() override;

  // Slot 3: CopyFrom(other) unless other is this object.
  virtual void Assign(const VHotfolder& other);
  // Slot 4: copies path, group folders, recursive, period, callback, user data, enabled,
  // stopping, wake-on-change, follow-links and the dot rule; never the list, the timer, the watcher
  // or the mutex.
  virtual void CopyFrom(const VHotfolder& other);

  // The live list of delivered entries, in delivery order. Lock-free access races with scans:
  // read it from the callback, or while the hot folder is stopped; never change it.
  std::list<VHFItem>* GetFileList();
  bool GetGroupFolders() const;
  Callback GetHolfoderCbFn() const;
  VPath GetPath() const;
  bool GetRecursive() const;
  long GetTimeMilliseconds() const;
  // A copy of the timer, which owns no timer of its own.
  VTimer GetTimer() const;
  void* GetUserData() const;
  // Stored and reported only; no scan reads it.
  void Enable(bool enabled);
  bool isEnabled() const;

  void SetPath(const VPath& path);
  void SetTimeMilliseconds(int milliseconds);
  void SetRecursive(bool recursive);
  void SetGroupFolders(bool groupFolders);
  void SetCallback(Callback callback);
  // Replaces the callback (and a classic pointer set before) by a copy of `handler`; an empty
  // one leaves no callback.
  void SetCallback(Handler handler);
  void SetUserData(void* userData);
  // Delivers what links that lead outside the folder point to (see above); off by default.
  void SetFollowLinks(bool follow);
  bool GetFollowLinks() const;
  // Ignores entries under "." directories below the watched folder only (see above); off by
  // default.
  void SetDotRuleBelowFolderOnly(bool belowOnly);
  bool GetDotRuleBelowFolderOnly() const;
  // Wakes a scan early when entries change (see above); off by default. Takes effect at once.
  void SetWakeOnChange(bool wake);
  bool GetWakeOnChange() const;

  // Starts scanning: the first scan one second later, then every period. On a running hot folder
  // only the period changes (from the end of the current interval); the list is kept.
  void Start();
  // Stops scanning (waiting for the scans in progress) and empties the list.
  void Stop();
  // One scan. Returns 1 when the list now holds exactly as many entries as the scan found and
  // that number is not 0, else 0.
  int CheckFolderChanges();
  // Takes the entry whose path text equals the file's (a directory's in directory form) out of
  // the list and, unless keepFile, deletes it from the disk (a directory with its content),
  // relative to the watched folder and following no link: a link is deleted itself, never its
  // target, and nothing is deleted where a link (also one swapped in since the delivery) stands
  // on the way down from the folder.
  // Failures are logged, never thrown. A kept file that stays on the disk is delivered again at
  // the next scan: the list is the hot folder's only memory. Called during a scan, it waits
  // while the scan reads the folder, not while the scan waits for second readings or calls back.
  void Remove(const VFile& file, bool keepFile);

 private:
  class Listing;
  class Scan;
  class Watcher;
  static int OnTimer(void* self);
  // One scan; a set `cancel` (may be null) ends it early, as Stop does.
  int RunScan(const std::atomic<bool>* cancel);
  void StopWatcher();
  // The watcher tells a waiting scan of changes; a scan waits for its deadline or for them.
  void ReportChanges();
  bool WaitForChanges(std::chrono::steady_clock::time_point deadline);

  // Settings may change from any thread while a scan runs; each scan reads them once.
  std::list<VHFItem> fileList_;
  // Guards fileList_ and listing_. A scan holds it except while it waits for second readings and
  // while it calls back, so scans of one folder take turns.
  std::unique_ptr<std::recursive_mutex> listMutex_;
  std::unique_ptr<Listing> listing_;  // fileList_ indexed by path
  mutable std::mutex pathMutex_;      // guards path_
  VPath path_;
  std::atomic<int> period_{10000};
  std::atomic<Callback> callback_{nullptr};
  std::atomic<void*> userData_{nullptr};
  std::atomic<bool> enabled_{false};
  VTimer timer_;
  std::atomic<bool> recursive_{false};
  std::atomic<bool> groupFolders_{false};
  std::atomic<bool> stopping_{false};
  std::atomic<bool> wakeOnChange_{false};
  std::atomic<bool> followLinks_{false};
  std::atomic<bool> dotBelowOnly_{false};
  std::mutex watcherMutex_;  // guards watcher_ and running_
  std::unique_ptr<Watcher> watcher_;
  bool running_ = false;
  std::mutex scansMutex_;  // guards scanThreads_
  std::condition_variable scansDone_;
  std::vector<std::thread::id> scanThreads_;  // of the scans in progress
  std::mutex changeMutex_;                    // guards changed_
  std::condition_variable changeCv_;
  bool changed_ = false;
  mutable std::mutex handlerMutex_;  // guards handler_, and callback_ against a torn pair
  std::shared_ptr<const Handler> handler_;
};

#endif  // VANTU_VHOTFOLDER_H
