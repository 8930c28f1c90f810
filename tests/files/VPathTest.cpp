#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include <vantu/VException.h>
#include <vantu/VFile.h>
#include <vantu/VPath.h>

#include "internal/PathText.h"
#include "support/TempDir.h"

namespace {

using vantu::internal::PathBytes;
using vantu::test::EnvironmentAt;
using vantu::test::RealPath;
using vantu::test::TempDir;

// Each operation on a path text, and the text it must give. Names may hold backslashes, colons
// and newlines: only "/" separates.
TEST(VPathTest, OperationsOnThePathText) {
  using Operation = std::function<std::string(VPath)>;
  const struct {
    const char* path;
    Operation operation;
    const char* expected;
  } cases[] = {
      {"/srv/in/report.tar.gz", [](VPath p) { return std::to_string(p.Depth()); }, "2"},
      {"/srv/in/report.tar.gz", [](VPath p) { return p[0].GetString(); }, "srv"},
      {"/srv/in/report.tar.gz", [](VPath p) { return p.GetDirectory(1).GetString(); }, "in"},
      {"/srv/in/report.tar.gz", [](VPath p) { return p[2].GetString(); }, "report.tar.gz"},
      {"/srv/in/report.tar.gz", [](VPath p) { return p[3].GetString() + p[-1].GetString(); }, ""},
      {"/srv/in/report.tar.gz", [](VPath p) { return p.GetBaseName().GetString(); }, "report.tar"},
      {"/srv/in/report.tar.gz", [](VPath p) { return p.GetExtension().GetString(); }, "gz"},
      {"/srv/in/report.tar.gz", [](VPath p) { return p.Parent().GetString(); }, "/srv/in/"},
      {"/x/.cache/a\\b:c\nd.e", [](VPath p) { return p.GetFileName().GetString(); }, "a\\b:c\nd.e"},
      {"/x/.cache/a\\b:c\nd.e", [](VPath p) { return p[1].GetString(); }, ".cache"},
      {".hidden", [](VPath p) { return p.GetExtension().GetString(); }, "hidden"},
      {"/data/",
       [](VPath p) { return std::string(p.IsDirectory() ? "d" : "") + (p.IsFile() ? "f" : ""); },
       "d"},
      {"/data",
       [](VPath p) { return std::string(p.IsDirectory() ? "d" : "") + (p.IsFile() ? "f" : ""); },
       "f"},
      {"/srv/r", [](VPath p) { return p.SetExtension(VString("txt")), p.GetString(); },
       "/srv/r.txt"},
      {"/srv/r", [](VPath p) { return p.MakeDirectory(), p.GetString(); }, "/srv/r/"},
      {"/srv/r/", [](VPath p) { return p.MakeFile(), p.GetString(); }, "/srv/r"},
      {"/srv/r", [](VPath p) { return p.Append(VPath("more/x")), p.GetString(); }, "/srv/r/more/x"},
      {"/srv/r", [](VPath p) { return static_cast<VString&>(p).Append("x"), p.GetString(); },
       "/srv/rx"},  // the string append stays reachable through a VString reference
      {"d/s/f.txt", [](VPath p) { return p.ConvertToStyle(1), p.GetString(); }, "d\\s\\f.txt"},
      {"/a/b/c.txt", [](VPath p) { return p.MakeRelative(VPath("/a/x/y.txt")).GetString(); },
       "../b/c.txt"},
      {"/a/b/", [](VPath p) { return p.MakeRelative(VPath("/a/b/c/d/")).GetString(); }, "../../"},
      {"/a/b/c/d.txt", [](VPath p) { return p.MakeRelative(VPath("/a/")).GetString(); },
       "b/c/d.txt"},
      {"/A/f", [](VPath p) { return p.MakeRelative(VPath("/a/g")).GetString(); }, "../A/f"},
      {"a/../b", [](VPath p) { return p.Parent().GetString(); }, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.operation(VPath(c.path)), c.expected) << c.path;
  }
  VPath path("dir/f");
  EXPECT_THROW(path.ConvertToStyle(9), VantuInvalidArgumentException);
  EXPECT_EQ(path.GetString(), "dir/f");
}

TEST(VPathTest, EncodingsOfResults) {
  VPath utf16(VString(u"sub/f\u00e9"));
  utf16.ConvertTo(UTF16);
  VPath joined(VString("/base", UTF8));
  joined.Append(utf16);  // the higher encoding wins
  EXPECT_EQ(joined.GetEncoding(), UTF16);
  EXPECT_EQ(PathBytes(joined), "/base/sub/f\xC3\xA9");
  const VPath latin(VString("/d\xE9j\xE0/x", Latin1));
  EXPECT_EQ(latin.Parent().GetString(), "/d\xE9j\xE0/");
  EXPECT_EQ(latin.Parent().GetEncoding(), Latin1);
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
    EXPECT_EQ(PathBytes(VPath::GetAppDataPath()), decomposed + "/");
    EXPECT_EQ(PathBytes(VPath::GetTempHome()), decomposed + "/");
  }
  const std::string target = dir.Write("e\xCC\x81/t\xFF.txt", "x");
  ASSERT_EQ(::symlink(target.c_str(), (dir / "link").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "missing").c_str(), (dir / "broken").c_str()), 0);
  ASSERT_EQ(::symlink("link", (dir / "chain").c_str()), 0);
  for (StringEncoding encoding : {UTF8, UTF16, Latin1}) {
    for (const char* name : {"link", "chain"}) {
      VPath link;
      vantu::internal::SetPathBytes(link, dir / name, encoding);
      link.ResolveShortcut();
      EXPECT_EQ(PathBytes(link), RealPath(target)) << encoding;
      EXPECT_EQ(PathBytes(link.Parent()), RealPath(decomposed) + "/");
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
  for (const std::string& name : {decomposed, invalid,
                                  dir.Write("\xEF\xBB\xBF"
                                            "bom",
                                            "3")}) {
    const VPath path = VPath::FromFileSystem(name);
    EXPECT_EQ(PathBytes(path), name);
    EXPECT_TRUE(VFile(path).IsFile()) << name;
  }
  // Hostile texts neither crash nor throw.
  VPath longPath(("/" + std::string(5000, 'a') + "/" + std::string(300, 'b')).c_str());
  EXPECT_EQ(longPath.Depth(), 1);
  EXPECT_FALSE(VFile(longPath).Exists());
  EXPECT_FALSE(VFile(VPath("/a/../../../etc/..\n/x")).IsFile());
}

}  // namespace
