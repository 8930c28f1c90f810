// The received-bytes buffer: its growth rule, storage that grows without copying, and the
// fallback when growth fails. (Copies are tested through VURL.)
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "internal/ReceiveBuffer.h"
#include "net/NetTest.h"

namespace {

using vantu::internal::ReceiveBuffer;
using vantu::test::Pattern;

std::string Held(const ReceiveBuffer& buffer) {
  return std::string(buffer.Data(), buffer.Length());
}

TEST(ReceiveBufferTest, GrowsByTheRuleFarPastTheFirstReservationKeepingEveryByte) {
  // 70 MiB in pieces of 16 KiB and odd sizes: from the heap into an address range, then into a
  // second range when the first 64 MiB are used up.
  ReceiveBuffer buffer;
  const size_t total = 70u << 20;
  const size_t sizes[] = {16384, 16384, 16384, 1, 9999, 16384, 4096};
  int rangeMoves = 0;
  size_t offset = 0;
  for (size_t i = 0; offset < total; ++i) {
    const std::string piece = Pattern(std::min(sizes[i % 7], total - offset), offset);
    const uint64_t before = buffer.Capacity();
    const char* const place = buffer.Data();
    ASSERT_TRUE(buffer.Append(piece.data(), piece.size()));
    offset += piece.size();
    const uint64_t n = piece.size();
    const uint64_t expected = before == 0       ? (n / 10240 + 1) * 10240
                              : before < offset ? ((before + n) / 10240 + 1) * 10240
                                                : before;
    ASSERT_EQ(buffer.Capacity(), expected) << "after " << offset << " bytes";
    rangeMoves += before > (256u << 10) && buffer.Data() != place;
  }
  ASSERT_EQ(buffer.Length(), total);
  for (size_t at = 0; at < total; at += 1u << 20) {
    ASSERT_EQ(std::string(buffer.Data() + at, 1u << 20), Pattern(1u << 20, at)) << "at " << at;
  }
  // Beyond 256 KiB the storage moves (without copying) only when its reservation doubles.
  EXPECT_EQ(rangeMoves, 1);
}

TEST(ReceiveBufferTest, AFailedGrowthDropsTheHeldBytesForAFreshBlock) {
  ReceiveBuffer buffer(30000);  // no capacity above 30000 can be had
  ASSERT_TRUE(buffer.Append(Pattern(20000).data(), 20000));
  EXPECT_EQ(buffer.Capacity(), 20480u);
  // 35000 would need 40960: the 20000 bytes are lost, the new ones get 20480.
  ASSERT_TRUE(buffer.Append(Pattern(15000, 1).data(), 15000));
  EXPECT_EQ(buffer.Capacity(), 20480u);
  EXPECT_EQ(Held(buffer), Pattern(15000, 1));
  // Neither 51200 nor the fallback's 30720 can be had: nothing is left.
  EXPECT_FALSE(buffer.Append(Pattern(30000).data(), 30000));
  EXPECT_EQ(buffer.Data(), nullptr);
  EXPECT_EQ(buffer.Length(), 0u);
  EXPECT_EQ(buffer.Capacity(), 0u);
  ASSERT_TRUE(buffer.Append("x", 1));
  EXPECT_EQ(buffer.Capacity(), 10240u);
}

}  // namespace
