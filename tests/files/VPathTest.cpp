#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <string>

#include <vantu/VException.h>
#include <vantu/VFile.h>
#include <vantu/VPath.h>

#include "support/Bytes.h"
#include "support/TempDir.h"

namespace {

using vantu::test::TempDir;

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

TEST(VPathTest, SystemFolders) {
  const TempDir dir;
  const char* saved = std::getenv("XDG_DATA_HOME");
  const std::string previous = saved ? saved : "";
  ::setenv("XDG_DATA_HOME", dir.path().c_str(), 1);
  const VPath appData = VPath::GetAppDataPath();
  if (saved) {
    ::setenv("XDG_DATA_HOME", previous.c_str(), 1);
  } else {
    ::unsetenv("XDG_DATA_HOME");
  }
  EXPECT_EQ(appData.GetString(), dir.path() + "/");

  const VPath temp = VPath::GetTempHome();
  ASSERT_GT(temp.Length(), 0u);
  EXPECT_EQ(temp.GetString().back(), '/');
  EXPECT_TRUE(VFile(temp).IsDirectory());
}

TEST(VPathTest, ResolveShortcutFollowsSymbolicLinksToExistingTargets) {
  const TempDir dir;
  const std::string target = dir.Write("target.txt", "x");
  ASSERT_EQ(::symlink(target.c_str(), (dir / "link").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "missing").c_str(), (dir / "broken").c_str()), 0);
  ASSERT_EQ(::symlink("link", (dir / "chain").c_str()), 0);

  char* real = ::realpath(target.c_str(), nullptr);
  const std::string resolved = real;
  std::free(real);

  VPath link((dir / "link").c_str());
  link.ResolveShortcut();
  EXPECT_EQ(link.GetString(), resolved);
  VPath chain((dir / "chain").c_str());
  chain.ResolveShortcut();
  EXPECT_EQ(chain.GetString(), resolved);
  VPath broken((dir / "broken").c_str());
  broken.ResolveShortcut();
  EXPECT_EQ(broken.GetString(), dir / "broken");
  VPath plain(target.c_str());
  plain.ResolveShortcut();
  EXPECT_EQ(plain.GetString(), target);
}

TEST(VPathTest, NamesThatAreNotNFCOrNotUTF8StayReachable) {
  const TempDir dir;
  const std::string decomposed = dir.Write("e\xCC\x81.txt", "1");
  const std::string invalid = dir.Write("bad\xFF\xFE.txt", "22");
  EXPECT_TRUE(VFile(decomposed.c_str()).IsFile());
  EXPECT_EQ(VFile(invalid.c_str()).GetSize(), 2u);
  EXPECT_EQ(VPath(invalid.c_str()).GetFileName().GetString(), "bad\xFF\xFE.txt");
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
