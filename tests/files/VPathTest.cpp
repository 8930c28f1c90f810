#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include <vantu/VException.h>
#include <vantu/VFile.h>
#include <vantu/VPath.h>

#include "internal/PathText.h"
#include "support/TempDir.h"

namespace {

using vantu::test::EnvironmentAt;
using vantu::test::TempDir;

std::string RealPath(const std::string& path) {
  char* real = ::realpath(path.c_str(), nullptr);
  const std::string resolved = real;
  std::free(real);
  return resolved;
}

TEST(VPathTest, TheTextAloneDecidesDirectoryOrFile) {
  EXPECT_TRUE(VPath("/data/").IsDirectory());
  EXPECT_FALSE(VPath("/data/").IsFile());
  EXPECT_FALSE(VPath("/data").IsDirectory());  // whether or not /data exists
  EXPECT_TRUE(VPath("/data").IsFile());
  EXPECT_TRUE(VPath("/").IsDirectory());
}

TEST(VPathTest, PartsOfAPath) {
  const VPath path("/srv/in/report.tar.gz");
  EXPECT_EQ(path.Depth(), 2);
  EXPECT_EQ(path[0].GetString(), "srv");
  EXPECT_EQ(path.GetDirectory(1).GetString(), "in");
  EXPECT_EQ(path[2].GetString(), "report.tar.gz");  // n == Depth(): the file name
  EXPECT_EQ(path[3].GetString(), "");
  EXPECT_EQ(path[-1].GetString(), "");
  EXPECT_EQ(path.GetFileName().GetString(), "report.tar.gz");
  EXPECT_EQ(path.GetBaseName().GetString(), "report.tar");
  EXPECT_EQ(path.GetExtension().GetString(), "gz");
  EXPECT_EQ(path.Parent().GetString(), "/srv/in/");

  // Names may hold backslashes, colons, newlines and leading dots: only "/" separates.
  const VPath odd("/x/.cache/a\\b:c\nd.e");
  EXPECT_EQ(odd.Depth(), 2);
  EXPECT_EQ(odd[1].GetString(), ".cache");
  EXPECT_EQ(odd.GetFileName().GetString(), "a\\b:c\nd.e");
  EXPECT_EQ(VPath(".hidden").GetExtension().GetString(), "hidden");
}

TEST(VPathTest, EditingInPlace) {
  VPath path("/srv/in/report");
  path.SetExtension(VString("txt", UTF8));
  EXPECT_EQ(path.GetString(), "/srv/in/report.txt");
  path.MakeDirectory();
  EXPECT_EQ(path.GetString(), "/srv/in/report.txt/");
  path.MakeFile();
  EXPECT_EQ(path.GetString(), "/srv/in/report.txt");
  path.Append(VPath("more/x"));
  EXPECT_EQ(path.GetString(), "/srv/in/report.txt/more/x");

  VPath style("dir/sub/f.txt");
  style.ConvertToStyle(1);
  EXPECT_EQ(style.GetString(), "dir\\sub\\f.txt");
  VPath unix("dir/sub/f.txt");
  unix.ConvertToStyle(0);
  EXPECT_EQ(unix.GetString(), "dir/sub/f.txt");
  EXPECT_THROW(unix.ConvertToStyle(9), VantuInvalidArgumentException);
  EXPECT_EQ(unix.GetString(), "dir/sub/f.txt");
}

TEST(VPathTest, AppendTakesTheHigherEncoding) {
  VPath utf8(VString("/base", UTF8));
  VPath utf16(VString(u"sub/f\u00e9"));
  utf16.ConvertTo(UTF16);
  VPath a = utf8;
  a.Append(utf16);
  EXPECT_EQ(a.GetEncoding(), UTF16);
  a.ConvertTo(UTF8);
  EXPECT_EQ(a.GetString(), "/base/sub/f\xC3\xA9");

  VPath b = utf16;
  b.Append(utf8);
  EXPECT_EQ(b.GetEncoding(), UTF16);
  b.ConvertTo(UTF8);
  EXPECT_EQ(b.GetString(), "sub/f\xC3\xA9/base");

  // Operations keep a Latin-1 path in Latin-1.
  VPath latin(VString("/d\xE9j\xE0/x", Latin1));
  EXPECT_EQ(latin.Parent().GetString(), "/d\xE9j\xE0/");
  EXPECT_EQ(latin.Parent().GetEncoding(), Latin1);
  EXPECT_EQ(latin[0].GetString(), "d\xE9j\xE0");
}

TEST(VPathTest, TheStringAppendStaysReachableThroughAVStringReference) {
  VPath path("/srv/in");
  VString& text = path;
  text.Append("x");
  EXPECT_EQ(path.GetString(), "/srv/inx");
  path.Append("y");  // on a VPath: a path component
  EXPECT_EQ(path.GetString(), "/srv/inx/y");
}

TEST(VPathTest, MakeRelative) {
  EXPECT_EQ(VPath("/a/b/c.txt").MakeRelative(VPath("/a/x/y.txt")).GetString(), "../b/c.txt");
  EXPECT_EQ(VPath("/a/b/c.txt").MakeRelative(VPath("/a/b/c.txt")).GetString(), "c.txt");
  EXPECT_EQ(VPath("/a/b/").MakeRelative(VPath("/a/b/c/d/")).GetString(), "../../");
  EXPECT_EQ(VPath("/a/b/c/d.txt").MakeRelative(VPath("/a/")).GetString(), "b/c/d.txt");
  // Case matters.
  EXPECT_EQ(VPath("/A/f").MakeRelative(VPath("/a/g")).GetString(), "../A/f");
}

// Folders from the environment and targets of links are file-system bytes: a decomposed name
// must come back decomposed, or it names a folder that does not exist.
TEST(VPathTest, FoldersFromTheEnvironmentAndLinkTargetsKeepTheirBytes) {
  const TempDir dir;
  const std::string decomposed = dir / "e\xCC\x81";
  ASSERT_EQ(::mkdir(decomposed.c_str(), 0700), 0);
  {
    const EnvironmentAt data("XDG_DATA_HOME", decomposed);
    const EnvironmentAt temp("TMPDIR", decomposed);
    EXPECT_EQ(vantu::internal::PathBytes(VPath::GetAppDataPath()), decomposed + "/");
    EXPECT_EQ(vantu::internal::PathBytes(VPath::GetTempHome()), decomposed + "/");
    EXPECT_TRUE(VFile(VPath::GetTempHome()).IsDirectory());
  }
  const std::string target = dir.Write("e\xCC\x81/t\xFF.txt", "x");
  ASSERT_EQ(::symlink(target.c_str(), (dir / "link").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "missing").c_str(), (dir / "broken").c_str()), 0);
  ASSERT_EQ(::symlink("link", (dir / "chain").c_str()), 0);
  const std::string resolved = RealPath(target);
  for (StringEncoding encoding : {UTF8, UTF16, Latin1}) {
    for (const char* name : {"link", "chain"}) {
      VPath link;
      vantu::internal::SetPathBytes(link, dir / name, encoding);
      link.ResolveShortcut();
      EXPECT_EQ(vantu::internal::PathBytes(link), resolved) << encoding;
      EXPECT_EQ(vantu::internal::PathBytes(link.Parent()), RealPath(decomposed) + "/");
    }
  }
  VPath broken((dir / "broken").c_str());
  broken.ResolveShortcut();
  EXPECT_EQ(broken.GetString(), dir / "broken");
}

TEST(VPathTest, NamesThatAreNotNFCOrNotUTF8StayReachable) {
  const TempDir dir;
  const std::string decomposed = dir.Write("e\xCC\x81.txt", "1");
  const std::string invalid = dir.Write("bad\xFF\xFE.txt", "22");
  EXPECT_TRUE(VFile(decomposed.c_str()).IsFile());
  EXPECT_EQ(VFile(invalid.c_str()).GetSize(), 2u);
  EXPECT_EQ(VPath(invalid.c_str()).GetFileName().GetString(), "bad\xFF\xFE.txt");
  for (const std::string& name : {decomposed, invalid,
                                  dir.Write("\xEF\xBB\xBF"
                                            "bom",
                                            "3")}) {
    const VPath path = VPath::FromFileSystem(name);
    EXPECT_EQ(vantu::internal::PathBytes(path), name);
    EXPECT_TRUE(VFile(path).IsFile()) << name;
  }
}

TEST(VPathTest, HostilePathsNeitherCrashNorThrow) {
  const std::string longPath = "/" + std::string(5000, 'a') + "/" + std::string(300, 'b');
  VPath path(longPath.c_str());
  EXPECT_EQ(path.Depth(), 1);
  path.MakeDirectory();
  EXPECT_TRUE(path.IsDirectory());
  EXPECT_FALSE(VFile(path).Exists());
  EXPECT_FALSE(VFile(VPath("/a/../../../etc/..\n/x")).IsFile());
  EXPECT_EQ(VPath("a/../b").GetString(), "a/../b");  // the text is not touched until an operation
  EXPECT_EQ(VPath("a/../b").Parent().GetString(), "");
}

}  // namespace
