#include "platform/ChangeNotifier.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vantu::platform {

ChangeNotifier::ChangeNotifier()
    : fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
      wake_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (wake_ < 0 && fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
}

ChangeNotifier::~ChangeNotifier() {
  if (fd_ >= 0) ::close(fd_);
  if (wake_ >= 0) ::close(wake_);
}

bool ChangeNotifier::Watch(const std::string& directory) {
  if (fd_ < 0) return false;
  constexpr uint32_t kMask = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE |
                             IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
  const int wd = ::inotify_add_watch(fd_, directory.c_str(), kMask);
  if (wd < 0) return false;
  for (auto& watch : watches_) {
    if (watch.first == wd) {
      watch.second = directory;
      return true;
    }
  }
  watches_.emplace_back(wd, directory);
  return true;
}

void ChangeNotifier::Reset() {
  for (const auto& watch : watches_) ::inotify_rm_watch(fd_, watch.first);
  watches_.clear();
}

ChangeNotifier::Events ChangeNotifier::Wait(int timeoutMs) {
  Events events;
  if (fd_ < 0) return events;
  pollfd fds[2] = {{fd_, POLLIN, 0}, {wake_, POLLIN, 0}};
  if (::poll(fds, 2, timeoutMs) <= 0) return events;
  uint64_t count;
  while (::read(wake_, &count, sizeof(count)) > 0) {
  }
  alignas(inotify_event) char buffer[16 * 1024];
  for (;;) {
    const ssize_t n = ::read(fd_, buffer, sizeof(buffer));
    if (n <= 0) break;
    for (ssize_t offset = 0; offset < n;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
      offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      if (event->mask & IN_Q_OVERFLOW) {
        events.overflow = true;
        continue;
      }
      if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) {
        // The first watch is the root: its end is reported; any ended watch is forgotten.
        // (Watches removed by Reset are already forgotten.)
        for (size_t i = 0; i < watches_.size(); ++i) {
          if (watches_[i].first != event->wd) continue;
          if (i == 0) events.lostWatch = true;
          if (event->mask & IN_IGNORED) watches_.erase(watches_.begin() + static_cast<long>(i));
          break;
        }
        continue;
      }
      events.changed = true;
      if ((event->mask & IN_ISDIR) && (event->mask & (IN_CREATE | IN_MOVED_TO)) && event->len > 0) {
        for (const auto& watch : watches_) {
          if (watch.first == event->wd) {
            events.newDirectories.push_back(watch.second + "/" + event->name);
            break;
          }
        }
      }
    }
  }
  return events;
}

void ChangeNotifier::Interrupt() {
  if (wake_ < 0) return;
  const uint64_t one = 1;
  (void)!::write(wake_, &one, sizeof(one));
}

}  // namespace vantu::platform
