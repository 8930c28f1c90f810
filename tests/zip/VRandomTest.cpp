#include <vantu/VException.h>
#include <vantu/VRandom.h>

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace {

TEST(VRandomTest, SeedsRepeatAndKernelSeedsDiffer) {
  VRandom a(7);
  VRandom b(7);
  VRandom copy(a);
  for (int i = 0; i < 100; ++i) {
    const uint64_t value = a.Next64();
    EXPECT_EQ(b.Next64(), value);
    EXPECT_EQ(copy.Next64(), value);
  }
  VRandom first;
  VRandom second;
  EXPECT_NE(first.Next64(), second.Next64());
  EXPECT_THROW(a.Next(0), VantuInvalidArgumentException);
}

TEST(VRandomTest, NextOfNIsUniformWithoutModuloBias) {
  // With n = 3 * 2^30 the remainder of a 32-bit value would favour [0, 2^30) (half the draws
  // instead of a third); a uniform draw lands there a third of the time.
  VRandom random(11);
  const uint32_t n = 3u << 30;
  int low = 0;
  const int draws = 60000;
  for (int i = 0; i < draws; ++i) {
    const uint32_t value = random.Next(n);
    ASSERT_LT(value, n);
    low += value < (1u << 30) ? 1 : 0;
  }
  EXPECT_NEAR(low / double(draws), 1 / 3.0, 0.01);
  // Small n: every value comes up about equally often.
  std::vector<int> counts(7);
  for (int i = 0; i < 70000; ++i) ++counts[random.Next(7)];
  for (int count : counts) EXPECT_NEAR(count, 10000, 500);
}

TEST(VRandomTest, DoublesAndBytesCoverTheirRange) {
  VRandom random(3);
  double sum = 0;
  for (int i = 0; i < 100000; ++i) {
    const double value = random.NextDouble();
    ASSERT_GE(value, 0.0);
    ASSERT_LT(value, 1.0);
    sum += value;
  }
  EXPECT_NEAR(sum / 100000, 0.5, 0.01);
  for (size_t size : {size_t{1}, size_t{7}, size_t{8}, size_t{13}, size_t{65536}}) {
    std::vector<unsigned char> bytes(size + 1, 0xAB);
    random.NextBytes(bytes.data(), size);
    EXPECT_EQ(bytes[size], 0xAB) << "wrote past the end";
    if (size == 65536) {
      EXPECT_EQ(std::set<unsigned char>(bytes.begin(), bytes.end() - 1).size(), 256u);
    }
  }
  unsigned char key1[32] = {};
  unsigned char key2[32] = {};
  VRandom::FillSecure(key1, sizeof(key1));
  VRandom::FillSecure(key2, sizeof(key2));
  EXPECT_NE(std::vector<unsigned char>(key1, key1 + 32),
            std::vector<unsigned char>(key2, key2 + 32));
}

}  // namespace
