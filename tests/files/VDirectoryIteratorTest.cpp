#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <vantu/VDirectoryIterator.h>

#include "internal/PathText.h"
#include "support/TempDir.h"

namespace {

using vantu::test::RealPath;
using vantu::test::RunningAsRoot;
using vantu::test::TempDir;

struct Visit {
  std::vector<std::string> paths;  // file-system bytes, relative to `relativeTo` when below it
  std::vector<VFile> entries;
  int stopAt = -1;  // return 1 at this call
  std::string relativeTo;
};

int Record(VFile& entry, void* userData) {
  auto* visit = static_cast<Visit*>(userData);
  std::string path = vantu::internal::PathBytes(entry.GetPath());
  if (!visit->relativeTo.empty() && path.rfind(visit->relativeTo + "/", 0) == 0) {
    path = path.substr(visit->relativeTo.size() + 1);
  }
  visit->paths.push_back(path);
  visit->entries.push_back(entry);
  return static_cast<int>(visit->paths.size()) - 1 == visit->stopAt ? 1 : 0;
}

std::vector<std::string> Sorted(std::vector<std::string> v) {
  std::sort(v.begin(), v.end());
  return v;
}

class VDirectoryIteratorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir.Write("a.txt", "a");
    dir.Write(".hidden", "h");
    dir.Write("sub/b.txt", "b");
    dir.Write("sub/deeper/c.txt", "c");
    visit.relativeTo = dir.path();
  }
  int Walk(bool includeDirectories, bool recursive, unsigned depth) {
    visit.paths.clear();
    VDirectoryIterator walker(Record, includeDirectories);
    return walker.Iterate(VFile(dir.path().c_str()), recursive, &visit, depth);
  }
  TempDir dir;
  Visit visit;
};

TEST_F(VDirectoryIteratorTest, DepthCountsTheLevelsThatMayBeEntered) {
  EXPECT_EQ(Walk(false, true, 0), 0);
  EXPECT_EQ(Sorted(visit.paths), (std::vector<std::string>{".hidden", "a.txt"}));
  EXPECT_EQ(Walk(false, true, 1), 0);
  EXPECT_EQ(Sorted(visit.paths), (std::vector<std::string>{".hidden", "a.txt", "sub/b.txt"}));
  EXPECT_EQ(Walk(true, true, 0xFFFFFFFF), 0);
  EXPECT_EQ(Sorted(visit.paths), (std::vector<std::string>{".hidden", "a.txt", "sub", "sub/b.txt",
                                                           "sub/deeper", "sub/deeper/c.txt"}));
  EXPECT_EQ(Walk(true, false, 5), 0);
  EXPECT_EQ(Sorted(visit.paths), (std::vector<std::string>{".hidden", "a.txt", "sub"}));
}

TEST_F(VDirectoryIteratorTest, ResultsStopTheWalkAndANestedWalkReplacesADirectorysResult) {
  visit.stopAt = 0;
  EXPECT_EQ(Walk(false, true, 10), 1);
  EXPECT_EQ(visit.paths.size(), 1u);
  const TempDir only;
  only.Write("d/f.txt", "x");
  VDirectoryIterator walker(Record, true);
  Visit nested;
  nested.stopAt = 0;  // the directory's callback says stop, but the nested walk's 0 replaces it
  EXPECT_EQ(walker.Iterate(VFile(only.path().c_str()), true, &nested, 5), 0);
  EXPECT_EQ(nested.paths.size(), 2u);
  Visit flat;
  flat.stopAt = 0;
  EXPECT_EQ(walker.Iterate(VFile(only.path().c_str()), false, &flat, 5), 1);
}

TEST_F(VDirectoryIteratorTest, LinksAreFollowedOnceAndEveryDirectoryIsEnteredOncePerWalk) {
  ASSERT_EQ(::symlink(dir.path().c_str(), (dir / "sub/deeper/loop").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "a.txt").c_str(), (dir / "sub/alias").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "nowhere").c_str(), (dir / "sub/broken").c_str()), 0);
  const TempDir outside;
  outside.Write("o.txt", "o");
  ASSERT_EQ(::symlink(outside.path().c_str(), (dir / "out").c_str()), 0);
  visit.relativeTo.clear();
  EXPECT_EQ(Walk(true, true, 0xFFFFFFFF), 0);
  const std::string root = RealPath(dir.path());
  // The link to the top directory is handed over once, resolved, and not entered again; the
  // link to a file stands for its target (so a.txt comes twice); the broken link is neither
  // file nor directory; the link out of the tree leads out of it.
  EXPECT_EQ(std::count(visit.paths.begin(), visit.paths.end(), root), 1);
  EXPECT_EQ(std::count(visit.paths.begin(), visit.paths.end(), root + "/a.txt"), 2);
  EXPECT_EQ(std::count(visit.paths.begin(), visit.paths.end(), RealPath(outside / "o.txt")), 1);
  EXPECT_EQ(visit.paths.size(), 10u) << ::testing::PrintToString(visit.paths);

  // Eighteen levels, each with two links to the next: one file at the bottom, walked once
  // (not 2^18 times).
  const TempDir shared;
  for (int level = 0; level < 18; ++level) {
    const std::string here = shared / ("l" + std::to_string(level));
    const std::string next = shared / ("l" + std::to_string(level + 1));
    ASSERT_EQ(::mkdir(here.c_str(), 0700), 0);
    ASSERT_EQ(::symlink(next.c_str(), (here + "/x").c_str()), 0);
    ASSERT_EQ(::symlink(next.c_str(), (here + "/y").c_str()), 0);
  }
  shared.Write("l18/bottom.txt", "b");
  Visit walk;
  VDirectoryIterator walker(Record, false);
  EXPECT_EQ(walker.Iterate(VFile((shared / "l0").c_str()), true, &walk, 0xFFFFFFFF), 0);
  EXPECT_EQ(walk.paths, std::vector<std::string>{RealPath(shared / "l18/bottom.txt")});
}

// Names that are decomposed or not UTF-8 come back with the file system's bytes whatever the
// encoding of the directory's path, so every entry names a file that exists.
TEST(VDirectoryIteratorEntriesTest, EntriesKeepTheFileSystemsBytesInEveryEncoding) {
  const TempDir dir;
  const std::vector<std::string> names = {"plain.txt", "e\xCC\x81.txt", "caf\xC3\xA9",
                                          "bad\xFF\xFE.txt",
                                          "\xEF\xBB\xBF"
                                          "bom"};
  for (const std::string& name : names) dir.Write("sub/" + name, name);
  for (StringEncoding encoding : {SystemCodePage, UTF8, UTF16, Latin1, ASCII}) {
    VPath folder;
    vantu::internal::SetPathBytes(folder, dir / "sub", encoding);
    Visit visit;
    visit.relativeTo = dir / "sub";
    VDirectoryIterator walker(Record, false);
    EXPECT_EQ(walker.Iterate(VFile(folder), false, &visit, 0), 0);
    EXPECT_EQ(Sorted(visit.paths), Sorted(names)) << "encoding " << encoding;
    for (const VFile& entry : visit.entries) EXPECT_TRUE(entry.IsFile()) << "encoding " << encoding;
  }
}

TEST_F(VDirectoryIteratorTest, FailuresGiveMinusOne) {
  VDirectoryIterator walker(Record, false);
  EXPECT_EQ(walker.Iterate(VFile((dir / "missing").c_str()), true, &visit, 1), -1);
  EXPECT_EQ(walker.Iterate(VFile(), true, &visit, 1), 0);
  VDirectoryIterator throwing(
      [](VFile&, void*) -> int { throw std::runtime_error("callback failed"); }, false);
  EXPECT_EQ(throwing.Iterate(VFile(dir.path().c_str()), false, nullptr, 0), -1);
  VDirectoryIterator silent(true);
  EXPECT_EQ(silent.Iterate(VFile(dir.path().c_str()), true, nullptr, 9), 0);
}

TEST_F(VDirectoryIteratorTest, AnUnreadableSubdirectoryStopsTheWalkWithoutCrashing) {
  if (RunningAsRoot()) GTEST_SKIP() << "root reads every directory";
  ASSERT_EQ(::chmod((dir / "sub/deeper").c_str(), 0), 0);
  EXPECT_EQ(Walk(false, true, 10), -1);
  ::chmod((dir / "sub/deeper").c_str(), 0700);
}

}  // namespace
