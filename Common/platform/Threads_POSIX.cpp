#include "platform/Threads.h"

#include <pthread.h>

namespace vantu::platform {

void DetachThread(Poco::Thread::TID id) { pthread_detach(id); }

}  // namespace vantu::platform
