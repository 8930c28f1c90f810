#include "log/internal/LogLineFormatter.h"

#include <Poco/DateTime.h>

#include <cstdio>

namespace vantu::internal {
namespace {

// Days since 1970-01-01 to year, month and day of the proleptic Gregorian calendar.
void CivilFromDays(long long days, long long& year, unsigned& month, unsigned& day) {
  const long long shifted = days + 719468;
  const long long era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
  const long long dayOfEra = shifted - era * 146097;
  const long long yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const long long monthIndex = (5 * dayOfYear + 2) / 153;
  day = static_cast<unsigned>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
  month = static_cast<unsigned>(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
  year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
}

// The prefix of the second last formatted on this thread: most lines share one.
struct PrefixCache {
  long long second = -1;
  std::string prefix;
};
thread_local PrefixCache t_cache;

// The prefix as Poco::DateTime computes its fields. Its weekday comes from a floating-point
// Julian day, which rounds to the next day within the last microseconds of a day; lines written
// then must carry that weekday too.
void AppendPocoPrefix(const Poco::Timestamp& time, std::string& out) {
  static const char* const kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  const Poco::DateTime date(time);
  char buffer[96];
  const int n = std::snprintf(buffer, sizeof(buffer), "%04d/%d/%d - [%s] - %02d:%02d:%02d - ",
                              date.year(), date.month(), date.day(), kWeekdays[date.dayOfWeek()],
                              date.hour(), date.minute(), date.second());
  out.append(buffer, static_cast<size_t>(n));
}

}  // namespace

void LogLineFormatter::AppendDatePrefix(const Poco::Timestamp& time, std::string& out) {
  constexpr long long kDay = 86400LL * 1000000;
  long long ofDay = time.epochMicroseconds() % kDay;
  if (ofDay < 0) ofDay += kDay;
  if (ofDay < 1000 || ofDay >= kDay - 1000) {
    AppendPocoPrefix(time, out);
    return;
  }
  long long seconds = time.epochMicroseconds() / 1000000;
  if (time.epochMicroseconds() % 1000000 < 0) --seconds;
  if (t_cache.second != seconds) {
    static const char* const kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    long long days = seconds / 86400;
    long long rest = seconds % 86400;
    if (rest < 0) {
      rest += 86400;
      --days;
    }
    long long year = 0;
    unsigned month = 0;
    unsigned day = 0;
    CivilFromDays(days, year, month, day);
    const long long weekday = ((days % 7) + 11) % 7;  // 1970-01-01 was a Thursday
    char buffer[96];
    const int n =
        std::snprintf(buffer, sizeof(buffer), "%04lld/%u/%u - [%s] - %02lld:%02lld:%02lld - ", year,
                      month, day, kWeekdays[weekday], rest / 3600, rest / 60 % 60, rest % 60);
    t_cache.prefix.assign(buffer, static_cast<size_t>(n));
    t_cache.second = seconds;
  }
  out += t_cache.prefix;
}

void LogLineFormatter::Format(const Poco::Timestamp& time, const std::string& text,
                              std::string& line) const {
  line.clear();
  if (dated_.load(std::memory_order_acquire)) {
    line.reserve(40 + text.size());
    AppendDatePrefix(time, line);
  }
  line += text;
}

void LogLineFormatter::Prepend(const Poco::Timestamp& time, std::string& text) const {
  if (!dated_.load(std::memory_order_acquire)) return;
  thread_local std::string prefix;
  prefix.clear();
  AppendDatePrefix(time, prefix);
  text.insert(0, prefix);
}

void LogLineFormatter::format(const Poco::Message& message, std::string& text) {
  std::string line;
  Format(message.getTime(), message.getText(), line);
  text += line;
}

}  // namespace vantu::internal
