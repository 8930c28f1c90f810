#include <vantu/VException.h>
#include <vantu/VUUID.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <unordered_set>
#include <vector>

namespace {

TEST(VUUIDTest, FormatsParsesAndCarriesVersionAndVariant) {
  for (const VUUID& id : {VUUID::NewV4(), VUUID::NewV7()}) {
    const std::string text = id.ToString().GetString();
    ASSERT_EQ(text.size(), 36u);
    EXPECT_EQ(text[14] - '0', id.Version());
    EXPECT_NE(std::string("89ab").find(text[19]), std::string::npos) << text;  // variant 10xx
    EXPECT_EQ(VUUID::Parse(text), id);
    std::string upper = text;
    for (char& c : upper) c = static_cast<char>(std::toupper(c));
    EXPECT_EQ(VUUID::Parse(upper.c_str()), id);
  }
  EXPECT_TRUE(VUUID().IsNull());
  EXPECT_EQ(VUUID::Null().ToString().GetString(), "00000000-0000-0000-0000-000000000000");
  const char* canonical = "01890a5d-ac96-774b-bcce-b302099a8057";
  EXPECT_EQ(VUUID::Parse(canonical).Version(), 7);
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
  std::vector<std::vector<VUUID>> made(4);
  std::vector<std::thread> threads;
  for (auto& ids : made) {
    threads.emplace_back([&ids] {
      for (int i = 0; i < 20000; ++i) ids.push_back(VUUID::NewV7());
    });
  }
  for (auto& thread : threads) thread.join();
  std::unordered_set<VUUID> all;
  VUUID latest;
  for (const auto& ids : made) {
    for (size_t i = 0; i < ids.size(); ++i) {
      if (i > 0) {
        ASSERT_LT(ids[i - 1], ids[i]);
      }
      all.insert(ids[i]);
      if (latest < ids[i]) latest = ids[i];
    }
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
  int pipeFds[2];
  ASSERT_EQ(::pipe(pipeFds), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const VUUID id = VUUID::NewV4();
    (void)!::write(pipeFds[1], id.Bytes(), 16);
    ::_exit(0);
  }
  const VUUID mine = VUUID::NewV4();
  uint8_t bytes[16];
  ASSERT_EQ(::read(pipeFds[0], bytes, 16), 16);
  ::waitpid(child, nullptr, 0);
  ::close(pipeFds[0]);
  ::close(pipeFds[1]);
  EXPECT_NE(VUUID(bytes), mine);
}

}  // namespace
