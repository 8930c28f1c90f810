// The log's own line formatter must give the bytes of POCO's pattern formatter.
#include <gtest/gtest.h>

#include <Poco/AutoPtr.h>
#include <Poco/Message.h>
#include <Poco/PatternFormatter.h>

#include <random>
#include <string>
#include <vector>

#include "internal/LogLineFormatter.h"

namespace {

TEST(LogLineFormatterTest, SameBytesAsPocosPatternFormatter) {
  Poco::AutoPtr<Poco::PatternFormatter> poco(
      new Poco::PatternFormatter("%Y/%n/%e - [%w] - %H:%M:%S - %t"));
  vantu::internal::LogLineFormatter ours;
  ours.SetDated(true);
  std::mt19937_64 random(7);
  // From 1970 to 2400, plus day and year boundaries.
  std::uniform_int_distribution<long long> instants(0, 13569465600LL * 1000000);
  std::vector<long long> times = {0,
                                  86399999999,
                                  86400000000,
                                  951782400000000,
                                  951868799999999,
                                  1767225599999999,
                                  1767225600000000};
  for (int i = 0; i < 20000; ++i) times.push_back(instants(random));
  // Around midnight, where POCO's floating-point weekday rounds.
  for (int day = 0; day < 400; ++day) {
    const long long midnight = (day * 97LL + 3) * 86400LL * 1000000;
    for (long long d = -60; d <= 3; ++d) times.push_back(midnight + d);
  }
  for (long long us : times) {
    Poco::Message message("source", "text \"quoted\"\t", Poco::Message::PRIO_INFORMATION);
    message.setTime(Poco::Timestamp(us));
    std::string expected;
    poco->format(message, expected);
    std::string actual;
    ours.Format(Poco::Timestamp(us), message.getText(), actual);
    ASSERT_EQ(actual, expected) << us;
    std::string throughChannel;
    ours.format(message, throughChannel);
    ASSERT_EQ(throughChannel, expected);
  }
  ours.SetDated(false);
  std::string bare;
  ours.Format(Poco::Timestamp(0), "banner", bare);
  EXPECT_EQ(bare, "banner");
}

}  // namespace
