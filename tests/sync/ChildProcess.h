// A helper process for the inter-process tests: runs the vantu_sync_child program (fork + exec)
// and talks to it one line at a time. Destruction asks it to exit (and kills it after 20 s).
#ifndef VANTU_TESTS_SYNC_CHILDPROCESS_H
#define VANTU_TESTS_SYNC_CHILDPROCESS_H

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace vantu::test {

class ChildProcess {
 public:
  // With asNobody (and root), the child runs as user and group 65534; it exits 126 when it cannot
  // become that user and 127 when it cannot run the program.
  explicit ChildProcess(bool asNobody = false) {
    ::signal(SIGPIPE, SIG_IGN);  // a child that has gone makes Send fail, not end the test
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(in[0], 0);
      ::dup2(out[1], 1);
      if (asNobody && (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534))) {
        ::_exit(126);
      }
      ::execl(VANTU_SYNC_CHILD, VANTU_SYNC_CHILD, static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    to_ = in[1];
    from_ = out[0];
  }
  ~ChildProcess() {
    if (pid_ > 0) Exit();
    ::close(to_);
    ::close(from_);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Sends a command without waiting for its answer.
  void Send(const std::string& command) {
    const std::string line = command + "\n";
    (void)!::write(to_, line.data(), line.size());
  }
  // The next answer if it comes within `milliseconds`; false when none comes.
  bool AnswerWithin(int milliseconds, std::string& answer) {
    answer.clear();
    pollfd ready{from_, POLLIN, 0};
    char c;
    while (::poll(&ready, 1, milliseconds) == 1 && ::read(from_, &c, 1) == 1) {
      if (c == '\n') return true;
      answer += c;
    }
    return false;
  }
  // The next answer; empty when the child has gone or has not answered within 20 s.
  std::string Answer() {
    std::string answer;
    return AnswerWithin(20000, answer) ? answer : std::string();
  }
  std::string Ask(const std::string& command) {
    Send(command);
    return Answer();
  }
  // Sends "exit" and returns the exit status; a child still there after 20 s is killed.
  int Exit() {
    Send("exit");
    for (int i = 0; i < 20000; ++i) {
      if (::waitpid(pid_, &status_, WNOHANG) == pid_) return Reaped();
      ::usleep(1000);
    }
    return Kill();
  }
  int Kill() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, &status_, 0);
    return Reaped();
  }

 private:
  int Reaped() {
    pid_ = -1;
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
  }

  pid_t pid_ = -1;
  int status_ = 0;
  int to_ = -1;
  int from_ = -1;
};

}  // namespace vantu::test

#endif  // VANTU_TESTS_SYNC_CHILDPROCESS_H
