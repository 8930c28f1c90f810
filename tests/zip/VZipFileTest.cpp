#include <vantu/VException.h>
#include <vantu/VRandom.h>
#include <vantu/VUnzipFile.h>
#include <vantu/VZipFile.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <tuple>

#include "zip/ZipTestSupport.h"
#include "zip/internal/ZipFormat.h"

using namespace vantu::test;

namespace {

// Python reads every entry of the archive and prints each name with its CRC check.
const char* kPythonTest =
    "import sys, zipfile\n"
    "z = zipfile.ZipFile(sys.argv[1])\n"
    "assert z.testzip() is None\n"
    "print(\"\\n\".join(sorted(z.namelist())))\n";

TEST(VZipFileTest, RoundTripsTreesWithEveryWriteMethodAndOtherToolsReadThem) {
  for (auto [method, level, threads] :
       {std::tuple{VZipMethod::Deflate, -1, 2u}, std::tuple{VZipMethod::Deflate, 1, 1u},
        std::tuple{VZipMethod::Store, -1, 2u}, std::tuple{VZipMethod::Zstd, 5, 2u}}) {
    SCOPED_TRACE(static_cast<int>(method));
    TempDir dir;
    MakeTree(dir, "src", 9u << 20);  // too large to compress in memory: streamed
    std::filesystem::permissions(dir / "src/a/b", std::filesystem::perms(0750));
    const std::string archive = dir / "out.zip";
    const std::string memory = "mem/\u00E9t\u00E9.txt";
    VZipFile zip(archive);
    zip.SetMethod(method, level);
    zip.SetThreads(threads);
    zip.AddDirectory(dir / "src");
    zip.AddBuffer("from memory", 11, memory, VTimestamp(1500000000LL * 1000000));
    zip.Close();
    VUnzipFile unzip(archive);
    EXPECT_EQ(unzip.GetEntryCount(), 20u);
    for (const VUnzipFile::Entry& entry : unzip.GetEntries()) {
      // What compression cannot shrink is kept stored.
      const bool stored = method == VZipMethod::Store || entry.name.GetString() == "src/noise.bin";
      const int expected = stored ? 0 : static_cast<int>(method);
      EXPECT_TRUE(entry.size <= 1000 || entry.method == expected) << entry.name.c_str();
    }
    unzip.Test();
    unzip.ExtractAll(dir / "x");
    EXPECT_EQ(Snapshot(dir / "x/src"), Snapshot(dir / "src"));
    EXPECT_EQ(ReadFile(dir / ("x/" + memory)), "from memory");
    EXPECT_EQ(ModifiedSeconds(dir / "x/src/text.txt"), 1600000000);
    EXPECT_EQ(ModifiedSeconds(dir / ("x/" + memory)), 1500000000);
    EXPECT_EQ(std::filesystem::status(dir / "x/src/a/b").permissions(),
              std::filesystem::perms(0750));

    std::string output;  // other tools read it (those that know the method)
    if (method == VZipMethod::Zstd) {
      // Other tools may not know zstd entries, but the raw data of one is a zstd frame.
      const char* kRaw =
          "import sys, zipfile, struct\n"
          "z = zipfile.ZipFile(sys.argv[1]); i = z.getinfo(\"src/text.txt\")\n"
          "f = open(sys.argv[1], \"rb\"); f.seek(i.header_offset); h = f.read(30)\n"
          "n, e = struct.unpack(\"<HH\", h[26:30]); f.seek(i.header_offset + 30 + n + e)\n"
          "sys.stdout.buffer.write(f.read(i.compress_size))\n";
      ASSERT_EQ(Python(kRaw, archive + " | zstd -dc > " + (dir / "text.out")), 0);
      EXPECT_EQ(ReadFile(dir / "text.out"), ReadFile(dir / "src/text.txt"));
      continue;
    }
    EXPECT_EQ(Shell("unzip -tq " + archive, &output), 0) << output;
    ASSERT_EQ(Python(kPythonTest, archive, &output), 0) << output;
    EXPECT_NE(output.find("src/gr\u00FC\u00DFe/\u65E5\u672C.txt\n"), std::string::npos) << output;
  }
}

TEST(VZipFileTest, ArchivesOfManyEntriesCarryZip64EndRecordsOtherToolsRead) {
  TempDir dir;
  const std::string archive = dir / "many.zip";
  VZipFile zip(archive);
  zip.SetMethod(VZipMethod::Store);
  for (int i = 0; i < 70000; ++i) zip.AddBuffer("x", 1, std::to_string(i));
  zip.Close();
  EXPECT_EQ(VUnzipFile(archive).GetEntryCount(), 70000u);
  std::string output;
  EXPECT_EQ(Shell("unzip -tq " + archive, &output), 0) << output;
  EXPECT_EQ(Shell("bsdtar -tf " + archive + " | wc -l", &output), 0);
  EXPECT_EQ(output, "70000\n");
  const char* kCount = "import sys, zipfile; print(len(zipfile.ZipFile(sys.argv[1]).namelist()))";
  EXPECT_EQ(Python(kCount, archive, &output), 0);
  EXPECT_EQ(output, "70000\n");
}

// A tree that holds the archive, a name that is not UTF-8, a time before 1970, and an archive
// whose VZipFile an exception destroys.
TEST(VZipFileTest, LeavesItselfOutKeepsRawNamesAndEarlyTimesAndDiscardsOnUnwinding) {
  TempDir dir;
  dir.Write("src/a.txt", "a");
  dir.Write("src/\xFF.bin", "raw");    // read back as code page 437 without the UTF-8 flag
  const long long early = -315619200;  // 1960-01-01
  std::string names;
  for (bool append : {false, true}) {
    VZipFile zip(dir / "src/self.zip", append);
    zip.AddDirectory(dir / "src", append ? "again" : "");
    if (!append) zip.AddBuffer("e", 1, "early.txt", VTimestamp(early * 1000000));
  }
  VUnzipFile unzip(dir / "src/self.zip");
  for (const auto& entry : unzip.GetEntries()) names += entry.name.GetString() + " ";
  EXPECT_EQ(names, "a.txt \u00A0.bin early.txt again/ again/a.txt again/\u00A0.bin ");
  EXPECT_EQ(unzip.GetEntries().at(2).modified.EpochTime(), early);
  unzip.Extract("early.txt", dir / "x");
  EXPECT_EQ(ModifiedSeconds(dir / "x/early.txt"), early);
  try {
    VZipFile zip(dir / "unwound.zip");
    zip.AddBuffer("x", 1, "x");
    throw std::runtime_error("stop");
  } catch (const std::runtime_error&) {
  }
  for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
    EXPECT_EQ(entry.path().filename().string().find("unwound"), std::string::npos);
}

TEST(VZipFileTest, AppendsToAnArchiveOfAnotherTool) {
  TempDir dir;
  dir.Write("one.txt", "first");
  dir.Write("two.txt", "second");
  ASSERT_EQ(Shell("cd " + dir.path() + " && zip -q a.zip one.txt"), 0);
  VZipFile zip(dir / "a.zip", true);
  EXPECT_THROW(zip.AddFile(dir / "one.txt"), VantuInvalidArgumentException);  // already there
  zip.AddFile(dir / "two.txt", "sub/two.txt");
  zip.Close();
  std::string output;
  ASSERT_EQ(Python(kPythonTest, dir / "a.zip", &output), 0) << output;
  EXPECT_EQ(output, "one.txt\nsub/two.txt\n");
}

// Appending writes into the archive itself (the same file, not a copy). A process that stops at
// any step of it leaves an archive that opens with its old entries and passes other tools' tests,
// and the next append completes on it.
int g_stopAtStep = 0;

TEST(VZipFileTest, AppendsInPlaceAndAStopAtAnyStepLeavesTheOldArchive) {
  TempDir dir;
  const std::string archive = dir / "a.zip";
  {
    VZipFile zip(archive);
    for (int i = 0; i < 300; ++i) zip.AddBuffer("x", 1, "old/" + std::to_string(i));
  }
  // Larger than the old directory and than the 64 KiB in which readers look for the end.
  std::string noise(200000, '\0');
  VRandom(5).NextBytes(&noise[0], noise.size());
  auto check = [](const std::string& path, size_t entries, const std::string& last) {
    const VUnzipFile unzip(path);
    ASSERT_EQ(unzip.GetEntryCount(), entries) << path;
    EXPECT_EQ(unzip.GetEntries().back().name.GetString(), last);
    unzip.Test();
    std::string output;
    EXPECT_EQ(Shell("unzip -tq " + path, &output), 0) << output;
  };
  const auto size = std::filesystem::file_size(archive);
  for (int step : {1, 2}) {
    SCOPED_TRACE(step);
    const std::string copy = dir / ("step" + std::to_string(step) + ".zip");
    std::filesystem::copy_file(archive, copy);
    g_stopAtStep = step;
    EXPECT_FALSE(InChild([&] {
      vantu::internal::g_appendStepHook = [](int at) {
        if (at == g_stopAtStep) ::_exit(3);
      };
      VZipFile zip(copy, true);
      zip.AddBuffer(noise.data(), noise.size(), "new.bin");
      zip.Close();
      return true;
    }));
    EXPECT_GT(std::filesystem::file_size(copy), size);  // stopped inside the append
    check(copy, 300, "old/299");
    VZipFile zip(copy, true);
    zip.AddBuffer("late", 4, "late.txt");
    zip.Close();
    check(copy, 301, "late.txt");
  }
  struct stat before;
  ASSERT_EQ(::stat(archive.c_str(), &before), 0);
  VZipFile zip(archive, true);
  zip.AddBuffer(noise.data(), noise.size(), "new.bin");
  zip.Close();
  struct stat after;
  ASSERT_EQ(::stat(archive.c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  check(archive, 301, "new.bin");
  EXPECT_EQ(VUnzipFile(archive).Read("new.bin"), noise);
}

TEST(VZipFileTest, RefusesBadRequestsAndReportsArchivesThatCannotBeWritten) {
  TempDir dir;
  VZipFile zip;
  EXPECT_THROW(zip.AddFile(dir.Write("f.txt", "x")), VantuInvalidArgumentException);  // not open
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
  // An archive that cannot be written is reported by Close.
  std::filesystem::create_directories(dir / "gone");
  zip.Open(dir / "gone/a.zip");
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
