#include <gtest/gtest.h>

#include <string>

#include <vantu/VLog.h>
#include <vantu/vantu.h>

#include "support/LogFiles.h"
#include "support/TempDir.h"

namespace {

using vantu::test::EnvironmentAt;
using vantu::test::ReadLines;
using vantu::test::TempDir;

TEST(FlatLogTest, CreateLogExNormalisesItsArguments) {
  const TempDir home;
  const EnvironmentAt appData("XDG_DATA_HOME", home.path());
  VLog* before = VLog::GetCurrent();
  void* handle = vantu_CreateLogEx(nullptr, nullptr, 0, 0, 99, 5, 24, 7, 0);
  ASSERT_NE(handle, nullptr);
  const VLog* log = static_cast<VLog*>(handle);
  EXPECT_EQ(log->GetLevel(), 3);
  EXPECT_EQ(log->GetRotation().GetString(), "1 days");
  EXPECT_EQ(log->GetArchive().GetString(), "number");
  EXPECT_EQ(log->GetPurgeAge().GetString(), "24 days");
  EXPECT_EQ(log->GetFilePath().GetString(), home.path() + "/Tarvik Software/vantu_log_tests.log");
  EXPECT_EQ(vantu_GetCurrentLog(), before);
  vantu_DeleteLog(&handle);
  EXPECT_EQ(handle, nullptr);
  vantu_DeleteLog(&handle);  // a second call does nothing
  vantu_DeleteLog(nullptr);
  // The file was created and the banner written at once; with a rotation by time the file
  // channel puts the file's creation time on a first line of its own.
  const auto lines = ReadLines(home.path() + "/Tarvik Software/vantu_log_tests.log");
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(lines[1], std::string(53, '*'));
  EXPECT_EQ(lines[6], std::string(53, '*'));
}

TEST(FlatLogTest, MessagesByTheInterfacesOwnLevelCodes) {
  const TempDir dir;
  void* handle = vantu_CreateLog("flat", dir.path().c_str(), 4, 10, 9, 1, 5, 1);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(vantu_GetCurrentLog(), handle);
  EXPECT_EQ(static_cast<VLog*>(handle)->GetArchive().GetString(), "timestamp");
  EXPECT_EQ(static_cast<VLog*>(handle)->GetPurgeAge().GetString(), "5 hours");
  EXPECT_EQ(vantu_LogMessage(handle, 42, "code 42 is error"), 0);
  EXPECT_EQ(vantu_LogMessage(handle, 2, "code 2 is warning"), 0);
  EXPECT_EQ(vantu_LogMessage(handle, 6, "code 6 is notice: filtered at level 4"), 0);
  EXPECT_EQ(vantu_LogMessage(handle, 0, nullptr), 0);
  EXPECT_EQ(vantu_LogMessage(nullptr, 0, "x"), -1);
  vantu_DeleteLog(&handle);
  EXPECT_EQ(vantu_GetCurrentLog(), nullptr);
  const auto lines = ReadLines(dir / "flat.log");
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_NE(lines[6].find("code 42 is error"), std::string::npos);
  EXPECT_NE(lines[7].find("code 2 is warning"), std::string::npos);
}

}  // namespace
