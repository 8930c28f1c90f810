#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <vantu/vantu.h>

#include "support/TempDir.h"

extern "C" int vantu_test_flat_files_from_c(const char* file, const char* missing, char* failure,
                                            size_t size);

namespace {

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
