#include "platform/Time.h"

#include <ctime>
#include <mutex>

namespace vantu::platform {

long LocalTimeOffset(long long epochSeconds) {
  // localtime_r does not look at the zone again once tzset has read it (localtime and mktime
  // do, with a stat of /etc/localtime each time).
  static std::once_flag once;
  std::call_once(once, [] { ::tzset(); });
  const time_t time = static_cast<time_t>(epochSeconds);
  struct tm local;
  return ::localtime_r(&time, &local) != nullptr ? local.tm_gmtoff : 0;
}

}  // namespace vantu::platform
