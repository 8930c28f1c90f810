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
#include <vantu/vantu.h>

#include "internal/FileErrors.h"
#include "support/TempDir.h"

extern "C" int vantu_test_flat_files_from_c(const char* file, const char* missing, char* failure,
                                            size_t size);

namespace {

namespace fs = std::filesystem;
using vantu::test::EnvironmentAt;
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

// The checksum of a file that is not available (empty, or written elsewhere) is 0.
TEST(VFileTest, AFileAnotherProcessWritesIsNotAvailableUntilItIsClosed) {
  const TempDir dir;
  const std::string path = dir.Write("growing", "123456789");
  const VFile file(path.c_str());
  unsigned crc = 1;
  ASSERT_TRUE(file.IsAvailable(true, false));
  {
    HeldOpen writer(path, true);
    ASSERT_TRUE(writer.opened());
    EXPECT_FALSE(file.IsAvailable(true, false) || file.IsAvailable(false, true));
    EXPECT_EQ(vantu_IsFileAvailable(path.c_str()), 0);
    vantu_GetFileInfo(path.c_str(), &crc);
    EXPECT_EQ(crc, 0u);
    writer.Release();
    EXPECT_TRUE(file.IsAvailable(true, false));
  }
  vantu_GetFileInfo(path.c_str(), &crc);
  EXPECT_EQ(crc, 0xCBF43926u);
  // A reader elsewhere does not stop a reader here, but it does stop exclusive access.
  HeldOpen reader(path, false);
  ASSERT_TRUE(reader.opened());
  EXPECT_TRUE(file.IsAvailable(true, false));
  EXPECT_FALSE(file.IsAvailable(true, true));
  crc = 1;
  vantu_GetFileInfo(dir.Write("empty", "").c_str(), &crc);
  EXPECT_EQ(crc, 0u);
  EXPECT_EQ(vantu_IsFileAvailable((dir / "empty").c_str()), 0);
  // Several read chunks: 3 MiB + 1.
  const std::string big(3 * 1024 * 1024 + 1, 'z');
  unsigned expected = 0;
  vantu_GetCRCEx(big.data(), static_cast<unsigned>(big.size()), &expected);
  vantu_GetFileInfo(dir.Write("big", big).c_str(), &crc);
  EXPECT_EQ(crc, expected);
}

// Another thread keeps exchanging the file for a FIFO, whose open for reading blocks until a
// writer comes: the checksum must never wait for one. A child process sums the file until it
// was summed at least once (a loaded machine may hold the swapper back); a blocked open leaves
// it to its alarm.
TEST(FlatFilesTest, FileInfoNeverBlocksOnAFifoSwappedInForTheFile) {
  const TempDir dir;
  const std::string path = dir.Write("target", "123456789");
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::atomic<bool> stop{false};
  std::thread swapper([&] {
    while (!stop) ::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, fifo.c_str(), RENAME_EXCHANGE);
  });
  const bool finished = vantu::test::InChild([&] {
    ::alarm(30);
    int summed = 0;
    for (int i = 0; i < 3000 || summed == 0; ++i) {
      unsigned crc = 1;
      vantu_GetFileInfo(path.c_str(), &crc);
      summed += crc == 0xCBF43926u;
    }
    return true;
  });
  stop = true;
  swapper.join();
  EXPECT_TRUE(finished) << "vantu_GetFileInfo waited for a writer of a FIFO";
}

TEST(FlatFilesTest, EveryFunctionCalledFromC) {
  const TempDir dir;
  const std::string file = dir.Write("check.txt", "123456789");
  char failure[512] = "";
  EXPECT_EQ(vantu_test_flat_files_from_c(file.c_str(), (dir / "missing").c_str(), failure,
                                         sizeof(failure)),
            0)
      << failure;
  // The temporary folder and the prefix keep their bytes: a decomposed name stays decomposed.
  const std::string decomposed = dir / "te\xCC\x81mp";
  ASSERT_EQ(::mkdir(decomposed.c_str(), 0700), 0);
  const EnvironmentAt temp("TMPDIR", decomposed);
  char path[512];
  ASSERT_EQ(vantu_UniqueTempFile(path, sizeof(path), "e\xCC\x81"), 0);
  EXPECT_EQ(std::string(path).rfind(decomposed + "/e\xCC\x81", 0), 0u) << path;
  const vantu_char16 prefix[] = {u'e', 0x0301, 0};
  vantu_char16 wide[512];
  ASSERT_EQ(vantu_UniqueTempWFile(wide, 512, prefix), 0);
  const std::u16string units(reinterpret_cast<const char16_t*>(wide));
  EXPECT_NE(units.find(u"te\u0301mp/e\u0301"), std::u16string::npos);
}

}  // namespace
