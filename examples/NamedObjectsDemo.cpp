// Named mutexes and events are shared by processes that use the same name, and live while any
// of them holds one. This demo starts itself again as a second process: the child signals a
// named event, then waits for the named mutex that the parent holds until then.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include <vantu/VAutoNamedMutexLock.h>
#include <vantu/VNamedEvent.h>
#include <vantu/VNamedMutex.h>

extern char** environ;

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "child") {
    VNamedMutex mutex(std::string(argv[2]) + ".mutex");
    VNamedEvent(std::string(argv[2]) + ".ready").Set();
    VAutoNamedMutexLock lock(&mutex);  // blocks until the parent unlocks
    std::printf("child %d: holds the mutex\n", static_cast<int>(getpid()));
    return 0;
  }

  const std::string name = "vantu-demo-" + std::to_string(getpid());  // unique to this run
  VNamedMutex mutex(name + ".mutex");
  VNamedEvent ready(name + ".ready");
  mutex.Lock();

  char* childArgs[] = {argv[0], const_cast<char*>("child"), const_cast<char*>(name.c_str()),
                       nullptr};
  pid_t child = 0;
  if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, childArgs, environ) != 0) return 1;
  ready.Wait();  // set by the child, in the other process
  std::printf("parent: the child is ready; unlocking\n");
  std::fflush(stdout);
  mutex.Unlock();

  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
}
