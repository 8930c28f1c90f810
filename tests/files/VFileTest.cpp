#include <gtest/gtest.h>

#include <Poco/Exception.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include <vantu/VException.h>
#include <vantu/VFile.h>

#include "internal/FileErrors.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using vantu::test::HeldOpen;
using vantu::test::RunningAsRoot;
using vantu::test::TempDir;

TEST(VFileTest, QueriesOnAnEmptyPathAnswerFalse) {
  const VFile empty;
  EXPECT_FALSE(empty.Exists() || empty.IsFile() || empty.IsDirectory() || empty.IsShortcut() ||
               empty.CreateDirectory() || empty.IsAvailable(false, false));
  EXPECT_EQ(empty.GetSize(), 0u);
}

TEST(VFileTest, FilesDirectoriesAndTheirFailures) {
  const TempDir dir;
  const VFile file(dir.Write("a.txt", "hello").c_str());
  EXPECT_TRUE(file.IsFile() && !file.IsDirectory());
  EXPECT_EQ(file.GetSize(), 5u);
  const VFile sub((dir / "sub").c_str());
  EXPECT_TRUE(sub.CreateDirectory());
  EXPECT_FALSE(sub.CreateDirectory());  // already there
  VFile((dir / "x/y/z").c_str()).CreateDirectories();
  std::vector<std::string> names{"kept"};  // List appends
  VFile(dir.path().c_str()).List(names);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"a.txt", "kept", "sub", "x"}));
  VFile((dir / "x").c_str()).Remove(true);
  EXPECT_FALSE(VFile((dir / "x").c_str()).Exists());

  try {
    VFile((dir / "missing").c_str()).Remove(false);
    FAIL() << "no exception";
  } catch (const VantuFileNotFoundException& e) {
    EXPECT_NE(e.Message().find("missing"), std::string::npos) << e.Message();
  }
  EXPECT_THROW(VFile((dir / "missing").c_str()).Remove(true), VantuFileNotFoundException);
  EXPECT_THROW(VFile((dir / "a.txt/under").c_str()).CreateDirectories(), VantuFileException);
  dir.Write("full/f", "x");
  EXPECT_THROW(VFile((dir / "full").c_str()).Remove(false), VantuFileException);
  EXPECT_TRUE(VFile((dir / "full").c_str()).Exists());
}

template <typename Expected, typename Thrown>
void ExpectTranslated(const Thrown& thrown, const std::string& message) {
  try {
    try {
      throw thrown;
    } catch (...) {
      vantu::internal::RethrowAsVantuException();
    }
  } catch (const VException& e) {
    EXPECT_EQ(typeid(e), typeid(Expected)) << message;
    EXPECT_EQ(e.Message() + "/" + std::to_string(e.Code()), message + "/0");
  }
}

TEST(VFileTest, EachFileSystemExceptionBecomesOneOfOurs) {
  ExpectTranslated<VantuFileAccessDeniedException>(Poco::FileAccessDeniedException("a"), "a");
  ExpectTranslated<VantuFileNotFoundException>(Poco::FileNotFoundException("b"), "b");
  ExpectTranslated<VantuOpenFileException>(Poco::OpenFileException("c"), "c");
  ExpectTranslated<VantuFileReadOnlyException>(Poco::FileReadOnlyException("d"), "d");
  ExpectTranslated<VantuFileExistsException>(Poco::FileExistsException("e"), "e");
  ExpectTranslated<VantuFileException>(Poco::CreateFileException("f"), "f");
  ExpectTranslated<VantuPathSyntaxException>(Poco::PathSyntaxException("g"), "g");
  ExpectTranslated<VantuRuntimeException>(std::runtime_error("h"), "h");
  ExpectTranslated<VantuRuntimeException>(42, "Unkwnown exception");
  // POCO's message() is the text without the class's display name.
  ExpectTranslated<VantuFileNotFoundException>(Poco::FileNotFoundException("x", "y"), "x: y");
}

// Permission tests: run as an unprivileged user by the test script.
TEST(VFileTest, AccessDeniedAndUnreadableFilesAsANonRootUser) {
  if (RunningAsRoot()) GTEST_SKIP() << "root is never denied access";
  const TempDir dir;
  dir.Write("locked/f", "x");
  dir.Write("locked/sub/g", "x");
  const std::string secret = dir.Write("secret", "x");
  ASSERT_EQ(::chmod(secret.c_str(), 0200), 0);
  EXPECT_FALSE(VFile(secret.c_str()).IsAvailable(false, false));
  ASSERT_EQ(::chmod((dir / "locked").c_str(), 0500), 0);
  EXPECT_THROW(VFile((dir / "locked/f").c_str()).Remove(false), VantuFileAccessDeniedException);
  EXPECT_THROW(VFile((dir / "locked").c_str()).Remove(true), VantuFileAccessDeniedException);
  EXPECT_THROW(VFile((dir / "locked/new/deeper").c_str()).CreateDirectories(),
               VantuFileAccessDeniedException);
}

// A sub-directory that another thread keeps exchanging with a link to a directory outside the
// tree, the way anyone who may write the tree could. The outside directory holds files of the
// same names, so a removal that looks a path up again after the exchange deletes them.
TEST(VFileTest, RemovingATreeNeverFollowsALinkNotEvenOneSwappedInWhileItRuns) {
  const TempDir dir;
  const std::string outside = dir / "outside";
  const std::string swap = dir / "swap";
  for (int f = 0; f < 8; ++f) dir.Write("outside/f" + std::to_string(f), "precious");
  dir.Write("tree/file", "x");
  ASSERT_EQ(::symlink(outside.c_str(), (dir / "tree/link").c_str()), 0);
  ASSERT_EQ(::symlink(outside.c_str(), (dir / "top").c_str()), 0);
  VFile((dir / "tree").c_str()).Remove(true);
  VFile((dir / "top").c_str()).Remove(true);  // the link goes, not what it points to
  EXPECT_FALSE(fs::exists(dir / "tree") || fs::is_symlink(dir / "top"));
  for (int round = 0; round < 100; ++round) {
    for (int f = 0; f < 8; ++f) dir.Write("tree/d/f" + std::to_string(f), "x");
    fs::remove_all(swap);
    ASSERT_EQ(::symlink(outside.c_str(), swap.c_str()), 0);
    std::atomic<bool> stop{false};
    std::thread swapper([&] {
      const std::string d = dir / "tree/d";
      while (!stop) ::renameat2(AT_FDCWD, d.c_str(), AT_FDCWD, swap.c_str(), RENAME_EXCHANGE);
    });
    try {
      VFile((dir / "tree").c_str()).Remove(true);
    } catch (const VantuFileException&) {
      // The exchanges may make a removal fail; it must never reach outside.
    }
    stop = true;
    swapper.join();
    fs::remove_all(dir / "tree");
    ASSERT_EQ(std::distance(fs::directory_iterator(outside), fs::directory_iterator()), 8)
        << "files outside the tree were deleted in round " << round;
  }
}

TEST(VFileTest, ShortcutsAndAvailabilityOfEmptyMissingAndSpecialFiles) {
  const TempDir dir;
  const std::string target = dir.Write("t", "x");
  ASSERT_EQ(::symlink(target.c_str(), (dir / "link").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "gone").c_str(), (dir / "broken").c_str()), 0);
  EXPECT_TRUE(VFile((dir / "link").c_str()).IsShortcut());
  EXPECT_FALSE(VFile((dir / "broken").c_str()).IsShortcut() || VFile(target.c_str()).IsShortcut());
  const VFile empty(dir.Write("empty", "").c_str());
  EXPECT_FALSE(empty.IsAvailable(true, false));
  EXPECT_TRUE(empty.IsAvailable(false, false) && empty.IsAvailable(false, true));
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
    EXPECT_FALSE(file.IsAvailable(true, false) || file.IsAvailable(false, true));
    writer.Release();
    EXPECT_TRUE(file.IsAvailable(true, false));
  }
  // A reader elsewhere does not stop a reader here, but it does stop exclusive access.
  HeldOpen reader(dir / "growing", false);
  ASSERT_TRUE(reader.opened());
  EXPECT_TRUE(file.IsAvailable(true, false));
  EXPECT_FALSE(file.IsAvailable(true, true));
}

}  // namespace
