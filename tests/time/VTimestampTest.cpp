#include <gtest/gtest.h>

#include <limits>

#include <vantu/VTimestamp.h>

namespace {

constexpr long long kEpochUtc = 122192928000000000LL;

TEST(VTimestampTest, UtcTimeCountsFromTheGregorianStart) {
  EXPECT_EQ(VTimestamp(0).UtcTime(), kEpochUtc);
  EXPECT_EQ(VTimestamp(1).UtcTime(), kEpochUtc + 10);
  EXPECT_EQ(VTimestamp::FromUtcTime(kEpochUtc).EpochMicroseconds(), 0);
  EXPECT_EQ(VTimestamp::FromUtcTime(kEpochUtc + 19).EpochMicroseconds(), 1);
  // Rounded toward zero on both sides of the epoch.
  EXPECT_EQ(VTimestamp::FromUtcTime(kEpochUtc - 19).EpochMicroseconds(), -1);
  EXPECT_EQ(VTimestamp::FromUtcTime(0).EpochMicroseconds(), -12219292800000000LL);
  for (long long us : {-12219292800000000LL, -1LL, 0LL, 1700000000123456LL}) {
    EXPECT_EQ(VTimestamp::FromUtcTime(VTimestamp(us).UtcTime()).EpochMicroseconds(), us);
  }
}

TEST(VTimestampTest, SecondsAreRoundedTowardZero) {
  EXPECT_EQ(VTimestamp(-1500000).EpochTime(), -1);
  EXPECT_EQ(VTimestamp(1999999).EpochTime(), 1);
  EXPECT_EQ(VTimestamp::Resolution(), 1000000);
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
  EXPECT_EQ(VTimestamp(7) - VTimestamp(10), -3);
  t = 42LL;
  EXPECT_EQ(t.EpochMicroseconds(), 42);
  EXPECT_TRUE(VTimestamp(-1) < VTimestamp(0));
  EXPECT_TRUE(VTimestamp(3) >= VTimestamp(3));
  EXPECT_TRUE(VTimestamp(3) != VTimestamp(4));
}

TEST(VTimestampTest, ElapsedTimeMovesForward) {
  const VTimestamp start;
  EXPECT_TRUE(start.IsElapsed(0));
  EXPECT_GE(start.Elapsed(), 0);
  EXPECT_FALSE(start.IsElapsed(3600LL * 1000000));
  const VTimestamp later;
  EXPECT_GE(later, start);
  // A plausible clock: after 2020 and before 2200.
  EXPECT_GT(start.EpochTime(), 1577836800LL);
  EXPECT_LT(start.EpochTime(), 7258118400LL);
}

}  // namespace
