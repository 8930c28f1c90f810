// Thread services that POCO does not offer.
#ifndef VANTU_PLATFORM_THREADS_H
#define VANTU_PLATFORM_THREADS_H

#include <Poco/Thread.h>

namespace vantu::platform {

// Lets the system reclaim a started thread when it ends, without a join. Call it once per start,
// on the identifier the thread had (Poco::Thread::tid()) while it was the thread's latest start;
// POCO detaches only the latest start of a thread it never joined.
void DetachThread(Poco::Thread::TID id);

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_THREADS_H
