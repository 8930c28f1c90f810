// VLog: the library's rotating text log, written through POCO's logging framework.
//
// A log has a name (by default the executable's base name), a folder (by default
// "<application data>/Tarvik Software/", created by the constructor, one level, when the
// application-data folder exists; nothing above it is ever made) and the file channel's
// "rotation" ("10 M"), "archive" ("number") and "purgeAge" ("24 hours") properties; its file is
// <folder>/<name>.log. Open() builds the channel chain and writes a six-line banner; the first
// message opens the log if Open() was not called. Every later line reads
// "<year>/<month>/<day> - [<weekday>] - <hh>:<mm>:<ss> - <text>" (UTC). Lines are formatted in
// the caller's thread and written by the log's own writer thread; the queue between them is
// bounded, so a producer that outruns the disk waits instead of losing lines. Destroying the
// log (the last copy of an opened log) writes every queued line before it returns.
//
// One log at a time may be the process's current log, used by VLogMessage, VLOG and the hot
// folder; destroying the current log clears the current-log pointer.
//
// Errors: a folder that cannot be created or a file that cannot be written is not reported to
// the caller: the lines are dropped, the caller's thread goes on, and later lines are tried
// again. Open() throws Poco::InvalidArgumentException (from <Poco/Exception.h>) for a rotation,
// archive or purge-age text the file channel refuses.
//
// Thread safety: messages may come from any thread; Open and the message operations may race
// safely. Setters are meant for the set-up, before the log is shared.
#ifndef VANTU_VLOG_H
#define VANTU_VLOG_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VPath.h>
#include <vantu/VString.h>

class VANTU_API VLog : public VBaseObject {
 public:
  VLog();
  // Copies every field, the opened state included; an opened copy writes to the same chain.
  VLog(const VLog& other);
  VLog& operator=(const VLog& other);
  ~VLog() override;

  void SetName(const VString& name);
  void SetFolder(const VPath& folder);
  // POCO priority: 1 fatal, 2 critical, 3 error, 4 warning, 5 notice, 6 information, 7 debug,
  // 8 trace. Messages above it are dropped.
  void SetLevel(int level);
  // rotation = "<count> <word>": unit -1 never, 0 daily, 1 weekly, 2 monthly, 3 hours, 4 days,
  // 5 weeks, 6 months, 7 bytes (empty word), 8 K, 9 M; any other unit days.
  void SetRotation(unsigned count, int unit);
  // 1 gives "timestamp", anything else "number".
  void SetArchive(int mode);
  // purge age = "<count> <word>": unit -1 or 0 minutes, 1 hours, 2 days, 3 weeks, 4 months;
  // any other unit days.
  void SetPurgeAge(unsigned count, int unit);

  VString GetName() const;
  VPath GetFolder() const;
  VString GetRotation() const;
  VString GetArchive() const;
  VString GetPurgeAge() const;
  int GetLevel() const;
  // The file the log writes or will write: the folder (the default one when it is empty), then
  // "<name>.log".
  VPath GetFilePath() const;
  bool IsOpened() const;

  // Builds the channel chain and writes the banner; does nothing when already opened (also
  // after a failed open).
  void Open();
  // Blocks until every line logged before the call is written to the file.
  void Flush();

  // Log the UTF-8 text at one priority, opening the log first if needed.
  void Fatal(const std::string& text);
  void Critical(const std::string& text);
  void Error(const std::string& text);
  void Warning(const std::string& text);
  void Notice(const std::string& text);
  void Information(const std::string& text);
  void Debug(const std::string& text);
  void Trace(const std::string& text);
  // Whether a message at this POCO priority would be written.
  bool IsEnabled(int priority) const;

  // Receives the priority and text of every message the log writes (after the level test, before
  // the date is added), in the thread that logs it; null stops it. Set it before the log is
  // shared; the listener must not log into this log.
  using Listener = void (*)(int priority, const std::string& text, void* context);
  void SetListener(Listener listener, void* context);

  // Makes `log` (may be null) the current log and returns the previous one.
  static VLog* SetCurrent(VLog* log);
  static VLog* GetCurrent();
  static bool isActive();
  // Logs at information priority into the current log, if there is one.
  static void LogCurrent(const std::string& text);
  // Logs into the current log at the priority named: "INFO" and "INFORMATION", "WARNING",
  // "FATAL", "ERROR", "CRITICAL", "NOTICE", "TRACE" (exact, case-sensitive). "DEBUG" and unknown
  // names log nothing.
  static void LogCurrentByLevel(const std::string& levelName, const std::string& text);
  // The POCO priority of a level name as LogCurrentByLevel reads it; 0 for "DEBUG" and unknown
  // names.
  static int PriorityOf(const char* levelName);

 private:
  friend class VLogMessage;
  struct Chain;
  void Log(int priority, const std::string& text);
  // The same with a line the caller gives up: the date goes in front of it in place.
  void Log(int priority, std::string&& text);
  Chain* Ready();
  // Copies every field and shares the chain; the caller holds both mutexes.
  void CopyState(const VLog& other);

  VString name_;
  VPath folder_;
  VString rotation_;
  VString archive_;
  VString purgeAge_;
  int level_ = 8;
  mutable std::mutex mutex_;            // guards opened_ and chain_ while opening and copying
  bool opened_ = false;                 // set before the first step that may fail
  std::shared_ptr<Chain> chain_;        // shared by the copies of an opened log
  std::atomic<Chain*> ready_{nullptr};  // chain_.get() once opened, read without the lock
  std::atomic<Listener> listener_{nullptr};
  void* listenerContext_ = nullptr;
};

#endif  // VANTU_VLOG_H
