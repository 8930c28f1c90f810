#include "Command.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "Session.h"
#include "Signals.h"

namespace hotfolder {
namespace {

std::string ShellQuoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

}  // namespace

bool Run(const Options& options, const std::string& path, Result& result) {
  std::vector<std::string> argv;
  if (options.shell) {
    std::string command = options.exec;
    const size_t at = command.find("{}");
    if (at == std::string::npos) {
      command += " " + ShellQuoted(path);
    } else {
      for (size_t p = at; p != std::string::npos; p = command.find("{}", p)) {
        command.replace(p, 2, ShellQuoted(path));
        p += ShellQuoted(path).size();
      }
    }
    argv = {"/bin/sh", "-c", command};
  } else {
    Words(options.exec, argv);
    bool replaced = false;
    for (auto& word : argv) {
      for (size_t p = word.find("{}"); p != std::string::npos; p = word.find("{}", p)) {
        word.replace(p, 2, path);
        p += path.size();
        replaced = true;
      }
    }
    if (!replaced) argv.push_back(path);
  }
  std::vector<char*> raw;
  for (auto& word : argv) raw.push_back(word.data());
  raw.push_back(nullptr);

  // The tool blocks SIGINT and SIGTERM, POCO blocks SIGPIPE, and a shell may have left SIGINT
  // ignored: none of that reaches the command.
  static const posix_spawnattr_t* const attributes = [] {
    static posix_spawnattr_t made;
    ::posix_spawnattr_init(&made);
    sigset_t none;
    sigemptyset(&none);
    sigset_t reset;
    sigemptyset(&reset);
    for (int s : {SIGINT, SIGTERM, SIGPIPE}) sigaddset(&reset, s);
    ::posix_spawnattr_setsigmask(&made, &none);
    ::posix_spawnattr_setsigdefault(&made, &reset);
    ::posix_spawnattr_setflags(&made, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    return &made;
  }();
  pid_t child = 0;
  const int error = g_session.Spawn(raw.data(), attributes, child);
  if (error == ECANCELED) return false;
  if (error != 0) {
    result.error = "cannot run " + argv[0] + ": " + std::strerror(error);
    return true;
  }
  siginfo_t info{};
  while (::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) < 0 &&
         errno == EINTR) {
  }
  g_session.Ended();
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  result.ran = true;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return true;
}

void WatchSignals(sigset_t signals) {
  for (int received = 0;;) {
    siginfo_t info{};
    const int signal = ::sigwaitinfo(&signals, &info);
    if (signal < 0) continue;
    if (info.si_code != SI_KERNEL && info.si_pid == ::getpid()) return;
    g_session.Stop(signal, info.si_code != SI_KERNEL);
    if (++received == 2) EndBy(signal);
  }
}

}  // namespace hotfolder
