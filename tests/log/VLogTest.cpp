#include <gtest/gtest.h>

#include <Poco/AutoPtr.h>
#include <Poco/Message.h>
#include <Poco/PatternFormatter.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iomanip>
#include <random>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <vantu/VLog.h>
#include <vantu/VLogMessage.h>
#include <vantu/vantu.h>

#include "log/internal/LogLineFormatter.h"
#include "support/LogFiles.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using vantu::test::EnvironmentAt;
using vantu::test::ReadLines;
using vantu::test::TempDir;

constexpr size_t kBanner = 6;

// The texts of a log file without the date pattern, skipping the banner and continuation lines.
std::vector<std::string> TextsOf(const std::string& path) {
  std::vector<std::string> texts;
  for (const std::string& line : ReadLines(path)) {
    const size_t date = line.find("] - ");
    if (date != std::string::npos) texts.push_back(line.substr(line.find(" - ", date + 4) + 3));
  }
  return texts;
}

// A log in its own temporary folder, never rotated, made current for the test.
class VLogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    log.SetFolder(VPath(dir.path().c_str()));
    log.SetName(VString("test"));
    log.SetRotation(1, -1);
    previous = VLog::SetCurrent(&log);
  }
  void TearDown() override { VLog::SetCurrent(previous); }
  std::vector<std::string> Texts() {
    log.Flush();
    return TextsOf(dir / "test.log");
  }
  TempDir dir;
  VLog log;
  VLog* previous = nullptr;
};

// File path, rotation, archive, purge age and level.
std::string Properties(const VLog& log) {
  return log.GetFilePath().GetString() + "|" + log.GetRotation().GetString() + "|" +
         log.GetArchive().GetString() + "|" + log.GetPurgeAge().GetString() + "|" +
         std::to_string(log.GetLevel());
}

TEST(VLogDefaultsTest, DefaultsPropertyTextsAndAnUnwritableFolder) {
  const TempDir home;
  const EnvironmentAt appData("XDG_DATA_HOME", home.path());
  VLog log;
  const std::string folder = home.path() + "/Tarvik Software/";
  EXPECT_TRUE(fs::is_directory(folder) && !log.IsOpened());
  EXPECT_EQ(Properties(log), folder + "vantu_log_tests.log|10 M|number|24 hours|8");
  log.SetFolder(VPath());  // the default folder again
  log.SetName(VString("n"));
  log.SetArchive(1);
  EXPECT_EQ(Properties(log), folder + "n.log|10 M|timestamp|24 hours|8");
  log.SetArchive(7);
  EXPECT_EQ(log.GetArchive().GetString(), "number");
  const std::tuple<unsigned, int, const char*> rotations[] = {
      {1, 0, "1 daily"},  {10, 9, "10 M"},   {3, 42, "3 days"},  {500000, 7, "500000 "},
      {1, -1, "1 never"}, {6, 3, "6 hours"}, {1, 6, "1 months"}, {64, 8, "64 K"}};
  for (const auto& [count, unit, text] : rotations)
    EXPECT_EQ((log.SetRotation(count, unit), log.GetRotation().GetString()), text);
  const std::tuple<unsigned, int, const char*> ages[] = {
      {5, -1, "5 minutes"}, {2, 1, "2 hours"}, {1, 3, "1 weeks"}, {7, 9, "7 days"}};
  for (const auto& [count, unit, text] : ages)
    EXPECT_EQ((log.SetPurgeAge(count, unit), log.GetPurgeAge().GetString()), text);
  // A folder that cannot be made: the lines go nowhere, without a crash or an exception.
  const std::string plain = home.Write("plain", "x");
  log.SetFolder(VPath((plain + "/below").c_str()));
  EXPECT_NO_THROW((log.Open(), log.Error("lost"), log.Flush()));
  EXPECT_FALSE(fs::exists(plain + "/below"));
  // A missing application-data folder is not made: only the folder below it would be.
  const EnvironmentAt missing("XDG_DATA_HOME", home / "gone/share");
  VLog homeless;
  EXPECT_NO_THROW((homeless.Open(), homeless.Error("lost"), homeless.Flush()));
  EXPECT_FALSE(fs::exists(home / "gone"));
}

TEST_F(VLogTest, TheBannerComesOnceBeforeTheFirstLineWhateverTheLevel) {
  log.SetLevel(4);  // errors and warnings only
  log.Fatal("first");
  log.Notice("filtered");
  log.Open();  // already open: no second banner
  log.Warning("second");
  EXPECT_TRUE(log.IsEnabled(4) && !log.IsEnabled(5));
  log.Flush();
  std::string all;
  for (const std::string& line : ReadLines(dir / "test.log")) all += line + "\n";
  const std::string rule = R"(\*{53}\n)";
  EXPECT_TRUE(std::regex_match(
      all, std::regex(rule + R"(\* - Log System -\t{9} \n)" +
                      R"(\* Creation date: \d{1,2}/\d{1,2}/\d{4} at \d{1,2}:\d{1,2}:\d{1,2}\n)" +
                      R"(\* Name: test\n\* {52}\n)" + rule +
                      R"(\d{4}/\d{1,2}/\d{1,2} - \[(Mon|Tue|Wed|Thu|Fri|Sat|Sun)\] - )" +
                      R"(\d\d:\d\d:\d\d - first\n[^\n]* - second\n)")))
      << all;
}

TEST_F(VLogTest, NoLineIsLostFromFourThreads) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this, t] {
      for (int i = 0; i < 100000; ++i) {
        if (t % 2 != 0) {
          VLOG(INFO) << t << ":" << i;
        } else {
          log.Information(std::to_string(t) + ":" + std::to_string(i));
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  const auto texts = Texts();
  ASSERT_EQ(texts.size(), 400000u);
  std::vector<int> next(4, 0);
  for (std::string text : texts) {
    if (text.back() == '"') text = text.substr(text.find('"') + 1);  // VLOG's: INFO [...]\t"t:i"
    ASSERT_EQ(std::stoi(text.substr(text.find(':') + 1)), next[std::stoi(text)]++) << text;
  }
}

// Lines reach the file in batches; a batch must still end at the limit, so that every archive
// closes within one line of it. Destroying the log writes every queued line; archives older than
// the purge age go.
TEST(VLogRotationTest, SizeRotationClosesEachArchiveWithinOneLineOfItsLimit) {
  const TempDir dir;
  const std::string old = dir.Write("rot.log.7", "old archive\n");
  fs::last_write_time(old, fs::file_time_type::clock::now() - std::chrono::hours(2));
  {
    VLog log;
    log.SetFolder(VPath(dir.path().c_str()));
    log.SetName(VString("rot"));
    log.SetRotation(1, 8);  // 1 K
    log.SetPurgeAge(1, 1);  // one hour
    VLog::SetCurrent(&log);
    for (size_t i = 0; i < 600; ++i) VLog::LogCurrent(std::to_string(i).append(i % 50, '.'));
    VLog copy(log);  // an opened copy shares the writer; its end leaves the log working
  }
  EXPECT_EQ(VLog::GetCurrent(), nullptr);
  size_t total = 0;
  size_t archives = 0;
  for (const auto& entry : fs::directory_iterator(dir.path())) {
    const auto lines = ReadLines(entry.path().string());
    total += lines.size();
    archives += entry.path().filename() != "rot.log";
    size_t longest = 0;
    for (const std::string& line : lines) longest = std::max(longest, line.size() + 1);
    EXPECT_LE(fs::file_size(entry.path()), 1024 + longest) << entry.path();
  }
  EXPECT_GE(archives, 30u);
  EXPECT_EQ(total, kBanner + 600);  // and not the old archive's line
}

TEST(VLogRotationTest, ArchivesByTimestamp) {
  const TempDir dir;
  void* log = vantu_CreateLog("p", dir.path().c_str(), 8, 1, 8, 1, 24, 1);
  for (int i = 0; i < 3; ++i) vantu_LogMessage(log, 0, std::string(1100, 'x').c_str());
  vantu_DeleteLog(&log);
  bool stamped = false;
  for (const auto& entry : fs::directory_iterator(dir.path()))
    stamped |= std::regex_match(entry.path().filename().string(),
                                std::regex(R"(p\.log\.\d{14,}(\.\d+)?)"));
  EXPECT_TRUE(stamped);
}

TEST_F(VLogTest, LevelNamesTheLineLayoutAndFormat) {
  for (const char* name : {"INFO", "INFORMATION", "WARNING", "FATAL", "ERROR", "CRITICAL", "NOTICE",
                           "TRACE", "DEBUG", "info", "Warning", "", "INFO "}) {
    VLog::LogCurrentByLevel(name, name);
  }
  VLog::LogCurrentByLevel(std::string("INFO\0X", 6), "dropped");
  VLog::LogCurrent("plain");
  VLogMessage("C:/src/Common/VHotfolder", 120, "Scan", "ERROR").messageStream() << "cannot open";
  VLogMessage("/x/y/file.cpp", 7, "Die", "FATAL").messageStream() << "fatal " << 1;
  VLogMessage(std::string("a(b"), 3, std::string("f"),
              std::string("INFO"));  // nothing after the tab
  VLogMessage("dir\\win.cpp", 9, "f", "WARNING").messageStream() << "w";
  VLogMessage("f", 1, "g", "DEBUG").messageStream() << "no";  // never written, like unknown names
  VLOG(DEBUG) << "no";
  VLogMessage("f", 1, "g", "INFO").Format("%s", std::string(3000, 'x').c_str());
  VLogMessage("f", 3, "g", "INFO").Format("%d+%s", 1, "2").Format("=%d", 3);
  VLogMessage("f", 2, "g", "INFO").Format("%s", "");  // a notice ending with a line break
  // A thread's messages reuse one stream: each starts empty and in the default format.
  VLogMessage("f", 4, "g", "INFO").messageStream()
      << std::hex << std::showbase << std::setfill('0') << std::setw(6) << 255 << std::boolalpha
      << std::setprecision(2) << ' ' << true << ' ' << 3.14159;
  {
    VLogMessage outer("f", 6, "g", "INFO");
    outer.messageStream() << "outer " << 255;
    VLogMessage("f", 5, "g", "INFO").messageStream() << 255 << ' ' << true << ' ' << 3.14159;
  }
  EXPECT_EQ(Texts(), (std::vector<std::string>{
                         "INFO", "INFORMATION", "WARNING", "FATAL", "ERROR", "CRITICAL", "NOTICE",
                         "TRACE", "plain", "ERROR [File: VHotfolder Line: 120]\t\"cannot open\"",
                         "FATAL [File: file.cpp at: Die Line: 7]\t\"fatal 1\"",
                         "INFO [File: b Line: 3]\t", "WARNING [File: win.cpp Line: 9]\t\"w\"",
                         "INFO [File: f Line: 1]\t\"" + std::string(2047, 'x') + "2048\"",
                         "INFO [File: f Line: 3]\t\"1+2=3\"", "INFO [File: f Line: 2]\t\"",
                         "INFO [File: f Line: 4]\t\"000xff true 3.1\"",
                         "INFO [File: f Line: 5]\t\"255 1 3.14159\"",
                         "INFO [File: f Line: 6]\t\"outer 255\""}));
  const auto lines = ReadLines(dir / "test.log");
  ASSERT_EQ(lines.size(), kBanner + 21);
  EXPECT_EQ(lines[22],
            "\tERROR LOG MSG NOTIFICATION: Failure to parse successfully the message\"%s\"");
  EXPECT_EQ(lines[23], "\"");
}

TEST_F(VLogTest, TheMacrosSkipFilteredStatementsWithoutEvaluatingThem) {
  log.SetLevel(4);
  int evaluated = 0;
  auto count = [&] { return ++evaluated; };
  VLOG(INFO) << "filtered " << count();
  VLOG(DEBUG) << count();
  VLOG(WARNING) << "kept " << count();
  VLOG_AT(ERROR, "Common/VHotfolder", 146, "VHotfolder::CheckFolderChanges").Format("at %d", 146);
  if (evaluated > 100)
    VLOG(ERROR) << "never";
  else
    VLOG(ERROR) << "else branch";  // the macro leaves if/else pairing intact
  EXPECT_EQ(evaluated, 1);
  const auto texts = Texts();
  ASSERT_EQ(texts.size(), 3u);
  EXPECT_NE(texts[0].find("VLogTest.cpp Line: "), std::string::npos) << texts[0];
  EXPECT_EQ(texts[1], "ERROR [File: VHotfolder Line: 146]\t\"at 146\"");
  EXPECT_NE(texts[2].find("else branch"), std::string::npos);
  // Without a current log nothing is written or evaluated.
  VLog::SetCurrent(nullptr);
  EXPECT_FALSE(VLogMessage::WouldLog("ERROR"));
  VLogMessage("f", 1, "g", "ERROR").messageStream() << "nowhere";
  VLOG(FATAL) << count();
  EXPECT_EQ(evaluated, 1);
}

TEST(FlatLogTest, CreateLogNormalisesItsArgumentsAndLogsByTheInterfacesLevelCodes) {
  const TempDir home;
  const EnvironmentAt appData("XDG_DATA_HOME", home.path());
  VLog* before = VLog::GetCurrent();
  void* handle = vantu_CreateLogEx(nullptr, nullptr, 0, 0, 99, 5, 24, 7, 0);
  ASSERT_NE(handle, nullptr);
  const std::string path = home.path() + "/Tarvik Software/vantu_log_tests.log";
  EXPECT_EQ(Properties(*static_cast<VLog*>(handle)), path + "|1 days|number|24 days|3");
  EXPECT_EQ(vantu_GetCurrentLog(), before);
  vantu_DeleteLog(&handle);
  EXPECT_EQ(handle, nullptr);
  vantu_DeleteLog(&handle);  // a second call does nothing
  vantu_DeleteLog(nullptr);
  // Opened at once: with a rotation by time the file channel puts the file's creation time on
  // a first line of its own, before the banner.
  EXPECT_EQ(ReadLines(path).size(), kBanner + 1);

  handle = vantu_CreateLog("flat", home.path().c_str(), 4, 10, 9, 1, 5, 1);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(vantu_GetCurrentLog(), handle);
  EXPECT_EQ(Properties(*static_cast<VLog*>(handle)), home / "flat.log|10 M|timestamp|5 hours|4");
  EXPECT_EQ(vantu_LogMessage(handle, 42, "code 42 is error"), 0);
  EXPECT_EQ(vantu_LogMessage(handle, 2, "code 2 is warning"), 0);
  EXPECT_EQ(vantu_LogMessage(handle, 6, "code 6 is notice: filtered at level 4"), 0);
  EXPECT_EQ(vantu_LogMessage(handle, 0, nullptr), 0);
  EXPECT_EQ(vantu_LogMessage(nullptr, 0, "x"), -1);
  vantu_DeleteLog(&handle);
  EXPECT_EQ(vantu_GetCurrentLog(), nullptr);
  EXPECT_EQ(TextsOf(home / "flat.log"),
            (std::vector<std::string>{"code 42 is error", "code 2 is warning"}));
}

// The log's own line formatter must give the bytes of POCO's pattern formatter.
TEST(LogLineFormatterTest, SameBytesAsPocosPatternFormatter) {
  Poco::AutoPtr<Poco::PatternFormatter> poco(
      new Poco::PatternFormatter("%Y/%n/%e - [%w] - %H:%M:%S - %t"));
  vantu::internal::LogLineFormatter ours;
  ours.SetDated(true);
  // Day and year boundaries; instants from 1970 to 2400; the last minute before midnights, where
  // POCO's floating-point weekday rounds.
  std::vector<long long> times = {0,
                                  86399999999,
                                  86400000000,
                                  951782400000000,
                                  951868799999999,
                                  1767225599999999,
                                  1767225600000000};
  std::mt19937_64 random(7);
  std::uniform_int_distribution<long long> instants(0, 13569465600LL * 1000000);
  for (int i = 0; i < 20000; ++i) times.push_back(instants(random));
  for (int day = 0; day < 400; ++day)
    for (long long d = -60; d <= 3; ++d) times.push_back((day * 97LL + 3) * 86400000000LL + d);
  Poco::Message message("source", "text \"quoted\"\t", Poco::Message::PRIO_INFORMATION);
  for (long long us : times) {
    message.setTime(Poco::Timestamp(us));
    std::string expected, actual, throughChannel;
    poco->format(message, expected);
    ours.Format(Poco::Timestamp(us), message.getText(), actual);
    ours.format(message, throughChannel);
    ASSERT_EQ(actual, expected) << us;
    ASSERT_EQ(throughChannel, expected) << us;
  }
  ours.SetDated(false);
  std::string bare;
  ours.Format(Poco::Timestamp(0), "banner", bare);
  EXPECT_EQ(bare, "banner");
}

}  // namespace
