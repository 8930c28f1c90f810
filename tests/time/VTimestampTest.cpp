#include <gtest/gtest.h>

#include <limits>

#include <vantu/VTimestamp.h>

namespace {

constexpr long long kEpochUtc = 122192928000000000LL;

TEST(VTimestampTest, UtcTimeAndSecondsRoundTowardZero) {
  EXPECT_EQ(VTimestamp(1).UtcTime(), kEpochUtc + 10);
  EXPECT_EQ(VTimestamp::FromUtcTime(kEpochUtc + 19).EpochMicroseconds(), 1);
  EXPECT_EQ(VTimestamp::FromUtcTime(kEpochUtc - 19).EpochMicroseconds(), -1);
  EXPECT_EQ(VTimestamp::FromUtcTime(0).EpochMicroseconds(), -12219292800000000LL);
  for (long long us : {-12219292800000000LL, -1LL, 0LL, 1700000000123456LL}) {
    EXPECT_EQ(VTimestamp::FromUtcTime(VTimestamp(us).UtcTime()).EpochMicroseconds(), us);
  }
  EXPECT_EQ(VTimestamp(-1500000).EpochTime(), -1);
  EXPECT_EQ(VTimestamp(1999999).EpochTime(), 1);
}

TEST(VTimestampTest, ArithmeticWrapsInsteadOfOverflowing) {
  using Limits = std::numeric_limits<long long>;
  const VTimestamp top(Limits::max());
  EXPECT_EQ((top + 1).EpochMicroseconds(), Limits::min());
  EXPECT_EQ((VTimestamp(Limits::min()) - 1).EpochMicroseconds(), Limits::max());
  EXPECT_EQ(VTimestamp(Limits::min()) - top, 1);
  VTimestamp t(10);
  t += 5;
  t -= 20;
  EXPECT_EQ(t.EpochMicroseconds(), -5);
}

TEST(VTimestampTest, ElapsedTimeMovesForward) {
  const VTimestamp start;
  EXPECT_TRUE(start.IsElapsed(0));
  EXPECT_FALSE(start.IsElapsed(3600LL * 1000000));
  EXPECT_GE(VTimestamp(), start);
  EXPECT_GT(start.EpochTime(), 1577836800LL);  // after 2020
}

}  // namespace
