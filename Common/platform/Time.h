// Local time as the operating system's time zone defines it.
#ifndef VANTU_PLATFORM_TIME_H
#define VANTU_PLATFORM_TIME_H

namespace vantu::platform {

// Seconds by which local time is ahead of UTC at that instant. The time zone is read once per
// process, on the first call; no call after that touches the file system.
long LocalTimeOffset(long long epochSeconds);

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_TIME_H
