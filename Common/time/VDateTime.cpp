#include <vantu/VDateTime.h>

namespace {

constexpr long long kMicrosecondsPerDay = 86400LL * 1000000LL;

// Floor division and its non-negative remainder.
long long FloorDiv(long long a, long long b) {
  return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

}  // namespace

VDateTime::VDateTime() : time_(VTimestamp().EpochMicroseconds()) { Compute(); }

VDateTime::VDateTime(const VTimestamp& timestamp) : time_(timestamp.EpochMicroseconds()) {
  Compute();
}

VDateTime::VDateTime(const VDateTime& other) = default;
VDateTime& VDateTime::operator=(const VDateTime& other) = default;
VDateTime::~VDateTime() = default;

void VDateTime::Compute() {
  const long long days = FloorDiv(time_, kMicrosecondsPerDay);
  long long rest = time_ % kMicrosecondsPerDay;  // 0 .. one day - 1, without overflowing
  if (rest < 0) rest += kMicrosecondsPerDay;
  hour_ = static_cast<int32_t>(rest / 3600000000LL);
  rest %= 3600000000LL;
  minute_ = static_cast<int32_t>(rest / 60000000LL);
  rest %= 60000000LL;
  second_ = static_cast<int32_t>(rest / 1000000LL);
  rest %= 1000000LL;
  millisecond_ = static_cast<int32_t>(rest / 1000);
  microsecond_ = static_cast<int32_t>(rest % 1000);

  // Days since 1970-01-01 to a civil date, counting in 400-year eras that start on March 1st
  // (so the leap day closes each year).
  const long long shifted = days + 719468;  // days since 0000-03-01
  const long long era = FloorDiv(shifted, 146097);
  const long long dayOfEra = shifted - era * 146097;  // 0 .. 146096
  const long long yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;  // 0 .. 399
  const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const long long monthIndex = (5 * dayOfYear + 2) / 153;  // 0 = March .. 11 = February
  day_ = static_cast<int32_t>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
  month_ = static_cast<int32_t>(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
  year_ = static_cast<int32_t>(yearOfEra + era * 400 + (month_ <= 2 ? 1 : 0));
}

int VDateTime::HourAMPM() const {
  if (hour_ < 1) return 12;
  return hour_ > 12 ? hour_ - 12 : hour_;
}

bool VDateTime::IsLeapYear(int year) {
  return (year % 4 == 0) && (year % 100 != 0 || year % 400 == 0);
}

long long VDateTime::UtcTime() const { return VTimestamp(time_).UtcTime(); }

// The stored time itself: going through UtcTime() would wrap beyond about the year 30,800.
VTimestamp VDateTime::Timestamp() const { return VTimestamp(time_); }
