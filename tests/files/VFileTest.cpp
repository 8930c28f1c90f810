#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include <vantu/VException.h>
#include <vantu/VFile.h>

#include "support/TempDir.h"

namespace {

using vantu::test::HeldOpen;
using vantu::test::RunningAsRoot;
using vantu::test::TempDir;

TEST(VFileTest, QueriesOnAnEmptyPathAnswerFalse) {
  const VFile empty;
  EXPECT_FALSE(empty.Exists());
  EXPECT_FALSE(empty.IsFile());
  EXPECT_FALSE(empty.IsDirectory());
  EXPECT_EQ(empty.GetSize(), 0u);
  EXPECT_FALSE(empty.CreateDirectory());
  EXPECT_FALSE(empty.IsShortcut());
  EXPECT_FALSE(empty.IsAvailable(false, false));
  std::vector<std::string> names;
  empty.List(names);
  EXPECT_TRUE(names.empty());
}

TEST(VFileTest, FilesAndDirectories) {
  const TempDir dir;
  const VFile file(dir.Write("a.txt", "hello").c_str());
  EXPECT_TRUE(file.Exists());
  EXPECT_TRUE(file.IsFile());
  EXPECT_FALSE(file.IsDirectory());
  EXPECT_EQ(file.GetSize(), 5u);

  const VFile sub((dir / "sub").c_str());
  EXPECT_TRUE(sub.CreateDirectory());
  EXPECT_FALSE(sub.CreateDirectory());  // already there
  EXPECT_TRUE(sub.IsDirectory());
  const VFile deep((dir / "x/y/z").c_str());
  deep.CreateDirectories();
  EXPECT_TRUE(deep.IsDirectory());

  std::vector<std::string> names{"kept"};
  VFile(dir.path().c_str()).List(names);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"a.txt", "kept", "sub", "x"}));

  VFile((dir / "x").c_str()).Remove(true);
  EXPECT_FALSE(deep.Exists());
  file.Remove(false);
  EXPECT_FALSE(file.Exists());
}

TEST(VFileTest, FailuresBecomeTheLibrarysFileExceptions) {
  const TempDir dir;
  try {
    VFile((dir / "missing").c_str()).Remove(false);
    FAIL() << "no exception";
  } catch (const VantuFileNotFoundException& e) {
    EXPECT_NE(e.Message().find("missing"), std::string::npos) << e.Message();
  }
  const std::string plain = dir.Write("plain", "x");
  EXPECT_THROW(VFile((plain + "/under").c_str()).CreateDirectories(), VantuFileException);
  dir.Write("full/f", "x");
  EXPECT_THROW(VFile((dir / "full").c_str()).Remove(false), VantuFileException);
  EXPECT_TRUE(VFile((dir / "full").c_str()).Exists());
}

TEST(VFileTest, AccessDeniedAsANonRootUser) {
  if (RunningAsRoot()) GTEST_SKIP() << "root is never denied access";
  const TempDir dir;
  dir.Write("locked/f", "x");
  ASSERT_EQ(::chmod((dir / "locked").c_str(), 0500), 0);
  EXPECT_THROW(VFile((dir / "locked/f").c_str()).Remove(false), VantuFileAccessDeniedException);
  EXPECT_THROW(VFile((dir / "locked/new/deeper").c_str()).CreateDirectories(),
               VantuFileAccessDeniedException);
  ::chmod((dir / "locked").c_str(), 0700);
}

TEST(VFileTest, ShortcutsAreSymbolicLinksToExistingTargets) {
  const TempDir dir;
  const std::string target = dir.Write("t", "x");
  ASSERT_EQ(::symlink(target.c_str(), (dir / "link").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "gone").c_str(), (dir / "broken").c_str()), 0);
  EXPECT_TRUE(VFile((dir / "link").c_str()).IsShortcut());
  EXPECT_FALSE(VFile((dir / "broken").c_str()).IsShortcut());
  EXPECT_FALSE(VFile(target.c_str()).IsShortcut());
}

TEST(VFileTest, AvailabilityOfEmptyMissingAndSpecialFiles) {
  const TempDir dir;
  const VFile empty(dir.Write("empty", "").c_str());
  EXPECT_FALSE(empty.IsAvailable(true, false));
  EXPECT_TRUE(empty.IsAvailable(false, false));
  EXPECT_TRUE(empty.IsAvailable(false, true));
  EXPECT_FALSE(VFile((dir / "missing").c_str()).IsAvailable(false, false));
  EXPECT_FALSE(VFile(dir.path().c_str()).IsAvailable(false, false));  // a directory
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  EXPECT_FALSE(VFile((dir / "fifo").c_str()).IsAvailable(false, false));  // and must not block
}

TEST(VFileTest, AFileAnotherProcessWritesIsNotAvailableUntilItIsClosed) {
  const TempDir dir;
  const VFile file(dir.Write("growing", "data").c_str());
  ASSERT_TRUE(file.IsAvailable(true, false));
  {
    HeldOpen writer(dir / "growing", true);
    ASSERT_TRUE(writer.opened());
    EXPECT_FALSE(file.IsAvailable(true, false));
    EXPECT_FALSE(file.IsAvailable(false, false));
    EXPECT_FALSE(file.IsAvailable(false, true));
    writer.Release();
    EXPECT_TRUE(file.IsAvailable(true, false));
  }
  // A reader elsewhere does not stop a reader here, but it does stop exclusive access.
  HeldOpen reader(dir / "growing", false);
  ASSERT_TRUE(reader.opened());
  EXPECT_TRUE(file.IsAvailable(true, false));
  EXPECT_FALSE(file.IsAvailable(true, true));
  reader.Release();
  EXPECT_TRUE(file.IsAvailable(true, true));
}

TEST(VFileTest, AnUnreadableFileIsNotAvailable) {
  if (RunningAsRoot()) GTEST_SKIP() << "root reads every file";
  const TempDir dir;
  const std::string path = dir.Write("secret", "x");
  ASSERT_EQ(::chmod(path.c_str(), 0200), 0);
  EXPECT_FALSE(VFile(path.c_str()).IsAvailable(false, false));
}

}  // namespace
