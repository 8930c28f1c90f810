#include <gtest/gtest.h>

#include <ctime>
#include <random>
#include <string>

#include <vantu/VDateTime.h>

namespace {

constexpr long long kSecond = 1000000;

// The calendar fields of epoch microseconds by glibc's gmtime_r, an independent computation.
struct Expected {
  int year, month, day, hour, minute, second, millisecond, microsecond;
};

Expected FromGmtime(long long us) {
  long long seconds = us / kSecond;
  long long fraction = us % kSecond;
  if (fraction < 0) {
    fraction += kSecond;
    --seconds;
  }
  const time_t t = static_cast<time_t>(seconds);
  tm parts{};
  gmtime_r(&t, &parts);
  return {parts.tm_year + 1900,
          parts.tm_mon + 1,
          parts.tm_mday,
          parts.tm_hour,
          parts.tm_min,
          parts.tm_sec,
          static_cast<int>(fraction / 1000),
          static_cast<int>(fraction % 1000)};
}

long long FromCivil(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  tm parts{};
  parts.tm_year = year - 1900;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_hour = hour;
  parts.tm_min = minute;
  parts.tm_sec = second;
  return static_cast<long long>(timegm(&parts)) * kSecond;
}

void ExpectFields(long long us) {
  const VDateTime date{VTimestamp(us)};
  const Expected e = FromGmtime(us);
  ASSERT_EQ(date.Year(), e.year) << us;
  ASSERT_EQ(date.Month(), e.month) << us;
  ASSERT_EQ(date.Day(), e.day) << us;
  ASSERT_EQ(date.Hour(), e.hour) << us;
  ASSERT_EQ(date.Minute(), e.minute) << us;
  ASSERT_EQ(date.Second(), e.second) << us;
  ASSERT_EQ(date.Millisecond(), e.millisecond) << us;
  ASSERT_EQ(date.Microsecond(), e.microsecond) << us;
  ASSERT_EQ(date.Timestamp().EpochMicroseconds(), us);
}

TEST(VDateTimeTest, CalendarFieldsMatchGmtimeFrom1600To2400) {
  const long long first = FromCivil(1600, 1, 1);
  const long long last = FromCivil(2400, 12, 31, 23, 59, 59);
  std::mt19937_64 random(20261122);
  std::uniform_int_distribution<long long> anyInstant(first, last + kSecond - 1);
  for (int i = 0; i < 200000; ++i) ExpectFields(anyInstant(random));
  // Every day boundary of a few whole years, each side of the boundary.
  for (int year : {1600, 1700, 1900, 1969, 1970, 2000, 2038, 2100, 2400}) {
    for (long long day = FromCivil(year, 1, 1); day < FromCivil(year + 1, 1, 1);
         day += 86400 * kSecond) {
      ExpectFields(day);
      ExpectFields(day - 1);
    }
  }
}

TEST(VDateTimeTest, LeapDaysAndTheLastMicrosecondOfADay) {
  for (int year : {1600, 2000, 2024, 2400}) {
    const VDateTime leapDay{VTimestamp(FromCivil(year, 2, 29, 12))};
    EXPECT_EQ(leapDay.Month(), 2) << year;
    EXPECT_EQ(leapDay.Day(), 29) << year;
  }
  for (int year : {1700, 1800, 1900, 2100}) {
    const VDateTime afterFeb28{VTimestamp(FromCivil(year, 2, 28) + 86400 * kSecond)};
    EXPECT_EQ(afterFeb28.Month(), 3) << year;
    EXPECT_EQ(afterFeb28.Day(), 1) << year;
  }
  const VDateTime justBeforeEpoch{VTimestamp(-1)};
  EXPECT_EQ(justBeforeEpoch.Year(), 1969);
  EXPECT_EQ(justBeforeEpoch.Month(), 12);
  EXPECT_EQ(justBeforeEpoch.Day(), 31);
  EXPECT_EQ(justBeforeEpoch.Hour(), 23);
  EXPECT_EQ(justBeforeEpoch.Minute(), 59);
  EXPECT_EQ(justBeforeEpoch.Second(), 59);
  EXPECT_EQ(justBeforeEpoch.Millisecond(), 999);
  EXPECT_EQ(justBeforeEpoch.Microsecond(), 999);
  const VDateTime lastOf2000{VTimestamp(FromCivil(2001, 1, 1) - 1)};
  EXPECT_EQ(lastOf2000.Year(), 2000);
  EXPECT_EQ(lastOf2000.Day(), 31);
  EXPECT_EQ(lastOf2000.Microsecond(), 999);
}

TEST(VDateTimeTest, ExtremeInstantsStayConsistent) {
  // Year 0 is 1 BC, a leap year; the range of VTimestamp reaches some 292,000 years each way.
  const VDateTime yearZero{VTimestamp(FromCivil(1, 1, 1) - 86400 * kSecond)};
  EXPECT_EQ(yearZero.Year(), 0);
  EXPECT_EQ(yearZero.Month(), 12);
  EXPECT_EQ(yearZero.Day(), 31);
  const VDateTime far{VTimestamp(9223372036854775807LL)};
  EXPECT_EQ(far.Year(), 294247);
  const VDateTime farBack{VTimestamp(-9223372036854775807LL - 1)};
  EXPECT_EQ(farBack.Year(), -290308);
  EXPECT_GE(farBack.Month(), 1);
  EXPECT_LE(farBack.Day(), 31);
}

TEST(VDateTimeTest, TwelveHourClockAndLeapYears) {
  const long long midnight = FromCivil(2026, 11, 22);
  auto at = [&](int hour) { return VDateTime(VTimestamp(midnight + hour * 3600 * kSecond)); };
  EXPECT_EQ(at(0).HourAMPM(), 12);
  EXPECT_TRUE(at(0).IsAM());
  EXPECT_EQ(at(12).HourAMPM(), 12);
  EXPECT_TRUE(at(12).IsPM());
  EXPECT_EQ(at(13).HourAMPM(), 1);
  EXPECT_EQ(at(23).HourAMPM(), 11);
  EXPECT_EQ(at(11).HourAMPM(), 11);
  EXPECT_TRUE(at(11).IsAM());

  EXPECT_TRUE(VDateTime::IsLeapYear(2000));
  EXPECT_TRUE(VDateTime::IsLeapYear(2024));
  EXPECT_FALSE(VDateTime::IsLeapYear(1900));
  EXPECT_FALSE(VDateTime::IsLeapYear(2023));
  EXPECT_TRUE(VDateTime::IsLeapYear(-4));
  EXPECT_FALSE(VDateTime::IsLeapYear(-100));
}

TEST(VDateTimeTest, ComparisonsLookAtTheInstantOnly) {
  const VDateTime a{VTimestamp(5)};
  const VDateTime b{VTimestamp(6)};
  EXPECT_TRUE(a < b);
  EXPECT_TRUE(a != b);
  EXPECT_TRUE(b >= a);
  EXPECT_EQ(VDateTime(VTimestamp(0)).UtcTime(), 122192928000000000LL);
  const VDateTime now;
  EXPECT_GE(now.Year(), 2024);
}

}  // namespace
