#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <limits>
#include <random>

#include <vantu/VDateTime.h>

namespace {

constexpr long long kSecond = 1000000;
constexpr long long kDay = 86400 * kSecond;

// Every field against glibc's gmtime_r, an independent computation, and the way back.
void ExpectFields(long long us) {
  const long long fraction = (us % kSecond + kSecond) % kSecond;
  const time_t seconds = static_cast<time_t>(us / kSecond - (us % kSecond < 0 ? 1 : 0));
  tm e{};
  ASSERT_NE(gmtime_r(&seconds, &e), nullptr) << us;
  const VDateTime d{VTimestamp(us)};
  ASSERT_EQ(d.Year(), e.tm_year + 1900) << us;
  ASSERT_EQ(d.Month(), e.tm_mon + 1) << us;
  ASSERT_EQ(d.Day(), e.tm_mday) << us;
  ASSERT_EQ(d.Hour() * 3600 + d.Minute() * 60 + d.Second(),
            e.tm_hour * 3600 + e.tm_min * 60 + e.tm_sec)
      << us;
  ASSERT_TRUE(d.Microsecond() < 1000 && d.Millisecond() * 1000 + d.Microsecond() == fraction) << us;
  ASSERT_EQ(d.Timestamp().EpochMicroseconds(), us);
}

TEST(VDateTimeTest, FieldsMatchGmtimeOverTheWholeRange) {
  using Limits = std::numeric_limits<long long>;
  std::mt19937_64 random(20261122);
  // Both sides of every midnight from 1600 to 2400, then instants anywhere.
  for (long long day = -135140 * kDay; day <= 157420 * kDay; day += kDay) {
    ExpectFields(day);
    ExpectFields(day - 1);
  }
  std::uniform_int_distribution<long long> anywhere(Limits::min(), Limits::max());
  for (int i = 0; i < 50000; ++i) ExpectFields(anywhere(random));
  for (long long us : {Limits::min(), Limits::max(), -1LL, 0LL}) ExpectFields(us);
}

TEST(VDateTimeTest, TwelveHourClockAndLeapYears) {
  const int hours[] = {0, 11, 12, 13, 23};
  const int clock[] = {12, 11, 12, 1, 11};
  for (int i = 0; i < 5; ++i) {
    const VDateTime at{VTimestamp(hours[i] * 3600 * kSecond)};
    EXPECT_EQ(at.HourAMPM(), clock[i]) << hours[i];
    EXPECT_EQ(at.IsAM(), hours[i] < 12);
    EXPECT_EQ(at.IsPM(), hours[i] >= 12);
  }
  for (int year : {2000, 2024, 2400, -4, 0}) EXPECT_TRUE(VDateTime::IsLeapYear(year)) << year;
  for (int year : {1900, 2023, 2100, -100, 1}) EXPECT_FALSE(VDateTime::IsLeapYear(year)) << year;
}

TEST(VDateTimeTest, ComparisonsAndUtcTimeUseTheInstant) {
  const VDateTime a{VTimestamp(5)};
  const VDateTime b{VTimestamp(6)};
  EXPECT_TRUE(a < b && a <= b && a != b && b > a && b >= a && !(a == b));
  EXPECT_EQ(VDateTime(VTimestamp(0)).UtcTime(), 122192928000000000LL);
  EXPECT_LT(std::llabs(VDateTime().Timestamp() - VTimestamp()), kSecond);
}

}  // namespace
