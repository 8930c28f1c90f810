// The second process of the inter-process tests. Reads one command per line on stdin and answers
// each with one line on stdout:
//   open <name> <size>   opens the named mutex, the named event and the region called <name>
//   read                 the text at offset 64 of the region
//   write <text>         writes the text at offset 64
//   lock | unlock | set | wait
//   count <n>            n times: lock, counter + 1 (a plain read and write), unlock
//   pong <n>             n times: wait for "<name>.ping", counter + 1, set "<name>.pong"
//   try <name> <size>    "mutex:<ok|denied> region:<ok|none>": whether this process may open them
//   exit                 leaves, destroying everything
// Answers "ok" (or the value asked for) once the command is done.
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include <vantu/VException.h>
#include <vantu/VNamedEvent.h>
#include <vantu/VNamedMutex.h>
#include <vantu/VSharedMemory.h>

int main() {
  std::string name;
  std::unique_ptr<VNamedMutex> mutex;
  std::unique_ptr<VNamedEvent> event;
  std::unique_ptr<VSharedMemory> region;
  auto counter = [&] { return reinterpret_cast<volatile uint64_t*>(region->BeginData()); };
  std::string line;
  while (std::getline(std::cin, line)) {
    std::istringstream in(line);
    std::string command;
    long n = 0;
    in >> command;
    std::string answer = "ok";
    if (command == "open") {
      int size = 0;
      in >> name >> size;
      mutex = std::make_unique<VNamedMutex>(name);
      event = std::make_unique<VNamedEvent>(name);
      region = std::make_unique<VSharedMemory>(name.c_str(), size);
    } else if (command == "read") {
      answer = region->BeginData() + 64;
    } else if (command == "write") {
      std::string text;
      in >> text;
      std::strcpy(region->BeginData() + 64, text.c_str());
    } else if (command == "lock") {
      mutex->Lock();
    } else if (command == "unlock") {
      mutex->Unlock();
    } else if (command == "set") {
      event->Set();
    } else if (command == "wait") {
      event->Wait();
    } else if (command == "count" && in >> n) {
      for (long i = 0; i < n; ++i) {
        mutex->Lock();
        *counter() = *counter() + 1;
        mutex->Unlock();
      }
    } else if (command == "pong" && in >> n) {
      VNamedEvent ping(name + ".ping");
      VNamedEvent pong(name + ".pong");
      for (long i = 0; i < n; ++i) {
        ping.Wait();
        *counter() = *counter() + 1;
        pong.Set();
      }
    } else if (command == "try") {
      int size = 0;
      in >> name >> size;
      try {
        VNamedMutex mutex(name);
        answer = "mutex:ok";
      } catch (const VantuRuntimeException&) {
        answer = "mutex:denied";
      }
      try {
        VSharedMemory(name.c_str(), size).BeginData();
        answer += " region:ok";
      } catch (int) {
        answer += " region:none";
      }
    } else if (command == "exit") {
      break;
    } else {
      answer = "unknown command: " + line;
    }
    std::cout << answer << std::endl;
  }
  return 0;
}
