#include "Session.h"

#include <signal.h>

#include <cerrno>
#include <utility>

extern char** environ;

namespace hotfolder {

Session g_session;
bool g_failed = false;

void Session::Push(Item item) {
  std::lock_guard<std::mutex> lock(mutex_);
  items_.push_back(std::move(item));
  changed_.notify_all();
}

void Session::Finish() {
  std::lock_guard<std::mutex> lock(mutex_);
  finished_ = true;
  changed_.notify_all();
}

bool Session::Take(Item& item) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [&] { return stopped_ || finished_ || !items_.empty(); });
  if (stopped_ || items_.empty()) return false;
  item = std::move(items_.front());
  items_.pop_front();
  return true;
}

void Session::Stop(int signal, bool forward) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (forward && child_ > 0) ::kill(child_, signal);
  if (!stopped_) {
    stopped_ = true;
    signal_ = signal;
  }
  changed_.notify_all();
}

bool Session::Stopping() {
  std::lock_guard<std::mutex> lock(mutex_);
  return stopped_;
}

int Session::StopSignal() {
  std::lock_guard<std::mutex> lock(mutex_);
  return signal_;
}

int Session::Spawn(char* const argv[], const posix_spawnattr_t* attributes, pid_t& child) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (stopped_) return ECANCELED;
  const int error = ::posix_spawnp(&child, argv[0], nullptr, attributes, argv, environ);
  if (error == 0) child_ = child;
  return error;
}

void Session::Ended() {
  std::lock_guard<std::mutex> lock(mutex_);
  child_ = 0;
}

int OnDelivery(const char* path, int length, void*) {
  g_session.Push({std::string(path, static_cast<size_t>(length)), true});
  return 0;
}

}  // namespace hotfolder
