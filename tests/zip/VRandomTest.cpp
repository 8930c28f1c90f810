#include <vantu/VException.h>
#include <vantu/VRandom.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <vector>

namespace {

TEST(VRandomTest, SeedsRepeatKernelSeedsDifferAndDrawsAreUniform) {
  VRandom a(7);
  VRandom b(7);
  VRandom copy(a);
  for (int i = 0; i < 100; ++i) {
    const uint64_t value = a.Next64();
    EXPECT_EQ(b.Next64(), value);
    EXPECT_EQ(copy.Next64(), value);
  }
  EXPECT_NE(VRandom().Next64(), VRandom().Next64());  // seeded by VRandom::FillSecure
  EXPECT_THROW(a.Next(0), VantuInvalidArgumentException);
  // With n = 3 * 2^30 the remainder of a 32-bit value would favour [0, 2^30) (half the draws
  // instead of a third); a uniform draw lands there a third of the time.
  VRandom random(11);
  const uint32_t n = 3u << 30;
  int low = 0;
  for (int i = 0; i < 60000; ++i) {
    const uint32_t value = random.Next(n);
    ASSERT_LT(value, n);
    low += value < (1u << 30) ? 1 : 0;
  }
  EXPECT_NEAR(low / 60000.0, 1 / 3.0, 0.01);
  double sum = 0;
  for (int i = 0; i < 100000; ++i) {
    const double value = random.NextDouble();
    ASSERT_TRUE(value >= 0.0 && value < 1.0) << value;
    sum += value;
  }
  EXPECT_NEAR(sum / 100000, 0.5, 0.01);
  // Bytes: none written past the end, every value in a long run.
  for (size_t size : {size_t{1}, size_t{7}, size_t{8}, size_t{13}, size_t{65536}}) {
    std::vector<unsigned char> bytes(size + 1, 0xAB);
    random.NextBytes(bytes.data(), size);
    EXPECT_EQ(bytes[size], 0xAB) << "wrote past the end";
    if (size == 65536) {
      EXPECT_EQ(std::set<unsigned char>(bytes.begin(), bytes.end() - 1).size(), 256u);
    }
  }
}

// A forked child draws afresh from a kernel-seeded generator, and repeats a seeded one.
TEST(VRandomTest, AForkedChildReseedsOnlyAKernelSeededGenerator) {
  VRandom kernel;
  VRandom seeded(5);
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const uint64_t drawn[2] = {kernel.Next64(), seeded.Next64()};
    ::_exit(::write(pipe[1], drawn, sizeof(drawn)) == sizeof(drawn) ? 0 : 1);
  }
  uint64_t drawn[2] = {};
  EXPECT_EQ(::read(pipe[0], drawn, sizeof(drawn)), ssize_t{sizeof(drawn)});
  ::waitpid(child, nullptr, 0);
  ::close(pipe[0]);
  ::close(pipe[1]);
  EXPECT_NE(drawn[0], kernel.Next64());
  EXPECT_EQ(drawn[1], seeded.Next64());
}

}  // namespace
