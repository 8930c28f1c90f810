#include <vantu/VException.h>
#include <vantu/VRandom.h>
#include <vantu/VUnzipFile.h>

#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <set>
#include <string>

#include "support/TempDir.h"
#include "zip/ZipTestSupport.h"

using vantu::test::BuildZip;
using vantu::test::ModifiedSeconds;
using vantu::test::Python;
using vantu::test::RawEntry;
using vantu::test::ReadFile;
using vantu::test::Shell;
using vantu::test::Snapshot;
using vantu::test::TempDir;
using vantu::test::WriteFile;
namespace fs = std::filesystem;

namespace {

uint32_t Crc(const std::string& data) {
  return static_cast<uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size())));
}

// Raw deflate of `data`; with `fullFlush` the stream is left open after a full flush.
std::string Deflate(const std::string& data, bool fullFlush = false) {
  z_stream z{};
  deflateInit2(&z, 9, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&z, data.size()) + 64, '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  z.avail_in = static_cast<uInt>(data.size());
  z.next_out = reinterpret_cast<Bytef*>(&out[0]);
  z.avail_out = static_cast<uInt>(out.size());
  deflate(&z, fullFlush ? Z_FULL_FLUSH : Z_FINISH);
  out.resize(out.size() - z.avail_out);
  deflateEnd(&z);
  return out;
}

RawEntry Entry(const std::string& name, const std::string& content, bool deflated = false) {
  RawEntry entry;
  entry.name = name;
  entry.data = deflated ? Deflate(content) : content;
  entry.method = deflated ? 8 : 0;
  entry.crc = Crc(content);
  entry.size = content.size();
  return entry;
}

RawEntry Link(const std::string& name, const std::string& target) {
  RawEntry entry = Entry(name, target);
  entry.external = 0120777u << 16;
  return entry;
}

std::string RandomBytes(size_t size) {
  std::string bytes(size, '\0');
  VRandom(42).NextBytes(&bytes[0], size);
  return bytes;
}

// Writes `tree` under dir/src with even modification times (MS-DOS times have 2 s steps).
void MakeSource(const TempDir& dir) {
  std::string text;
  for (int i = 0; text.size() < 300000; ++i) text += "row " + std::to_string(i * 31 % 977) + "\n";
  dir.Write("src/text.txt", text);
  dir.Write("src/random.bin", RandomBytes(70000));
  dir.Write("src/\xC3\xA4rger/\xCE\xB1\xCE\xB2.txt", "alpha beta");
  dir.Write("src/empty", "");
  fs::create_directories(dir / "src/sub/dir");
  ASSERT_EQ(Shell("find " + (dir / "src") + " -exec touch -d @1700000000 {} +"), 0);
}

TEST(VUnzipFileTest, ReadsWhatOtherToolsWrite) {
  TempDir dir;
  MakeSource(dir);
  const std::string src = dir / "src";
  // Python's four methods.
  const char* kPython =
      "import os, sys, zipfile\n"
      "os.chdir(sys.argv[1])\n"
      "for m in (\"STORED\", \"DEFLATED\", \"BZIP2\", \"LZMA\"):\n"
      "  with zipfile.ZipFile(\"py-\" + m + \".zip\", \"w\", getattr(zipfile, \"ZIP_\" + m)) as "
      "z:\n"
      "    for root, dirs, files in os.walk(\"src\"):\n"
      "      for n in dirs + files: z.write(os.path.join(root, n))\n";
  std::string output;
  ASSERT_EQ(Python(kPython, dir.path(), &output), 0) << output;
  ASSERT_EQ(
      Shell("cd " + dir.path() +
                " && zip -qr zip.zip src && zip -qr0 zip0.zip src && "
                "bsdtar -cf bsdtar.zip --format zip src && zstd -q19 src/text.txt -o t.zst && "
                "xz -kc src/text.txt > t.xz",
            &output),
      0)
      << output;
  // zstd and xz streams made by their own tools, in a zip of our making.
  const std::string text = ReadFile(dir / "src/text.txt");
  for (auto [method, file] : {std::pair<uint16_t, const char*>{93, "t.zst"}, {95, "t.xz"}}) {
    RawEntry entry = Entry("src/text.txt", text);
    entry.method = method;
    entry.data = ReadFile(dir / file);
    WriteFile(dir / (std::string(file) + ".zip"), BuildZip({entry}));
  }

  for (const char* name : {"py-STORED.zip", "py-DEFLATED.zip", "py-BZIP2.zip", "py-LZMA.zip",
                           "zip.zip", "zip0.zip", "bsdtar.zip", "t.zst.zip", "t.xz.zip"}) {
    SCOPED_TRACE(name);
    VUnzipFile unzip(dir / name);
    unzip.Test();
    const std::string target = dir / (std::string("x-") + name);
    unzip.ExtractAll(target);
    if (std::string(name).rfind("t.", 0) == 0) {
      EXPECT_EQ(ReadFile(target + "/src/text.txt"), text);
      continue;
    }
    EXPECT_EQ(Snapshot(target + "/src"), Snapshot(src));
    EXPECT_EQ(ModifiedSeconds(target + "/src/text.txt"), 1700000000);
    EXPECT_EQ(ModifiedSeconds(target + "/src/sub/dir"), 1700000000);
  }
}

TEST(VUnzipFileTest, ReadsZip64ArchivesOfManyEntriesAndOver4GiB) {
  TempDir dir;
  // 70,000 entries: past the 65,535 of the classic end record.
  const char* kMany =
      "import sys, zipfile\n"
      "with zipfile.ZipFile(sys.argv[1], \"w\") as z:\n"
      "  for i in range(70000): z.writestr(\"d%d/%d\" % (i // 1000, i), str(i))\n";
  std::string output;
  ASSERT_EQ(Python(kMany, dir / "many.zip", &output), 0) << output;
  {
    // Extracting all 70,000 would time file creation, not this code: a few, past 65,535 too.
    VUnzipFile unzip(dir / "many.zip");
    ASSERT_EQ(unzip.GetEntryCount(), 70000u);
    unzip.Test();
    for (int i : {0, 65535, 65536, 69999}) {
      const std::string name = "d" + std::to_string(i / 1000) + "/" + std::to_string(i);
      unzip.Extract(name, dir / "many");
      EXPECT_EQ(ReadFile(dir / ("many/" + name)), std::to_string(i));
    }
  }
  // A stored entry of 4 GiB + 1 zero bytes, written sparse, and a small entry after it whose
  // offset needs ZIP64.
  const char* kLarge =
      "import sys, zipfile\n"
      "class Sparse:\n"
      "  def __init__(s, f): s.f = f\n"
      "  def write(s, b):\n"
      "    if b.count(0) == len(b): s.f.seek(len(b), 1); return len(b)\n"
      "    return s.f.write(b)\n"
      "  def __getattr__(s, n): return getattr(s.f, n)\n"
      "f = open(sys.argv[1], \"wb\")\n"
      "with zipfile.ZipFile(Sparse(f), \"w\") as z:\n"
      "  with z.open(\"zeros\", \"w\", force_zip64=True) as e:\n"
      "    block = bytes(1 << 24)\n"
      "    for i in range(256): e.write(block)\n"
      "    e.write(bytes(1))\n"
      "  z.writestr(\"after.txt\", \"past 4 GiB\")\n"
      "f.truncate(); f.close()\n";
  ASSERT_EQ(Python(kLarge, dir / "large.zip", &output), 0) << output;
  VUnzipFile unzip(dir / "large.zip");
  ASSERT_EQ(unzip.GetEntryCount(), 2u);
  EXPECT_EQ(unzip.GetEntries()[0].size, (uint64_t{1} << 32) + 1);
  // Reading the 4 GiB of zeros would time the kernel's copying of holes (about 10 s here);
  // the entry past 4 GiB needs the ZIP64 offset.
  unzip.Extract("after.txt", dir / "large");
  EXPECT_EQ(ReadFile(dir / "large/after.txt"), "past 4 GiB");
}

TEST(VUnzipFileTest, ExtractionNeverWritesOutsideTheTargetFolder) {
  TempDir dir;
  const std::set<std::string> evil = {"../evil1",        "/tmp/evil2", "C:/evil3", "a\\evil4",
                                      "sub/../../evil5", "out-link",   "abs-link", "pre/evil6",
                                      "up-link",         "dot/up-link"};
  std::vector<RawEntry> entries = {Entry("good.txt", "fine"),
                                   Entry("sub/target.txt", "t", true),
                                   Link("in-link", "sub/target.txt"),
                                   Link("sub/up-link", "../good.txt"),
                                   Link("out-link", "sub/../../outside"),
                                   Link("abs-link", "/etc"),
                                   Link("dot", "."),
                                   Link("up-link", "dot/.."),
                                   Link("dot/up-link", "../x")};
  for (const std::string& name : evil) {
    if (name.find("link") == std::string::npos) entries.push_back(Entry(name, "evil"));
  }
  WriteFile(dir / "evil.zip", BuildZip(entries));
  fs::create_directories(dir / "target");
  fs::create_directories(dir / "elsewhere");
  fs::create_directory_symlink(dir / "elsewhere", dir / "target/pre");  // a link already there

  VUnzipFile unzip(dir / "evil.zip");
  unzip.SetThreads(1);  // "dot" is made before "dot/up-link"
  std::vector<VUnzipFile::Failure> failures;
  unzip.ExtractAll(dir / "target", &failures);
  std::set<std::string> failed;
  for (const auto& failure : failures) failed.insert(failure.name.GetString());
  EXPECT_EQ(failed, evil);
  EXPECT_EQ(ReadFile(dir / "target/good.txt"), "fine");
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
    for (const char* name : {"../evil1", "abs-link"}) {
      EXPECT_NE(e.Message().find(name), std::string::npos) << e.Message();
    }
  }
  EXPECT_EQ(ReadFile(dir / "target2/good.txt"), "fine");
}

TEST(VUnzipFileTest, LimitsRefuseBombsWithoutFillingTheDisk) {
  // Ten entries of 1 GiB of zeros each, 1 MiB of compressed data apiece: one block of a full
  // flush repeated, then an empty final block.
  const std::string zeros(1 << 20, '\0');
  const std::string block = Deflate(zeros, true);
  const uLong blockCrc = Crc(zeros);
  std::string data;
  uLong crc = 0;
  for (int i = 0; i < 1024; ++i) {
    data += block;
    crc = crc32_combine(crc, blockCrc, 1 << 20);
  }
  data += std::string("\x03\x00", 2);
  std::vector<RawEntry> honest;
  std::vector<RawEntry> lying;
  for (int i = 0; i < 10; ++i) {
    RawEntry entry;
    entry.name = "zeros" + std::to_string(i);
    entry.data = data;
    entry.method = 8;
    entry.crc = static_cast<uint32_t>(crc);
    entry.size = uint64_t{1} << 30;
    honest.push_back(entry);
    entry.size = 1 << 20;  // claims 1 MiB
    lying.push_back(entry);
  }
  TempDir dir;
  WriteFile(dir / "honest.zip", BuildZip(honest));
  WriteFile(dir / "lying.zip", BuildZip(lying));

  VUnzipFile bomb(dir / "honest.zip");
  bomb.SetLimits(uint64_t{1} << 30, 0);
  EXPECT_THROW(bomb.ExtractAll(dir / "out"), VantuDataException);
  EXPECT_THROW(bomb.Test(), VantuDataException);
  bomb.SetLimits(0, 9);
  EXPECT_THROW(bomb.ExtractAll(dir / "out"), VantuDataException);
  EXPECT_FALSE(fs::exists(dir / "out"));  // refused before anything was written

  // Entries that share their compressed bytes (the other way to multiply output) are refused.
  std::string shared = BuildZip({honest[0], honest[1]});
  const size_t second = shared.rfind(std::string("PK\x01\x02", 4));
  shared.replace(second + 42, 4, std::string(4, '\0'));
  WriteFile(dir / "shared.zip", shared);
  EXPECT_THROW(VUnzipFile(dir / "shared.zip"), VantuDataException);

  // Sizes that lie are caught by the output itself, limit or not.
  VUnzipFile liar(dir / "lying.zip");
  std::vector<VUnzipFile::Failure> failures;
  liar.ExtractAll(dir / "out", &failures);
  ASSERT_EQ(failures.size(), 10u);
  EXPECT_NE(failures[0].reason.find("more than the declared"), std::string::npos)
      << failures[0].reason;
  EXPECT_TRUE(fs::is_empty(dir / "out"));
}

TEST(VUnzipFileTest, BadEntriesFailClearlyAndKeepWhatWasThere) {
  struct Case {
    RawEntry entry;
    const char* reason;
  };
  RawEntry badCrc = Entry("f.txt", "new content", true);
  badCrc.crc ^= 1;
  RawEntry encrypted = Entry("f.txt", "new content");
  encrypted.flags |= 1;
  RawEntry unknown = Entry("f.txt", "new content");
  unknown.method = 99;
  RawEntry truncated = Entry("f.txt", std::string(5000, 'x') + RandomBytes(5000), true);
  truncated.data.resize(truncated.data.size() / 2);
  RawEntry garbage = Entry("f.txt", "new content");
  garbage.method = 12;  // not bzip2 data
  RawEntry shortData = Entry("f.txt", "new content", true);
  shortData.size = 3;
  for (const Case& c : {Case{badCrc, "CRC"}, Case{encrypted, "encrypted"},
                        Case{unknown, "method 99"}, Case{truncated, "truncated"},
                        Case{garbage, "bzip2"}, Case{shortData, "more than the declared"}}) {
    SCOPED_TRACE(c.reason);
    TempDir dir;
    WriteFile(dir / "a.zip", BuildZip({c.entry}));
    dir.Write("out/f.txt", "old");
    VUnzipFile unzip(dir / "a.zip");
    std::vector<VUnzipFile::Failure> failures;
    unzip.Test(&failures);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_NE(failures[0].reason.find(c.reason), std::string::npos) << failures[0].reason;
    EXPECT_THROW(unzip.ExtractAll(dir / "out"), VantuDataException);
    EXPECT_THROW(unzip.Read("f.txt"), VantuDataException);
    EXPECT_EQ(Snapshot(dir / "out"), (std::map<std::string, std::string>{{"f.txt", "old"}}));
  }
}

TEST(VUnzipFileTest, DamagedArchivesThrowOurExceptionsNeverCrash) {
  TempDir dir;
  EXPECT_THROW(VUnzipFile(dir / "missing.zip"), VantuFileNotFoundException);
  WriteFile(dir / "empty.zip", "");
  EXPECT_THROW(VUnzipFile(dir / "empty.zip"), VantuDataException);
  WriteFile(dir / "text.zip", std::string(100, 'z'));
  EXPECT_THROW(VUnzipFile(dir / "text.zip"), VantuDataException);

  RawEntry bzip2 = Entry("b.txt", "");
  ASSERT_EQ(Python("import bz2,sys; sys.stdout.buffer.write(bz2.compress(b\"bzip2 \" * 50))",
                   "> " + (dir / "b.bz2")),
            0);
  bzip2.data = ReadFile(dir / "b.bz2");
  bzip2.method = 12;
  std::string bzText;
  for (int i = 0; i < 50; ++i) bzText += "bzip2 ";
  bzip2.crc = Crc(bzText);
  bzip2.size = bzText.size();
  const std::string good =
      BuildZip({Entry("a/", ""), Entry("a/x.txt", "some text to deflate", true),
                Link("a/l", "x.txt"), bzip2, Entry("s.bin", RandomBytes(64))});
  // Every truncation and every flipped byte: Open, Test and extraction either work or throw a
  // member of the family.
  int opened = 0;
  for (size_t i = 0; i < 2 * good.size(); i += 2) {
    std::string bad = good;
    if (i < good.size()) {
      bad.resize(i);
    } else {
      bad[i - good.size()] ^= 0x5A;
    }
    WriteFile(dir / "bad.zip", bad);
    try {
      VUnzipFile unzip(dir / "bad.zip");
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

TEST(VUnzipFileTest, ExtractsOrReadsOneEntry) {
  TempDir dir;
  WriteFile(dir / "a.zip", BuildZip({Entry("one.txt", "1"), Entry("sub/two.txt", "22", true)}));
  VUnzipFile unzip(dir / "a.zip");
  EXPECT_EQ(unzip.Read("sub/two.txt"), "22");
  unzip.Extract("sub/two.txt", dir / "out");
  EXPECT_EQ(Snapshot(dir / "out"),
            (std::map<std::string, std::string>{{"sub/", ""}, {"sub/two.txt", "22"}}));
  EXPECT_THROW(unzip.Extract("three.txt", dir / "out"), VantuInvalidArgumentException);
  unzip.Close();
  EXPECT_THROW(unzip.Test(), VantuInvalidArgumentException);
}

}  // namespace
