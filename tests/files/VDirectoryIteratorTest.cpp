#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <vantu/VDirectoryIterator.h>

#include "support/TempDir.h"

namespace {

using vantu::test::RunningAsRoot;
using vantu::test::TempDir;

struct Visit {
  std::vector<std::string> paths;
  int stopAt = -1;  // return 1 at this call
  std::string relativeTo;
};

int Record(VFile& entry, void* userData) {
  auto* visit = static_cast<Visit*>(userData);
  std::string path = entry.GetPath().GetString();
  if (!visit->relativeTo.empty() && path.rfind(visit->relativeTo + "/", 0) == 0) {
    path = path.substr(visit->relativeTo.size() + 1);
  }
  visit->paths.push_back(path);
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
    VDirectoryIterator walker(Record, includeDirectories);
    return walker.Iterate(VFile(dir.path().c_str()), recursive, &visit, depth);
  }
  TempDir dir;
  Visit visit;
};

TEST_F(VDirectoryIteratorTest, DepthCountsTheLevelsThatMayBeEntered) {
  EXPECT_EQ(Walk(false, true, 0), 0);
  EXPECT_EQ(Sorted(visit.paths), (std::vector<std::string>{".hidden", "a.txt"}));
  visit.paths.clear();
  EXPECT_EQ(Walk(false, true, 1), 0);
  EXPECT_EQ(Sorted(visit.paths), (std::vector<std::string>{".hidden", "a.txt", "sub/b.txt"}));
  visit.paths.clear();
  EXPECT_EQ(Walk(true, true, 0xFFFFFFFF), 0);
  EXPECT_EQ(Sorted(visit.paths), (std::vector<std::string>{".hidden", "a.txt", "sub", "sub/b.txt",
                                                           "sub/deeper", "sub/deeper/c.txt"}));
  visit.paths.clear();
  EXPECT_EQ(Walk(true, false, 5), 0);
  EXPECT_EQ(Sorted(visit.paths), (std::vector<std::string>{".hidden", "a.txt", "sub"}));
}

TEST_F(VDirectoryIteratorTest, TheFirstNonZeroCallbackResultEndsTheWalk) {
  visit.stopAt = 0;
  EXPECT_EQ(Walk(false, true, 10), 1);
  EXPECT_EQ(visit.paths.size(), 1u);
}

TEST_F(VDirectoryIteratorTest, ADirectorysNestedWalkResultReplacesItsCallbacks) {
  // Only "sub" is visited at the top apart from files; stop at every directory callback.
  const TempDir only;
  only.Write("d/f.txt", "x");
  Visit v;
  v.stopAt = 0;  // the directory's callback says stop...
  VDirectoryIterator walker(Record, true);
  // ...but with a descent the nested walk's 0 replaces it, and the walk goes on inside.
  EXPECT_EQ(walker.Iterate(VFile(only.path().c_str()), true, &v, 5), 0);
  EXPECT_EQ(v.paths.size(), 2u);
  Visit flat;
  flat.stopAt = 0;
  EXPECT_EQ(walker.Iterate(VFile(only.path().c_str()), false, &flat, 5), 1);
  EXPECT_EQ(flat.paths.size(), 1u);
}

TEST_F(VDirectoryIteratorTest, SymbolicLinksAreFollowedOnceAndCyclesAreNotEntered) {
  ASSERT_EQ(::symlink(dir.path().c_str(), (dir / "sub/deeper/loop").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "a.txt").c_str(), (dir / "sub/alias").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "nowhere").c_str(), (dir / "sub/broken").c_str()), 0);
  visit.relativeTo.clear();
  EXPECT_EQ(Walk(true, true, 0xFFFFFFFF), 0);
  char* real = ::realpath(dir.path().c_str(), nullptr);
  const std::string root = real;
  std::free(real);
  // The link to the top directory is handed over once, resolved, and not entered again; the
  // link to a file stands for its target (so a.txt comes twice); the broken link is neither
  // file nor directory.
  EXPECT_EQ(std::count(visit.paths.begin(), visit.paths.end(), root), 1)
      << ::testing::PrintToString(visit.paths);
  EXPECT_EQ(std::count(visit.paths.begin(), visit.paths.end(), root + "/a.txt"), 2);  // and alias
  EXPECT_EQ(visit.paths.size(), 8u);
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
