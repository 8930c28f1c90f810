#include <vantu/VException.h>
#include <vantu/VUnzipFile.h>
#include <vantu/VZipFile.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <filesystem>
#include <string>

#include "support/TempDir.h"
#include "zip/ZipTestSupport.h"

using vantu::test::ModifiedSeconds;
using vantu::test::Python;
using vantu::test::ReadFile;
using vantu::test::Shell;
using vantu::test::Snapshot;
using vantu::test::TempDir;

namespace {

// Text that compresses, with some variety.
std::string Compressible(size_t size, unsigned seed) {
  std::string text;
  while (text.size() < size) {
    text += "line " + std::to_string(seed++ * 7919 % 100003) + " of some compressible text\n";
  }
  text.resize(size);
  return text;
}

// A tree with non-ASCII names, an empty file and folder, a nested folder and a file too large
// to be compressed in memory (streamed through the archive).
void MakeTree(const TempDir& dir, const std::string& root) {
  dir.Write(root + "/empty.txt", "");
  dir.Write(root +
                "/gr\xC3\xBC\xC3\x9F"
                "e/\xE6\x97\xA5\xE6\x9C\xAC.txt",
            "Konnichiwa\n");
  dir.Write(root + "/a/b/c/deep.bin", std::string("\x00\xFF\x01", 3) + Compressible(3000, 1));
  dir.Write(root + "/big.txt", Compressible(9u << 20, 2));
  std::filesystem::create_directories(dir / (root + "/empty-folder"));
  for (int i = 0; i < 20; ++i)
    dir.Write(root + "/many/f" + std::to_string(i), Compressible(i * 1000, i));
  // A fixed time on every file, to see it come back.
  for (auto& entry : std::filesystem::recursive_directory_iterator(dir / root)) {
    if (!entry.is_directory()) {
      const struct utimbuf times { 1600000000, 1600000000 };
      ::utime(entry.path().c_str(), &times);
    }
  }
}

// Python reads every entry of the archive and prints each name with its CRC check.
const char* kPythonTest =
    "import sys, zipfile\n"
    "z = zipfile.ZipFile(sys.argv[1])\n"
    "assert z.testzip() is None\n"
    "print(\"\\n\".join(sorted(z.namelist())))\n";

TEST(VZipFileTest, RoundTripsTreesWithEveryWriteMethodAndOtherToolsReadThem) {
  struct Case {
    VZipMethod method;
    int level;
    unsigned threads;
  };
  for (const Case& c : {Case{VZipMethod::Deflate, -1, 2}, Case{VZipMethod::Deflate, 1, 1},
                        Case{VZipMethod::Store, -1, 2}, Case{VZipMethod::Zstd, 5, 2}}) {
    SCOPED_TRACE(static_cast<int>(c.method));
    TempDir dir;
    MakeTree(dir, "src");
    const std::string archive = dir / "out.zip";
    {
      VZipFile zip(archive);
      zip.SetMethod(c.method, c.level);
      zip.SetThreads(c.threads);
      zip.AddDirectory(dir / "src");
      zip.AddBuffer("from memory", 11, "mem/\xC3\xA9t\xC3\xA9.txt",
                    VTimestamp(1500000000LL * 1000000));
      zip.Close();
    }
    VUnzipFile unzip(archive);
    EXPECT_EQ(unzip.GetEntryCount(), 32u);
    for (const VUnzipFile::Entry& entry : unzip.GetEntries()) {
      if (entry.size > 1000) {
        const int expected = c.method == VZipMethod::Store ? 0 : static_cast<int>(c.method);
        EXPECT_EQ(entry.method, expected) << entry.name.c_str();
      }
    }
    unzip.Test();
    unzip.ExtractAll(dir / "x");
    auto expected = Snapshot(dir / "src");
    auto extracted = Snapshot(dir / "x/src");
    EXPECT_EQ(extracted, expected);
    EXPECT_EQ(ReadFile(dir / "x/mem/\xC3\xA9t\xC3\xA9.txt"), "from memory");
    EXPECT_EQ(ModifiedSeconds(dir / "x/src/big.txt"), 1600000000);
    EXPECT_EQ(ModifiedSeconds(dir / "x/mem/\xC3\xA9t\xC3\xA9.txt"), 1500000000);

    std::string output;
    if (c.method != VZipMethod::Zstd) {
      EXPECT_EQ(Shell("unzip -tq " + archive, &output), 0) << output;
      ASSERT_EQ(Python(kPythonTest, archive, &output), 0) << output;
      EXPECT_NE(output.find("src/gr\xC3\xBC\xC3\x9F"
                            "e/\xE6\x97\xA5\xE6\x9C\xAC.txt\n"),
                std::string::npos)
          << output;
    } else {
      // Other tools may not know zstd entries, but the raw data of one is a zstd frame.
      const char* kRaw =
          "import sys, zipfile, struct\n"
          "z = zipfile.ZipFile(sys.argv[1]); i = z.getinfo(\"src/big.txt\")\n"
          "f = open(sys.argv[1], \"rb\"); f.seek(i.header_offset); h = f.read(30)\n"
          "n, e = struct.unpack(\"<HH\", h[26:30]); f.seek(i.header_offset + 30 + n + e)\n"
          "assert i.compress_type == 93\n"
          "sys.stdout.buffer.write(f.read(i.compress_size))\n";
      ASSERT_EQ(Python(kRaw, archive + " | zstd -dc > " + (dir / "big.out")), 0);
      EXPECT_EQ(ReadFile(dir / "big.out"), ReadFile(dir / "src/big.txt"));
    }
  }
}

TEST(VZipFileTest, AppendsToAnArchiveOfAnotherTool) {
  TempDir dir;
  dir.Write("one.txt", "first");
  dir.Write("two.txt", "second");
  const std::string archive = dir / "a.zip";
  ASSERT_EQ(Shell("cd " + dir.path() + " && zip -q a.zip one.txt"), 0);
  VZipFile zip(archive, true);
  EXPECT_THROW(zip.AddFile(dir / "one.txt"), VantuInvalidArgumentException);  // already there
  zip.AddFile(dir / "two.txt", "sub/two.txt");
  zip.Close();
  std::string output;
  ASSERT_EQ(Python(kPythonTest, archive, &output), 0) << output;
  EXPECT_EQ(output, "one.txt\nsub/two.txt\n");
}

TEST(VZipFileTest, RefusesBadRequests) {
  TempDir dir;
  dir.Write("f.txt", "x");
  VZipFile zip;
  EXPECT_THROW(zip.AddFile(dir / "f.txt"), VantuInvalidArgumentException);  // not open
  zip.Open(dir / "a.zip");
  EXPECT_THROW(zip.AddFile(dir / "missing"), VantuFileNotFoundException);
  EXPECT_THROW(zip.AddDirectory(dir / "missing"), VantuFileNotFoundException);
  EXPECT_THROW(zip.AddFile(dir.path()), VantuInvalidArgumentException);
  EXPECT_THROW(zip.SetMethod(VZipMethod::BZip2), VantuInvalidArgumentException);
  EXPECT_THROW(zip.SetMethod(VZipMethod::Deflate, 10), VantuInvalidArgumentException);
  EXPECT_THROW(zip.SetMethod(VZipMethod::Zstd, 0), VantuInvalidArgumentException);
  for (const char* name : {"", "/abs", "../up", "a/../../up", "a\\b", "C:/x", "./"}) {
    EXPECT_THROW(zip.AddBuffer("x", 1, name), VantuInvalidArgumentException) << name;
  }
  zip.AddBuffer("x", 1, "./a//b");  // stored as "a/b"
  EXPECT_THROW(zip.AddBuffer("x", 1, "a/b"), VantuInvalidArgumentException);
  zip.Close();
  EXPECT_EQ(VUnzipFile(dir / "a.zip").GetEntries().at(0).name.GetString(), "a/b");
}

TEST(VZipFileTest, CloseReportsAnArchiveThatCannotBeWritten) {
  TempDir dir;
  std::filesystem::create_directories(dir / "gone");
  VZipFile zip(dir / "gone/a.zip");
  zip.AddBuffer("data", 4, "data.txt");
  std::filesystem::remove_all(dir / "gone");
  EXPECT_THROW(zip.Close(), VantuIOException);
  EXPECT_FALSE(zip.IsOpen());
  EXPECT_FALSE(std::filesystem::exists(dir / "gone"));
}

TEST(VZipFileTest, WalksLinksAsTheirTargetsOrSkipsThem) {
  TempDir dir;
  dir.Write("src/real/file.txt", "content");
  std::filesystem::create_directory_symlink("real", dir / "src/linked");
  std::filesystem::create_directory_symlink("..", dir / "src/real/loop");  // a cycle
  std::filesystem::create_symlink("nowhere", dir / "src/dangling");
  for (bool skip : {false, true}) {
    const std::string archive = dir / (skip ? "skip.zip" : "follow.zip");
    VZipFile zip(archive);
    zip.AddDirectory(dir / "src", "", VZipFile::Filter(), skip);
    zip.Close();
    std::string names;
    const VUnzipFile unzip(archive);
    for (const auto& entry : unzip.GetEntries()) names += entry.name.GetString() + " ";
    EXPECT_EQ(names,
              skip ? "real/ real/file.txt " : "linked/ linked/file.txt real/ real/file.txt ");
  }
}

}  // namespace
