#include "platform/Random.h"

#include <sys/random.h>
#include <sys/types.h>

#include <cerrno>

#include "platform/SystemError.h"

namespace vantu::platform {

void FillRandom(void* buffer, size_t size) {
  char* p = static_cast<char*>(buffer);
  while (size > 0) {
    const ssize_t n = ::getrandom(p, size, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      ThrowErrno("getrandom");
    }
    p += n;
    size -= static_cast<size_t>(n);
  }
}

}  // namespace vantu::platform
