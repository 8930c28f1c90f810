#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>

#include <vantu/vantu.h>

#include "support/TempDir.h"

extern "C" int vantu_test_flat_files_from_c(const char* file, const char* missing, char* failure,
                                            size_t size);

namespace {

using vantu::test::EnvironmentAt;
using vantu::test::HeldOpen;
using vantu::test::TempDir;

TEST(FlatFilesTest, EveryFunctionCalledFromC) {
  const TempDir dir;
  const std::string file = dir.Write("check.txt", "123456789");
  char failure[512] = "";
  EXPECT_EQ(vantu_test_flat_files_from_c(file.c_str(), (dir / "missing").c_str(), failure,
                                         sizeof(failure)),
            0)
      << failure;
}

TEST(FlatFilesTest, FileInfoIsZeroForEmptyAndHeldFiles) {
  const TempDir dir;
  unsigned crc = 1;
  vantu_GetFileInfo(dir.Write("empty", "").c_str(), &crc);
  EXPECT_EQ(crc, 0u);
  const std::string held = dir.Write("held", "123456789");
  {
    HeldOpen writer(held, true);
    ASSERT_TRUE(writer.opened());
    crc = 1;
    vantu_GetFileInfo(held.c_str(), &crc);
    EXPECT_EQ(crc, 0u);
    EXPECT_EQ(vantu_IsFileAvailable(held.c_str()), 0);
  }
  vantu_GetFileInfo(held.c_str(), &crc);
  EXPECT_EQ(crc, 0xCBF43926u);
  // Larger than one read chunk is not needed to cross chunk logic: sum a file of 3 MiB + 1.
  std::string big(3 * 1024 * 1024 + 1, 'z');
  const std::string bigPath = dir.Write("big", big);
  unsigned expected = 0;
  vantu_GetCRCEx(big.data(), static_cast<unsigned>(big.size()), &expected);
  vantu_GetFileInfo(bigPath.c_str(), &crc);
  EXPECT_EQ(crc, expected);
  EXPECT_EQ(vantu_IsFileAvailable(dir.Write("zero", "").c_str()), 0);
}

// Another thread keeps exchanging the file for a FIFO, whose open for reading blocks until a
// writer comes: the checksum must never wait for one.
TEST(FlatFilesTest, FileInfoNeverBlocksOnAFifoSwappedInForTheFile) {
  const TempDir dir;
  const std::string path = dir.Write("target", "123456789");
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::atomic<bool> stop{false};
  std::thread swapper([&] {
    while (!stop) ::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, fifo.c_str(), RENAME_EXCHANGE);
  });
  std::promise<void> finished;
  std::atomic<int> summed{0};
  std::thread reader([&] {
    // Until the file was summed at least once: a loaded machine may hold the swapper back.
    for (int i = 0; (i < 3000 || summed == 0) && !stop; ++i) {
      unsigned crc = 1;
      vantu_GetFileInfo(path.c_str(), &crc);
      if (crc == 0xCBF43926u) ++summed;
    }
    finished.set_value();
  });
  const bool blocked =
      finished.get_future().wait_for(std::chrono::seconds(30)) != std::future_status::ready;
  stop = true;
  swapper.join();
  if (blocked) {
    // Release a reader stuck in the FIFO's open, wherever the FIFO now is.
    for (const std::string& name : {path, fifo}) {
      const int fd = ::open(name.c_str(), O_WRONLY | O_NONBLOCK);
      if (fd >= 0) ::close(fd);
    }
  }
  reader.join();
  EXPECT_FALSE(blocked) << "vantu_GetFileInfo waited for a writer of a FIFO";
  EXPECT_GT(summed, 0);
}

TEST(FlatFilesTest, UniqueNamesFitOrLeaveTheBufferUntouched) {
  char name[64];
  ASSERT_EQ(vantu_UniqueTempName(name, sizeof(name), "tmp"), 0);
  const size_t length = std::strlen(name);
  char exact[64];
  std::memset(exact, 'X', sizeof(exact));
  // A buffer of exactly the name's length has no room for the terminator.
  EXPECT_EQ(vantu_UniqueTempName(exact, length, "tmp"), -1);
  EXPECT_EQ(exact[0], 'X');
  EXPECT_EQ(vantu_UniqueTempName(exact, length + 1, "tmp"), 0);
  EXPECT_EQ(std::strlen(exact), length);
  // 100-nanosecond units since 1582: about 1.4e17 today, 18 digits.
  EXPECT_EQ(length, 3u + 18u);

  // The temporary folder and the prefix keep their bytes: a decomposed name stays decomposed.
  const TempDir dir;
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

TEST(FlatFilesTest, Utf16ConversionsOfNonAsciiText) {
  vantu_char16 wide[16];
  vantu_ToUTF16(
      "\xEF\xBB\xBF"
      "\xC3\xA9\xF0\x9F\x98\x80",
      wide, 1);
  EXPECT_EQ(wide[0], 0x00E9);
  EXPECT_EQ(wide[1], 0xD83D);
  EXPECT_EQ(wide[2], 0xDE00);
  EXPECT_EQ(wide[3], 0);
  char utf8[32];
  const vantu_char16 decomposed[] = {u'e', 0x0301, 0};
  vantu_ToUTF8(decomposed, utf8, 0);
  EXPECT_STREQ(utf8, "\xC3\xA9");  // converted to UTF-8 means NFC
}

}  // namespace
