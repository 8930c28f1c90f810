#ifndef VANTU_PLATFORM_CHANGENOTIFIER_H
#define VANTU_PLATFORM_CHANGENOTIFIER_H

#include <string>
#include <utility>
#include <vector>

namespace vantu::platform {

// Change notification on directories (inotify): which entries were closed after writing, moved
// in or out, created or deleted. A file system that reports nothing (NFS changes made elsewhere)
// simply sends no events.
class ChangeNotifier {
 public:
  // What one Wait brought.
  struct Events {
    bool changed = false;    // an entry of a watched directory changed
    bool overflow = false;   // events were lost: anything may have changed
    bool lostWatch = false;  // the first directory watched since Reset went away or moved
    std::vector<std::string> newDirectories;  // directories created or moved in, full paths
  };

  ChangeNotifier();
  ~ChangeNotifier();
  ChangeNotifier(const ChangeNotifier&) = delete;
  ChangeNotifier& operator=(const ChangeNotifier&) = delete;

  // False when the system offers no notification (then nothing is ever reported).
  bool Valid() const { return fd_ >= 0; }
  // Starts watching a directory; false when it cannot be watched (limits, permissions).
  bool Watch(const std::string& directory);
  // Forgets every watch.
  void Reset();
  // Waits up to `timeoutMs` milliseconds (or until Interrupt) and returns the events read.
  Events Wait(int timeoutMs);
  // Makes the current or next Wait return at once; callable from any thread.
  void Interrupt();

 private:
  int fd_ = -1;
  int wake_ = -1;                                     // an eventfd for Interrupt
  std::vector<std::pair<int, std::string>> watches_;  // watch descriptor, directory
};

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_CHANGENOTIFIER_H
