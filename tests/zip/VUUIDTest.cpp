#include <vantu/VException.h>
#include <vantu/VUUID.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <unordered_set>
#include <vector>

#include "zip/ZipTestSupport.h"

namespace {

TEST(VUUIDTest, FormatsParsesAndCarriesVersionAndVariant) {
  for (const VUUID& id : {VUUID::NewV4(), VUUID::NewV7()}) {
    const std::string text = id.ToString().GetString();
    ASSERT_EQ(text.size(), 36u);
    EXPECT_EQ(text[14] - '0', id.Version());
    EXPECT_NE(std::string("89ab").find(text[19]), std::string::npos) << text;  // variant 10xx
    EXPECT_EQ(VUUID::Parse(text), id);
  }
  EXPECT_TRUE(VUUID().IsNull());
  EXPECT_EQ(VUUID::Null().ToString().GetString(), "00000000-0000-0000-0000-000000000000");
  const VUUID fixed = VUUID::Parse("01890A5D-AC96-774B-BCCE-B302099A8057");  // upper case too
  EXPECT_EQ(fixed.Version(), 7);
  EXPECT_EQ(fixed.ToString().GetString(), "01890a5d-ac96-774b-bcce-b302099a8057");
  for (const char* bad :
       {"", "01890a5d-ac96-774b-bcce-b302099a805", "01890a5d-ac96-774b-bcce-b302099a80570",
        "{01890a5d-ac96-774b-bcce-b302099a8057}", "01890a5dac96774bbccеb302099a8057",
        "01890a5d-ac96-774b-bcce_b302099a8057", "01890a5d-ac96-774b-bcce-b302099a805g",
        " 1890a5d-ac96-774b-bcce-b302099a8057", "urn:uuid:01890a5d-ac96-774b-bcce-b30"}) {
    EXPECT_THROW(VUUID::Parse(bad), VantuSyntaxException) << bad;
  }
}

TEST(VUUIDTest, Version7IdsSortInCreationOrderAcrossThreads) {
  // Several threads at once, most ids within the same millisecond: each thread's ids rise, and
  // all are distinct; ids made after a join sort after every earlier one.
  const auto before = std::chrono::duration_cast<std::chrono::milliseconds>(
                          std::chrono::system_clock::now().time_since_epoch())
                          .count();
  std::vector<std::vector<VUUID>> made(4, std::vector<VUUID>(20000));
  std::vector<std::thread> threads;
  for (auto& ids : made)
    threads.emplace_back([&ids] { std::generate(ids.begin(), ids.end(), VUUID::NewV7); });
  for (auto& thread : threads) thread.join();
  std::unordered_set<VUUID> all;
  VUUID latest;
  for (const auto& ids : made) {
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));  // and distinct: rising
    all.insert(ids.begin(), ids.end());
    latest = std::max(latest, ids.back());
  }
  EXPECT_EQ(all.size(), 80000u);
  const VUUID after = VUUID::NewV7();
  EXPECT_LT(latest, after);
  long long millis = 0;
  for (int i = 0; i < 6; ++i) millis = millis << 8 | after.Bytes()[i];
  EXPECT_GE(millis, before);
  EXPECT_LT(millis, before + 60000);
}

TEST(VUUIDTest, ForkedChildDrawsOtherIdsThanItsParent) {
  (void)VUUID::NewV4();  // fills this thread's pool of random bytes
  vantu::test::TempDir dir;
  ASSERT_TRUE(vantu::test::InChild([&] {
    dir.Write("id", std::string(reinterpret_cast<const char*>(VUUID::NewV4().Bytes()), 16));
    return true;
  }));
  const std::string child = vantu::test::ReadFile(dir / "id");
  ASSERT_EQ(child.size(), 16u);
  EXPECT_NE(VUUID(reinterpret_cast<const uint8_t*>(child.data())), VUUID::NewV4());
}

}  // namespace
