// Drives the named objects with arbitrary names: the system name must hold only the characters
// a POSIX shared-memory name may, read back to the caller's bytes when it is not hashed, and the
// region opened under it must be writable, shared by a second handle and gone with the last one.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "FuzzCheck.h"
#include "platform/NamedObjects.h"

namespace {

// The caller's bytes back from an escaped name.
std::string Unescape(const std::string& escaped) {
  std::string name;
  for (std::size_t i = 0; i < escaped.size(); ++i) {
    if (escaped[i] == '%') {
      name += static_cast<char>(std::stoi(escaped.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      name += escaped[i];
    }
  }
  return name;
}

bool Plain(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string name(reinterpret_cast<const char*>(data), size);
  const std::string prefix = "/vantu.memory.";
  const std::string system = vantu::platform::NamedObjectSystemName("memory", name);
  CHECK(system.compare(0, prefix.size(), prefix) == 0);
  const std::string escaped = system.substr(prefix.size());
  CHECK(escaped.find_first_not_of(
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-%") ==
        std::string::npos);
  std::size_t full = 0;
  for (const unsigned char c : name) full += Plain(c) ? 1 : 3;
  if (full > 200) {
    CHECK(escaped.size() == 177 && escaped[160] == '.');
  } else {
    CHECK(Unescape(escaped) == name);
  }
  // A region under the name (made unique to this process): shared, then gone with its handles.
  const std::string unique = name + "\x01" + std::to_string(::getpid());
  const std::string path = "/dev/shm" + vantu::platform::NamedObjectSystemName("memory", unique);
  struct stat status;
  {
    vantu::platform::SharedRegion first(unique, 64);
    vantu::platform::SharedRegion second(unique, 32);
    first.Begin()[31] = 'x';
    CHECK(second.Begin()[31] == 'x' && second.End() - second.Begin() == 32);
    CHECK(::stat(path.c_str(), &status) == 0);
  }
  CHECK(::stat(path.c_str(), &status) != 0);
  return 0;
}
