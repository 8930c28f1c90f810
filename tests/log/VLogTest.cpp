#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <vantu/VLog.h>

#include "support/LogFiles.h"
#include "support/TempDir.h"

namespace {

using vantu::test::EnvironmentAt;
using vantu::test::ReadLines;
using vantu::test::TempDir;

constexpr size_t kBanner = 6;

// A log in its own temporary folder, made current for the test.
class VLogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    log.SetFolder(VPath(dir.path().c_str()));
    log.SetName(VString("test"));
    log.SetRotation(1, -1);  // never: every line stays in test.log
    previous = VLog::SetCurrent(&log);
  }
  void TearDown() override { VLog::SetCurrent(previous); }
  std::vector<std::string> Lines() {
    log.Flush();
    return ReadLines(dir / "test.log");
  }
  TempDir dir;
  VLog log;
  VLog* previous = nullptr;
};

TEST(VLogDefaultsTest, NameFolderAndPropertiesByDefault) {
  const TempDir home;
  const EnvironmentAt appData("XDG_DATA_HOME", home.path());
  const VLog log;
  EXPECT_EQ(log.GetName().GetString(), "vantu_log_tests");
  EXPECT_EQ(log.GetFolder().GetString(), home.path() + "/Tarvik Software/");
  EXPECT_TRUE(std::filesystem::is_directory(home / "Tarvik Software"));
  EXPECT_EQ(log.GetFilePath().GetString(), home.path() + "/Tarvik Software/vantu_log_tests.log");
  EXPECT_EQ(log.GetRotation().GetString(), "10 M");
  EXPECT_EQ(log.GetArchive().GetString(), "number");
  EXPECT_EQ(log.GetPurgeAge().GetString(), "24 hours");
  EXPECT_EQ(log.GetLevel(), 8);
  EXPECT_FALSE(log.IsOpened());

  VLog emptyFolder;
  emptyFolder.SetFolder(VPath());
  emptyFolder.SetName(VString("n"));
  EXPECT_EQ(emptyFolder.GetFilePath().GetString(), home.path() + "/Tarvik Software/n.log");
}

TEST(VLogDefaultsTest, RotationArchiveAndPurgeTexts) {
  VLog log;
  const std::tuple<unsigned, int, const char*> rotations[] = {
      {1, 0, "1 daily"},  {10, 9, "10 M"},   {3, 42, "3 days"},  {500000, 7, "500000 "},
      {1, -1, "1 never"}, {6, 3, "6 hours"}, {1, 6, "1 months"}, {64, 8, "64 K"}};
  for (const auto& [count, unit, text] : rotations) {
    log.SetRotation(count, unit);
    EXPECT_EQ(log.GetRotation().GetString(), text);
  }
  const std::tuple<unsigned, int, const char*> ages[] = {
      {5, -1, "5 minutes"}, {2, 1, "2 hours"}, {1, 3, "1 weeks"}, {7, 9, "7 days"}};
  for (const auto& [count, unit, text] : ages) {
    log.SetPurgeAge(count, unit);
    EXPECT_EQ(log.GetPurgeAge().GetString(), text);
  }
  log.SetArchive(7);
  EXPECT_EQ(log.GetArchive().GetString(), "number");
}

TEST_F(VLogTest, TheBannerComesOnceBeforeTheFirstLineWhateverTheLevel) {
  log.SetLevel(1);
  log.Fatal("first");
  log.Information("filtered");
  log.Open();  // already open: no second banner
  log.Fatal("second");
  const auto lines = Lines();
  ASSERT_EQ(lines.size(), kBanner + 2);
  EXPECT_EQ(lines[0], std::string(53, '*'));
  EXPECT_EQ(lines[1], "* - Log System -\t\t\t\t\t\t\t\t\t ");
  EXPECT_EQ(lines[1].size(), 26u);
  EXPECT_TRUE(std::regex_match(
      lines[2],
      std::regex(R"(\* Creation date: \d{1,2}/\d{1,2}/\d{4} at \d{1,2}:\d{1,2}:\d{1,2})")))
      << lines[2];
  EXPECT_EQ(lines[3], "* Name: test");
  EXPECT_EQ(lines[4], "*" + std::string(52, ' '));
  EXPECT_EQ(lines[5], std::string(53, '*'));
  const std::regex pattern(
      R"(\d{4}/\d{1,2}/\d{1,2} - \[(Mon|Tue|Wed|Thu|Fri|Sat|Sun)\] - \d\d:\d\d:\d\d - first)");
  EXPECT_TRUE(std::regex_match(lines[6], pattern)) << lines[6];
  EXPECT_NE(lines[7].find(" - second"), std::string::npos);
}

TEST_F(VLogTest, LevelNamesOfTheCurrentLog) {
  for (const char* name :
       {"INFO", "INFORMATION", "WARNING", "FATAL", "ERROR", "CRITICAL", "NOTICE", "TRACE"}) {
    VLog::LogCurrentByLevel(name, std::string("as ") + name);
  }
  for (const char* name : {"DEBUG", "info", "Warning", "", "INFO "}) {
    VLog::LogCurrentByLevel(name, "dropped");
  }
  VLog::LogCurrentByLevel(std::string("INFO\0X", 6), "dropped");
  VLog::LogCurrent("plain");
  const auto lines = Lines();
  ASSERT_EQ(lines.size(), kBanner + 9);
  for (const auto& line : lines) EXPECT_EQ(line.find("dropped"), std::string::npos);
  EXPECT_NE(lines.back().find("plain"), std::string::npos);
}

TEST_F(VLogTest, TheLevelFiltersMessages) {
  log.SetLevel(4);  // errors and warnings only
  log.Warning("kept warning");
  log.Notice("dropped notice");
  EXPECT_TRUE(log.IsEnabled(4) && !log.IsEnabled(5));
  EXPECT_EQ(Lines().size(), kBanner + 1);
}

TEST_F(VLogTest, NoLineIsLostFromFourThreads) {
  constexpr int kThreads = 4;
  constexpr int kLines = 100000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([this, t] {
      for (int i = 0; i < kLines; ++i) log.Information(std::to_string(t) + ":" + std::to_string(i));
    });
  }
  for (auto& thread : threads) thread.join();
  const auto lines = Lines();
  ASSERT_EQ(lines.size(), kBanner + kThreads * kLines);
  std::vector<int> next(kThreads, 0);
  for (size_t i = kBanner; i < lines.size(); ++i) {
    const size_t text = lines[i].rfind(" - ") + 3;
    const int thread = std::stoi(lines[i].substr(text));
    const int number = std::stoi(lines[i].substr(lines[i].find(':', text) + 1));
    ASSERT_EQ(number, next[thread]) << "thread " << thread << " out of order";
    ++next[thread];
  }
}

TEST(VLogLifetimeTest, DestroyingTheLogWritesEveryQueuedLineAndClearsTheCurrentLog) {
  const TempDir dir;
  {
    VLog log;
    log.SetFolder(VPath(dir.path().c_str()));
    log.SetName(VString("gone"));
    VLog::SetCurrent(&log);
    for (int i = 0; i < 50000; ++i) log.Information("line " + std::to_string(i));
    VLog copy(log);  // an opened copy shares the writer; its end leaves the log working
  }
  EXPECT_EQ(VLog::GetCurrent(), nullptr);
  const auto lines = ReadLines(dir / "gone.log");
  ASSERT_EQ(lines.size(), kBanner + 50000);
  EXPECT_NE(lines.back().find("line 49999"), std::string::npos);
}

// Lines reach the file in batches; a batch must still end at the limit, so that every archive
// closes within one line of it, and no line is lost on the way.
TEST(VLogRotationTest, SizeRotationClosesEachArchiveWithinOneLineOfItsLimit) {
  const TempDir dir;
  constexpr size_t kLines = 600;
  {
    VLog log;
    log.SetFolder(VPath(dir.path().c_str()));
    log.SetName(VString("rot"));
    log.SetRotation(1, 8);  // 1 K
    for (size_t i = 0; i < kLines; ++i) {
      log.Information("line " + std::to_string(i) + std::string(i % 50, '.'));
    }
  }
  size_t total = 0;
  size_t archives = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    const auto lines = ReadLines(entry.path().string());
    total += lines.size();
    if (entry.path().filename() == "rot.log") continue;
    ++archives;
    size_t longest = 0;
    for (const std::string& line : lines) longest = std::max(longest, line.size() + 1);
    EXPECT_LE(std::filesystem::file_size(entry.path()), 1024 + longest) << entry.path();
  }
  EXPECT_GE(archives, 30u);
  EXPECT_EQ(total, kBanner + kLines);
}

TEST(VLogRotationTest, TimestampArchivesAndPurgingOfOldArchives) {
  const TempDir dir;
  const std::string old = dir.Write("p.log.7", "old archive\n");
  std::filesystem::last_write_time(
      old, std::filesystem::file_time_type::clock::now() - std::chrono::hours(2));
  {
    VLog log;
    log.SetFolder(VPath(dir.path().c_str()));
    log.SetName(VString("p"));
    log.SetRotation(1, 8);
    log.SetArchive(1);
    log.SetPurgeAge(1, 1);  // one hour
    for (int i = 0; i < 60; ++i) {
      log.Information(std::string(100, 'x'));
      log.Flush();
    }
  }
  EXPECT_FALSE(std::filesystem::exists(old));
  bool stamped = false;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    stamped |= std::regex_match(entry.path().filename().string(),
                                std::regex(R"(p\.log\.\d{14,}(\.\d+)?)"));
  }
  EXPECT_TRUE(stamped);
}

TEST(VLogFailureTest, AnUnwritableFolderNeitherCrashesNorThrows) {
  const TempDir dir;
  const std::string plain = dir.Write("plain", "x");
  VLog log;
  log.SetFolder(VPath((plain + "/below").c_str()));
  log.SetName(VString("x"));
  EXPECT_NO_THROW(log.Open());
  EXPECT_NO_THROW(log.Error("lost"));
  EXPECT_NO_THROW(log.Flush());
  EXPECT_FALSE(std::filesystem::exists(plain + "/below"));
}

}  // namespace
