#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <vantu/VDirectoryIterator.h>

#include "internal/PathText.h"
#include "support/TempDir.h"

namespace {

using vantu::test::RealPath;
using vantu::test::RunningAsRoot;
using vantu::test::TempDir;
using Names = std::vector<std::string>;

// What the callback saw: the file-system bytes of each entry, relative to `base` when below it.
struct Visit {
  explicit Visit(std::string base = "", int stopAt = -1) : base(std::move(base)), stopAt(stopAt) {}
  std::string base;
  int stopAt;  // the callback returns 1 for this entry
  Names paths;
  size_t files = 0;  // entries that name an existing file
};

int Record(VFile& entry, void* userData) {
  auto* visit = static_cast<Visit*>(userData);
  std::string path = vantu::internal::PathBytes(entry.GetPath());
  if (!visit->base.empty() && path.rfind(visit->base + "/", 0) == 0)
    path.erase(0, visit->base.size() + 1);
  visit->paths.push_back(path);
  visit->files += entry.IsFile();
  return static_cast<int>(visit->paths.size()) - 1 == visit->stopAt ? 1 : 0;
}

// Walks `root` with Record; the paths seen are sorted.
int Walk(const VFile& root, bool directories, bool recursive, unsigned depth, Visit& visit) {
  const int result =
      VDirectoryIterator(Record, directories).Iterate(root, recursive, &visit, depth);
  std::sort(visit.paths.begin(), visit.paths.end());
  return result;
}

class VDirectoryIteratorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir.Write("a.txt", "a");
    dir.Write(".hidden", "h");
    dir.Write("sub/b.txt", "b");
    dir.Write("sub/deeper/c.txt", "c");
  }
  Names Paths(bool directories, bool recursive, unsigned depth) {
    Visit visit(dir.path());
    EXPECT_EQ(Walk(VFile(dir.path().c_str()), directories, recursive, depth, visit), 0);
    return visit.paths;
  }
  TempDir dir;
};

TEST_F(VDirectoryIteratorTest, DepthCountsTheLevelsThatMayBeEntered) {
  EXPECT_EQ(Paths(false, true, 0), (Names{".hidden", "a.txt"}));
  EXPECT_EQ(Paths(false, true, 1), (Names{".hidden", "a.txt", "sub/b.txt"}));
  EXPECT_EQ(Paths(true, true, 0xFFFFFFFF),
            (Names{".hidden", "a.txt", "sub", "sub/b.txt", "sub/deeper", "sub/deeper/c.txt"}));
  EXPECT_EQ(Paths(true, false, 5), (Names{".hidden", "a.txt", "sub"}));
}

TEST_F(VDirectoryIteratorTest, ResultsStopTheWalkAndANestedWalkReplacesADirectorysResult) {
  Visit stopped(dir.path(), 0);
  EXPECT_EQ(Walk(VFile(dir.path().c_str()), false, true, 10, stopped), 1);
  EXPECT_EQ(stopped.paths.size(), 1u);
  const TempDir only;
  only.Write("d/f.txt", "x");
  Visit nested(only.path(), 0);  // the directory's callback says stop; the nested walk's 0 wins
  EXPECT_EQ(Walk(VFile(only.path().c_str()), true, true, 5, nested), 0);
  EXPECT_EQ(nested.paths, (Names{"d", "d/f.txt"}));
  Visit flat(only.path(), 0);
  EXPECT_EQ(Walk(VFile(only.path().c_str()), true, false, 5, flat), 1);
  // A missing folder or a throwing callback give -1; an empty path or no callback walk nothing.
  EXPECT_EQ(Walk(VFile((dir / "missing").c_str()), false, true, 1, flat), -1);
  EXPECT_EQ(Walk(VFile(), false, true, 1, flat), 0);
  VDirectoryIterator throwing([](VFile&, void*) -> int { throw std::runtime_error("x"); }, false);
  EXPECT_EQ(throwing.Iterate(VFile(dir.path().c_str()), false, nullptr, 0), -1);
  EXPECT_EQ(VDirectoryIterator(true).Iterate(VFile(dir.path().c_str()), true, nullptr, 9), 0);
}

TEST_F(VDirectoryIteratorTest, LinksAreFollowedOnceAndEveryDirectoryIsEnteredOncePerWalk) {
  ASSERT_EQ(::symlink(dir.path().c_str(), (dir / "sub/deeper/loop").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "a.txt").c_str(), (dir / "sub/alias").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "nowhere").c_str(), (dir / "sub/broken").c_str()), 0);
  const TempDir outside;
  outside.Write("o.txt", "o");
  ASSERT_EQ(::symlink(outside.path().c_str(), (dir / "out").c_str()), 0);
  // The link to the top directory is handed over once, resolved, and not entered again; the
  // link to a file stands for its target (so a.txt comes twice); the broken link is neither
  // file nor directory; the link out of the tree leads out of it.
  const std::string root = RealPath(dir.path());
  Names expected{root, root + "/a.txt", RealPath(outside.path()), RealPath(outside / "o.txt")};
  for (const char* name :
       {".hidden", "a.txt", "sub", "sub/b.txt", "sub/deeper", "sub/deeper/c.txt"})
    expected.push_back(dir / name);
  std::sort(expected.begin(), expected.end());
  Visit visit;
  EXPECT_EQ(Walk(VFile(dir.path().c_str()), true, true, 0xFFFFFFFF, visit), 0);
  EXPECT_EQ(visit.paths, expected);
  // Eighteen levels, each with two links to the next: the file at the bottom is walked once,
  // not 2^18 times.
  const TempDir shared;
  for (int level = 0; level < 18; ++level) {
    const std::string here = shared / ("l" + std::to_string(level));
    const std::string next = shared / ("l" + std::to_string(level + 1));
    ASSERT_EQ(::mkdir(here.c_str(), 0700), 0);
    ASSERT_EQ(::symlink(next.c_str(), (here + "/x").c_str()), 0);
    ASSERT_EQ(::symlink(next.c_str(), (here + "/y").c_str()), 0);
  }
  const std::string bottom = RealPath(shared.Write("l18/bottom.txt", "b"));
  Visit walk;
  EXPECT_EQ(Walk(VFile((shared / "l0").c_str()), false, true, 0xFFFFFFFF, walk), 0);
  EXPECT_EQ(walk.paths, Names{bottom});
}

// Names that are decomposed or not UTF-8 come back with the file system's bytes whatever the
// encoding of the directory's path, so every entry names a file that exists.
TEST(VDirectoryIteratorEntriesTest, EntriesKeepTheFileSystemsBytesInEveryEncoding) {
  const TempDir dir;
  const Names names = {"bad\xFF\xFE.txt", "caf\xC3\xA9", "e\xCC\x81.txt", "plain.txt",
                       std::string("\xEF\xBB\xBF") + "bom"};  // in byte order
  for (const std::string& name : names) dir.Write("sub/" + name, name);
  for (StringEncoding encoding : {SystemCodePage, UTF8, UTF16, Latin1, ASCII}) {
    VPath folder;
    vantu::internal::SetPathBytes(folder, dir / "sub", encoding);
    Visit visit(dir / "sub");
    EXPECT_EQ(Walk(VFile(folder), false, false, 0, visit), 0);
    EXPECT_EQ(visit.paths, names) << "encoding " << encoding;
    EXPECT_EQ(visit.files, names.size()) << "encoding " << encoding;
  }
}

TEST_F(VDirectoryIteratorTest, AnUnreadableSubdirectoryStopsTheWalkWithoutCrashing) {
  if (RunningAsRoot()) GTEST_SKIP() << "root reads every directory";
  ASSERT_EQ(::chmod((dir / "sub/deeper").c_str(), 0), 0);
  Visit visit(dir.path());
  EXPECT_EQ(Walk(VFile(dir.path().c_str()), false, true, 10, visit), -1);
}

}  // namespace
