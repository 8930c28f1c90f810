// What the scans hand to the main thread, the stop request and the running command, shared by
// the scans, the main thread and the signal thread.
#ifndef VANTU_TOOLS_HOTFOLDER_SESSION_H
#define VANTU_TOOLS_HOTFOLDER_SESSION_H

#include <spawn.h>
#include <sys/types.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

namespace hotfolder {

// One thing the scans hand to the main thread.
struct Item {
  std::string text;
  bool delivery;             // a delivered path; else a note on a waiting file
  std::string claimed = {};  // a file found in the claim folder at start (text is empty)
};

class Session {
 public:
  void Push(Item item);
  // No more items will come (--once).
  void Finish();
  // Waits for the next item; false once stopped, or finished and drained.
  bool Take(Item& item);
  // Asks for a stop (signal 0: the output failed) and passes the signal on to the running
  // command when `forward`. The first request's signal is kept.
  void Stop(int signal, bool forward);
  bool Stopping();
  int StopSignal();
  // Starts a command unless a stop was asked for: posix_spawnp's result, or ECANCELED.
  int Spawn(char* const argv[], const posix_spawnattr_t* attributes, pid_t& child);
  // The command has ended (not reaped yet, so its pid cannot be reused meanwhile).
  void Ended();

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Item> items_;
  bool finished_ = false;
  bool stopped_ = false;
  int signal_ = 0;
  pid_t child_ = 0;
};

extern Session g_session;
extern bool g_failed;  // main thread only

// The hot folder's callback: queues the delivered path.
int OnDelivery(const char* path, int length, void*);

}  // namespace hotfolder

#endif  // VANTU_TOOLS_HOTFOLDER_SESSION_H
