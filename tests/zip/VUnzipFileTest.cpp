#include <vantu/VException.h>
#include <vantu/VUnzipFile.h>
#include <vantu/VZipFile.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include "zip/ZipTestSupport.h"

using namespace vantu::test;
namespace fs = std::filesystem;

namespace {

uint32_t Crc(const std::string& data) {
  return crc32(0, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size()));
}

// Raw deflate of `data`; with Z_FULL_FLUSH the stream is left open, byte-aligned.
std::string Deflate(const std::string& data, int flush = Z_FINISH) {
  z_stream z{};
  deflateInit2(&z, 9, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&z, data.size()) + 64, '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  z.avail_in = static_cast<uInt>(data.size());
  z.next_out = reinterpret_cast<Bytef*>(&out[0]);
  z.avail_out = static_cast<uInt>(out.size());
  deflate(&z, flush);
  out.resize(out.size() - z.avail_out);
  deflateEnd(&z);
  return out;
}

constexpr uint32_t kLink = 0120777u << 16;  // the external attributes of a symbolic link

RawEntry Entry(const std::string& name, const std::string& content, bool deflated = false,
               uint32_t external = 0) {
  const uint16_t method = deflated ? 8 : 0;
  RawEntry entry{name, deflated ? Deflate(content) : content, method, Crc(content), content.size()};
  entry.external = external;
  return entry;
}

// Times come from the "UT" field where an entry has one (before 1970 and after 2038 too), else
// from the MS-DOS local time.
TEST(VUnzipFileTest, ListsTimesFromTheExtendedFieldOrTheDosTime) {
  TempDir dir;
  const std::vector<long long> times = {-315619200, 0,          1600000001,
                                        0x7FFFFFFF, 0x80000000, 4000000000};
  {
    VZipFile zip(dir / "t.zip");
    for (long long t : times) zip.AddBuffer("x", 1, std::to_string(t), VTimestamp(t * 1000000));
  }
  std::tm local{};  // BuildZip's MS-DOS time: 2024-01-01 00:00 local time
  local.tm_year = 124;
  local.tm_mday = 1;
  local.tm_isdst = -1;
  const std::time_t dos = std::mktime(&local);
  dir.Write("d.zip", BuildZip({Entry("dos.txt", "d")}));
  const VUnzipFile unzip(dir / "t.zip");
  ASSERT_EQ(unzip.GetEntryCount(), times.size());
  for (size_t i = 0; i < times.size(); ++i) {
    EXPECT_EQ(unzip.GetEntries()[i].modified.EpochTime(), times[i]);
  }
  EXPECT_EQ(VUnzipFile(dir / "d.zip").GetEntries().at(0).modified.EpochTime(), dos);
}

TEST(VUnzipFileTest, ReadsWhatOtherToolsWrite) {
  TempDir dir;
  MakeTree(dir, "src", 300000);
  // Python's four methods, Info-ZIP stored and deflated, libarchive's zip.
  const char* kPython =
      "import os, sys, zipfile\n"
      "os.chdir(sys.argv[1])\n"
      "for m in (\"STORED\", \"DEFLATED\", \"BZIP2\", \"LZMA\"):\n"
      "  with zipfile.ZipFile(\"py-%s.zip\" % m, \"w\", getattr(zipfile, \"ZIP_\" + m)) as z:\n"
      "    for root, dirs, files in os.walk(\"src\"):\n"
      "      for n in dirs + files: z.write(os.path.join(root, n))\n";
  std::string output;
  ASSERT_EQ(Python(kPython, dir.path(), &output), 0) << output;
  const char* kTools =
      " && zip -qr zip.zip src && zip -qr0 zip0.zip src && bsdtar -cf bsdtar.zip --format zip src"
      " && zstd -q19 src/text.txt -o t.zst && xz -kc src/text.txt > t.xz";
  ASSERT_EQ(Shell("cd " + dir.path() + kTools, &output), 0) << output;
  for (const char* name : {"py-STORED.zip", "py-DEFLATED.zip", "py-BZIP2.zip", "py-LZMA.zip",
                           "zip.zip", "zip0.zip", "bsdtar.zip"}) {
    SCOPED_TRACE(name);
    VUnzipFile unzip(dir / name);
    unzip.Test();
    const std::string target = dir / (std::string("x-") + name);
    unzip.ExtractAll(target);
    EXPECT_EQ(Snapshot(target + "/src"), Snapshot(dir / "src"));
    EXPECT_EQ(ModifiedSeconds(target + "/src/text.txt"), 1600000000);
    EXPECT_EQ(ModifiedSeconds(target + "/src/empty/folder"), 1600000000);
  }
  // zstd and xz streams made by their own tools, and a code page 437 name (no UTF-8 flag), in
  // a zip of our making.
  const std::string text = ReadFile(dir / "src/text.txt");
  const RawEntry zstd{"zstd", ReadFile(dir / "t.zst"), 93, Crc(text), text.size()};
  const RawEntry xz{"xz", ReadFile(dir / "t.xz"), 95, Crc(text), text.size()};
  const RawEntry cp437{"\x81.txt", "3", 0, Crc("3"), 1, 0};  // flags 0: no UTF-8 flag
  VUnzipFile own(dir.Write("own.zip", BuildZip({zstd, xz, cp437})));
  own.Test();
  EXPECT_EQ(own.Read("zstd"), text);
  EXPECT_EQ(own.Read("xz"), text);
  EXPECT_EQ(own.Read("\u00FC.txt"), "3");
}

TEST(VUnzipFileTest, ReadsZip64ArchivesOfManyEntriesAndOver4GiB) {
  TempDir dir;
  // 70,000 entries (past the 65,535 of the classic end record); a stored entry of 4 GiB + 1
  // zero bytes, written sparse (zeros are skipped), and a small entry after it whose offset
  // needs ZIP64.
  const char* kZip64 =
      "import sys, zipfile\n"
      "with zipfile.ZipFile(sys.argv[1], \"w\") as z:\n"
      "  for i in range(70000): z.writestr(\"d%d/%d\" % (i // 1000, i), str(i))\n"
      "f = open(sys.argv[2], \"wb\"); write = f.write\n"
      "f.write = lambda b: f.seek(len(b), 1) if b.count(0) == len(b) else write(b)\n"
      "with zipfile.ZipFile(f, \"w\") as z:\n"
      "  with z.open(\"zeros\", \"w\", force_zip64=True) as e:\n"
      "    for i in range(256): e.write(bytes(1 << 24))\n"
      "    e.write(bytes(1))\n"
      "  z.writestr(\"after.txt\", \"past 4 GiB\")\n";
  std::string output;
  ASSERT_EQ(Python(kZip64, (dir / "many.zip") + " " + (dir / "large.zip"), &output), 0) << output;
  // Extracting all 70,000 would time file creation, not this code: a few, past 65,535 too.
  VUnzipFile unzip(dir / "many.zip");
  ASSERT_EQ(unzip.GetEntryCount(), 70000u);
  unzip.Test();
  std::map<std::string, std::string> expected;
  for (int i : {0, 65535, 65536, 69999}) {
    const std::string folder = "d" + std::to_string(i / 1000) + "/";
    unzip.Extract(folder + std::to_string(i), dir / "many");
    expected[folder] = "";
    expected[folder + std::to_string(i)] = std::to_string(i);
  }
  EXPECT_EQ(Snapshot(dir / "many"), expected);  // those entries and nothing else
  EXPECT_THROW(unzip.Extract("d70/70000", dir / "many"), VantuInvalidArgumentException);
  unzip.Close();
  EXPECT_THROW(unzip.Test(), VantuInvalidArgumentException);
  unzip.Open(dir / "large.zip");
  ASSERT_EQ(unzip.GetEntryCount(), 2u);
  EXPECT_EQ(unzip.GetEntries()[0].size, (uint64_t{1} << 32) + 1);
  // Reading the 4 GiB of zeros would time the kernel's copying of holes (about 10 s here);
  // the entry past 4 GiB needs the ZIP64 offset.
  EXPECT_EQ(unzip.Read("after.txt"), "past 4 GiB");
}

TEST(VUnzipFileTest, ExtractionNeverWritesOutsideTheTargetFolder) {
  TempDir dir;
  const std::set<std::string> evil = {"../evil1",        "/tmp/evil2", "C:/evil3",   "a\\evil4",
                                      "sub/../../evil5", "out-link",   "abs-link",   "pre/evil6",
                                      "in/x/evil7",      "up-link",    "dot/up-link"};
  std::vector<RawEntry> entries = {Entry("good.txt", "fine"), Entry("sub/target.txt", "t", true),
                                   Entry("./", ""), Entry("./dotted.txt", "ok")};
  const char* links[] = {
      "in-link",           "sub/target.txt", "sub/up-link", "../good.txt", "out-link",
      "sub/../../outside", "abs-link",       "/etc",        "dot",         ".",
      "up-link",           "dot/..",         "dot/up-link", "../x"};  // name, target
  for (size_t i = 0; i < std::size(links); i += 2)
    entries.push_back(Entry(links[i], links[i + 1], false, kLink));
  for (const std::string& name : evil)
    if (name.find("link") == std::string::npos) entries.push_back(Entry(name, "evil"));
  fs::create_directories(dir / "elsewhere");
  fs::create_directories(dir / "target");
  // Links already there, leading out and in: never followed.
  fs::create_directory_symlink(dir / "elsewhere", dir / "target/pre");
  fs::create_directories(dir / "target/real/x");
  fs::create_directory_symlink("real", dir / "target/in");
  VUnzipFile unzip(dir.Write("evil.zip", BuildZip(entries)));
  unzip.SetThreads(1);  // "dot" is made before "dot/up-link"
  std::vector<VUnzipFile::Failure> failures;
  unzip.ExtractAll(dir / "target", &failures);
  std::set<std::string> failed;
  for (const auto& failure : failures) failed.insert(failure.name.GetString());
  EXPECT_EQ(failed, evil);
  EXPECT_EQ(ReadFile(dir / "target/good.txt"), "fine");
  EXPECT_EQ(ReadFile(dir / "target/dotted.txt"), "ok");
  EXPECT_TRUE(fs::is_empty(dir / "target/real/x"));
  EXPECT_EQ(fs::read_symlink(dir / "target/in-link"), "sub/target.txt");
  EXPECT_EQ(ReadFile(dir / "target/sub/up-link"), "fine");
  // Nothing new anywhere but in the target.
  std::set<std::string> around;
  for (const auto& entry : fs::directory_iterator(dir.path()))
    around.insert(entry.path().filename());
  EXPECT_EQ(around, (std::set<std::string>{"evil.zip", "target", "elsewhere"}));
  EXPECT_TRUE(fs::is_empty(dir / "elsewhere"));
  EXPECT_FALSE(fs::exists("/tmp/evil2") || fs::exists("C:"));
  // Without a list the same run throws once, naming each refused entry.
  try {
    unzip.ExtractAll(dir / "target2");
    ADD_FAILURE() << "no exception";
  } catch (const VantuDataException& e) {
    for (const char* name : {"../evil1", "abs-link"})
      EXPECT_NE(e.Message().find(name), std::string::npos) << e.Message();
  }
  EXPECT_EQ(ReadFile(dir / "target2/good.txt"), "fine");
}

// Every link under `root` resolves inside it.
bool LinksStayInside(const std::string& root) {
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (!entry.is_symlink()) continue;
    const fs::path real = fs::weakly_canonical(entry.path());
    if (real.string().rfind(root + "/", 0) != 0 && real != root) return false;
  }
  return true;
}

// Folders that turn into links while extraction runs, whether another thread swaps them or
// the archive itself replaces a link on another extraction thread, never lead out of the
// target.
TEST(VUnzipFileTest, ExtractionStaysInsideWhileFoldersTurnIntoLinks) {
  TempDir dir;
  fs::create_directories(dir / "elsewhere");
  const std::string root = fs::canonical(dir.path());
  // Another thread swaps "d" and a link to the outside, back and forth.
  std::vector<RawEntry> files = {Entry("d/", "")};
  for (int i = 0; i < 200; ++i) files.push_back(Entry("d/f" + std::to_string(i), "data"));
  VUnzipFile swapped(dir.Write("swapped.zip", BuildZip(files)));
  swapped.SetThreads(2);
  fs::create_directory_symlink(dir / "elsewhere", dir / "swap");
  std::atomic<bool> done{false};
  std::thread swapper([&] {
    while (!done) {
      for (int run = 0; run < 2; ++run) {
        ::renameat2(AT_FDCWD, (dir / "swap").c_str(), AT_FDCWD, (dir / "out/d").c_str(),
                    RENAME_EXCHANGE);
      }
    }
  });
  for (int run = 0; run < 10; ++run) {
    std::vector<VUnzipFile::Failure> failures;
    swapped.ExtractAll(dir / "out", &failures);
  }
  done = true;
  swapper.join();
  EXPECT_TRUE(fs::is_empty(dir / "elsewhere"));
  // The archive makes "p" a deep link and then a link to ".", under which links made on other
  // threads would climb out.
  std::vector<RawEntry> links = {Entry("s/t/u/v/q/", ""), Entry("q/", "")};
  for (int i = 0; i < 100; ++i) {
    links.push_back(Entry("p", i % 2 ? "." : "s/t/u/v", false, kLink));
    links.push_back(Entry("p/q/l" + std::to_string(i), "../../z", false, kLink));
  }
  VUnzipFile racing(dir.Write("links.zip", BuildZip(links)));
  racing.SetThreads(4);
  for (int run = 0; run < 4; ++run) {
    const std::string target = root + "/links" + std::to_string(run);
    std::vector<VUnzipFile::Failure> failures;
    racing.ExtractAll(target, &failures);
    EXPECT_TRUE(LinksStayInside(target)) << run;
  }
}

// Listing reads the time zone once per process (MS-DOS times are local), not once an entry:
// this program lists an archive of 2,000 entries under strace, which counts the calls that
// name the zone file (LeakSanitizer cannot run under strace).
TEST(VUnzipFileTest, ListingReadsTheTimeZoneOnce) {
  if (const char* archive = std::getenv("VANTU_TEST_LIST")) {  // the listing strace watches
    EXPECT_EQ(VUnzipFile(archive).GetEntryCount(), 2000u);
    return;
  }
  if (Shell("strace -o /dev/null true") != 0) GTEST_SKIP() << "strace cannot run here";
  TempDir dir;
  std::vector<RawEntry> entries;
  for (int i = 0; i < 2000; ++i) entries.push_back(Entry(std::to_string(i), "x"));
  const std::string archive = dir.Write("t.zip", BuildZip(entries));
  std::string output;
  ASSERT_EQ(Shell("env -u TZ ASAN_OPTIONS=$ASAN_OPTIONS:detect_leaks=0 VANTU_TEST_LIST=" + archive +
                      " strace -f -e trace=%file -o " + (dir / "trace") + " " +
                      fs::read_symlink("/proc/self/exe").string() +
                      " --gtest_filter=VUnzipFileTest.ListingReadsTheTimeZoneOnce",
                  &output),
            0)
      << output;
  EXPECT_EQ(Shell("grep -c localtime " + (dir / "trace"), &output), 0);
  EXPECT_LE(std::stoi(output), 5);
}

TEST(VUnzipFileTest, LimitsRefuseBombsWithoutFillingTheDisk) {
  // Ten entries of 1 GiB of zeros each, 1 MiB of compressed data apiece: one block of a full
  // flush repeated, then an empty final block.
  const std::string zeros(1 << 20, '\0');
  const std::string block = Deflate(zeros, Z_FULL_FLUSH);
  const uLong zerosCrc = Crc(zeros);
  RawEntry entry{"", "", 8, 0, uint64_t{1} << 30};
  for (int i = 0; i < 1024; ++i) {
    entry.data += block;
    entry.crc = static_cast<uint32_t>(crc32_combine(entry.crc, zerosCrc, 1 << 20));
  }
  entry.data += std::string("\x03\x00", 2);
  std::vector<RawEntry> bombs(10, entry);
  for (int i = 0; i < 10; ++i) bombs[i].name = "zeros" + std::to_string(i);
  TempDir dir;
  VUnzipFile bomb(dir.Write("bomb.zip", BuildZip(bombs)));
  bomb.SetLimits(uint64_t{1} << 30, 0);
  EXPECT_THROW(bomb.ExtractAll(dir / "out"), VantuDataException);
  EXPECT_THROW(bomb.Test(), VantuDataException);
  bomb.SetLimits(0, 9);
  EXPECT_THROW(bomb.ExtractAll(dir / "out"), VantuDataException);
  EXPECT_FALSE(fs::exists(dir / "out"));  // refused before anything was written

  // Entries that share their compressed bytes (the other way to multiply output) are refused.
  std::string shared = BuildZip({bombs[0], bombs[1]});
  shared.replace(shared.rfind(std::string("PK\x01\x02", 4)) + 42, 4, std::string(4, '\0'));
  EXPECT_THROW(VUnzipFile(dir.Write("shared.zip", shared)), VantuDataException);

  // Sizes that lie are caught by the output itself, limit or not, and nothing is left behind.
  for (RawEntry& lie : bombs) lie.size = 1 << 20;
  VUnzipFile liar(dir.Write("lying.zip", BuildZip(bombs)));
  std::vector<VUnzipFile::Failure> failures;
  liar.ExtractAll(dir / "out", &failures);
  ASSERT_EQ(failures.size(), 10u);
  EXPECT_NE(failures[0].reason.find("more than the declared"), std::string::npos)
      << failures[0].reason;
  EXPECT_TRUE(fs::is_empty(dir / "out"));
}

TEST(VUnzipFileTest, BadEntriesFailClearlyAndKeepWhatWasThere) {
  std::vector<std::pair<RawEntry, const char*>> cases = {
      {Entry("f.txt", "new content", true), "CRC"},
      {Entry("f.txt", "new content"), "encrypted"},
      {Entry("f.txt", "new content"), "method 99"},
      {Entry("f.txt", Compressible(100000, 3), true), "truncated"},
      {Entry("f.txt", "new content"), "bzip2"},  // stored bytes marked as bzip2
      {Entry("f.txt", "new content", true), "more than the declared"}};
  cases[0].first.crc ^= 1;
  cases[1].first.flags |= 1;
  cases[2].first.method = 99;
  cases[3].first.data.resize(cases[3].first.data.size() / 2);
  cases[4].first.method = 12;
  cases[5].first.size = 3;
  for (const auto& [entry, reason] : cases) {
    SCOPED_TRACE(reason);
    TempDir dir;
    VUnzipFile unzip(dir.Write("a.zip", BuildZip({entry})));
    dir.Write("out/f.txt", "old");
    std::vector<VUnzipFile::Failure> failures;
    unzip.Test(&failures);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_NE(failures[0].reason.find(reason), std::string::npos) << failures[0].reason;
    EXPECT_THROW(unzip.ExtractAll(dir / "out"), VantuDataException);
    EXPECT_THROW(unzip.Read("f.txt"), VantuDataException);
    EXPECT_EQ(Snapshot(dir / "out"), (std::map<std::string, std::string>{{"f.txt", "old"}}));
  }
}

TEST(VUnzipFileTest, DamagedArchivesThrowOurExceptionsNeverCrash) {
  TempDir dir;
  EXPECT_THROW(VUnzipFile(dir / "missing.zip"), VantuFileNotFoundException);
  EXPECT_THROW(VUnzipFile(dir.Write("empty.zip", "")), VantuDataException);
  EXPECT_THROW(VUnzipFile(dir.Write("text.zip", std::string(100, 'z'))), VantuDataException);
  const std::string fifo = dir / "fifo.zip";  // refused at once, not read until a writer comes
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_TRUE(vantu::test::InChild([&] {
    ::alarm(20);
    try {
      VUnzipFile unzip(fifo);
    } catch (const VantuIOException& error) {
      return error.Message().find("Not a regular file") != std::string::npos;
    }
    return false;
  }));

  const std::string bz2Text(  // 300 times "b", compressed with bzip2
      "BZh91AY&SY\x98u\xAC.\x00\x00\x02\x91\x00\x80 \x10\x00\x00\x08 \x00 \xAAmA\x98\xC5G\x8B"
      "\xB9\"\x9C(HL:\xD6\x17\x00",
      45);
  const RawEntry bzip2{"b.txt", bz2Text, 12, Crc(std::string(300, 'b')), 300};
  const std::string good = BuildZip(
      {Entry("a/", ""), Entry("a/x.txt", "some text to deflate", true),
       Entry("a/l", "x.txt", false, kLink), bzip2, Entry("s.bin", std::string(64, '\xA5'))});
  // Every truncation and every flipped byte: Open, Test and extraction either work or throw a
  // member of the family.
  int opened = 0;
  for (size_t i = 0; i < 2 * good.size(); i += 2) {
    std::string bad = i < good.size() ? good.substr(0, i) : good;
    if (i >= good.size()) bad[i - good.size()] ^= 0x5A;
    try {
      VUnzipFile unzip(dir.Write("bad.zip", bad));
      unzip.SetThreads(1);
      ++opened;
      std::vector<VUnzipFile::Failure> failures;
      unzip.Test(&failures);
      if (i % 8 == 0) unzip.ExtractAll(dir / "out", &failures);
    } catch (const VException&) {
    }
  }
  EXPECT_GT(opened, static_cast<int>(good.size() / 4));  // flips in data still open
}

}  // namespace
