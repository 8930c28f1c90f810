#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vantu/VLog.h>
#include <vantu/VLogMessage.h>

#include "support/LogFiles.h"
#include "support/TempDir.h"

namespace {

using vantu::test::ReadLines;
using vantu::test::TempDir;

class VLogMessageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    log.SetFolder(VPath(dir.path().c_str()));
    log.SetName(VString("m"));
    previous = VLog::SetCurrent(&log);
  }
  void TearDown() override { VLog::SetCurrent(previous); }
  // The message texts after the banner, without the date pattern.
  std::vector<std::string> Texts() {
    log.Flush();
    std::vector<std::string> texts;
    const auto lines = ReadLines(dir / "m.log");
    for (size_t i = 6; i < lines.size(); ++i) {
      const size_t date = lines[i].find("] - ");
      if (date == std::string::npos) continue;  // the continuation of a multi-line text
      texts.push_back(lines[i].substr(lines[i].find(" - ", date + 4) + 3));
    }
    return texts;
  }
  TempDir dir;
  VLog log;
  VLog* previous = nullptr;
};

TEST_F(VLogMessageTest, TheLineLayout) {
  {
    VLogMessage("C:/src/Common/VHotfolder", 120, "Scan", "ERROR").messageStream() << "cannot open";
  }
  { VLogMessage("/x/y/file.cpp", 7, "Die", "FATAL").messageStream() << "fatal " << 1; }
  { VLogMessage("a(b", 3, "f", "INFO"); }  // empty message: nothing after the tab
  { VLogMessage("dir\\win.cpp", 9, "f", "WARNING").messageStream() << "w"; }
  log.Open();
  const auto texts = Texts();
  ASSERT_EQ(texts.size(), 4u);
  EXPECT_EQ(texts[0], "ERROR [File: VHotfolder Line: 120]\t\"cannot open\"");
  EXPECT_EQ(texts[1], "FATAL [File: file.cpp at: Die Line: 7]\t\"fatal 1\"");
  EXPECT_EQ(texts[2], "INFO [File: b Line: 3]\t");
  EXPECT_EQ(texts[3], "WARNING [File: win.cpp Line: 9]\t\"w\"");
}

TEST_F(VLogMessageTest, DebugAndUnknownLevelsAreNeverWritten) {
  log.SetLevel(8);
  { VLogMessage("f", 1, "g", "DEBUG").messageStream() << "no"; }
  { VLogMessage("f", 1, "g", "VERBOSE").messageStream() << "no"; }
  VLOG(DEBUG) << "no";
  log.Open();
  EXPECT_TRUE(Texts().empty());
}

TEST_F(VLogMessageTest, FormatCutsLongTextAndReportsEmptyResults) {
  const std::string big(3000, 'x');
  { VLogMessage("f", 1, "g", "INFO").Format("%s", big.c_str()); }
  {
    VLogMessage message("f", 2, "g", "INFO");
    message.Format("%s", "");
  }
  { VLogMessage("f", 3, "g", "INFO").Format("%d+%s", 1, "2").Format("=%d", 3); }
  log.Open();
  const auto texts = Texts();
  ASSERT_GE(texts.size(), 3u);
  EXPECT_EQ(texts[0], "INFO [File: f Line: 1]\t\"" + std::string(2047, 'x') + "2048\"");
  // The notice ends with a line break, so the text spans three lines of the file.
  EXPECT_EQ(texts[1], "INFO [File: f Line: 2]\t\"");
  const auto lines = ReadLines(dir / "m.log");
  ASSERT_GE(lines.size(), 11u);
  EXPECT_EQ(lines[8],
            "\tERROR LOG MSG NOTIFICATION: Failure to parse successfully the message\"%s\"");
  EXPECT_EQ(lines[9], "\"");
  EXPECT_EQ(texts.back(), "INFO [File: f Line: 3]\t\"1+2=3\"");
}

TEST_F(VLogMessageTest, TheMacrosSkipFilteredStatementsWithoutEvaluatingThem) {
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
  EXPECT_NE(texts[0].find("VLogMessageTest.cpp Line: "), std::string::npos) << texts[0];
  EXPECT_EQ(texts[1], "ERROR [File: VHotfolder Line: 146]\t\"at 146\"");
  EXPECT_NE(texts[2].find("else branch"), std::string::npos);
}

TEST(VLogMessageWithoutLogTest, NothingHappensWithoutACurrentLog) {
  VLog* previous = VLog::SetCurrent(nullptr);
  EXPECT_FALSE(VLogMessage::WouldLog("ERROR"));
  { VLogMessage("f", 1, "g", "ERROR").messageStream() << "nowhere"; }
  VLOG(FATAL) << "nowhere";
  VLog::SetCurrent(previous);
}

}  // namespace
