#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <tuple>

#include <vantu/VException.h>
#include <vantu/VFile.h>
#include <vantu/VPath.h>

#include "internal/PathText.h"
#include "support/TempDir.h"

namespace {

using vantu::internal::PathBytes;
using vantu::internal::SetPathBytes;
using vantu::test::EnvironmentAt;
using vantu::test::RealPath;
using vantu::test::TempDir;

// Depth; the names at 0, 1, 2 and -1; file name, base name and extension; parent; kind.
std::string Parts(const VPath& p) {
  return std::to_string(p.Depth()) + "|" + p[0].GetString() + "|" + p.GetDirectory(1).GetString() +
         "|" + p[2].GetString() + p[-1].GetString() + "|" + p.GetFileName().GetString() + "|" +
         p.GetBaseName().GetString() + "|" + p.GetExtension().GetString() + "|" +
         p.Parent().GetString() + "|" + (p.IsDirectory() ? "d" : "") + (p.IsFile() ? "f" : "");
}

// Names may hold backslashes, colons and newlines: only "/" separates.
TEST(VPathTest, PartsAndOperationsOfThePathText) {
  const std::pair<const char*, const char*> parts[] = {
      {"/srv/in/report.tar.gz", "2|srv|in|report.tar.gz|report.tar.gz|report.tar|gz|/srv/in/|f"},
      {"/x/.cache/a\\b:c\nd.e", "2|x|.cache|a\\b:c\nd.e|a\\b:c\nd.e|a\\b:c\nd|e|/x/.cache/|f"},
      {".hidden", "0|.hidden|||.hidden||hidden||f"},
      {"/data/", "1|data||||||/|d"},
      {"a/../b", "0|b|||b|b|||f"},
  };
  for (const auto& [path, expected] : parts) EXPECT_EQ(Parts(VPath(path)), expected) << path;
  const std::tuple<const char*, void (*)(VPath&), const char*> operations[] = {
      {"/srv/r", [](VPath& p) { p.SetExtension(VString("txt")); }, "/srv/r.txt"},
      {"/srv/r", [](VPath& p) { p.MakeDirectory(); }, "/srv/r/"},
      {"/srv/r/", [](VPath& p) { p.MakeFile(); }, "/srv/r"},
      {"/srv/r", [](VPath& p) { p.Append(VPath("more/x")); }, "/srv/r/more/x"},
      {"/srv/r", [](VPath& p) { static_cast<VString&>(p).Append("x"); }, "/srv/rx"},
      {"d/s/f.txt", [](VPath& p) { p.ConvertToStyle(1); }, "d\\s\\f.txt"},
      {"d/f", [](VPath& p) { EXPECT_THROW(p.ConvertToStyle(9), VantuInvalidArgumentException); },
       "d/f"},
  };
  for (const auto& [text, operation, expected] : operations) {
    VPath path(text);
    operation(path);
    EXPECT_EQ(path.GetString(), expected) << text;
  }
  for (const auto& [from, base, relative] : {std::tuple{"/a/b/c.txt", "/a/x/y.txt", "../b/c.txt"},
                                             {"/a/b/", "/a/b/c/d/", "../../"},
                                             {"/a/b/c/d.txt", "/a/", "b/c/d.txt"},
                                             {"/A/f", "/a/g", "../A/f"}}) {
    EXPECT_EQ(VPath(from).MakeRelative(VPath(base)).GetString(), relative) << from;
  }
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

// Folders from the environment, targets of links and names from the file system are its bytes:
// a decomposed or invalid name must come back as it is, or it names a file that does not exist.
TEST(VPathTest, FileSystemNamesKeepTheirBytes) {
  const TempDir dir;
  const std::string decomposed = dir / "e\xCC\x81";
  ASSERT_EQ(::mkdir(decomposed.c_str(), 0700), 0);
  {
    const EnvironmentAt data("XDG_DATA_HOME", decomposed);
    const EnvironmentAt temp("TMPDIR", decomposed);
    EXPECT_EQ(PathBytes(VPath::GetAppDataPath()), decomposed + "/");
    EXPECT_EQ(PathBytes(VPath::GetTempHome()), decomposed + "/");
  }
  const std::string target = dir.Write("e\xCC\x81/t\xFF.txt", "22");
  ASSERT_EQ(::symlink(target.c_str(), (dir / "link").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "missing").c_str(), (dir / "broken").c_str()), 0);
  ASSERT_EQ(::symlink("link", (dir / "chain").c_str()), 0);
  for (StringEncoding encoding : {UTF8, UTF16, Latin1}) {
    for (const char* name : {"link", "chain"}) {
      VPath link;
      SetPathBytes(link, dir / name, encoding);
      link.ResolveShortcut();
      EXPECT_EQ(PathBytes(link), RealPath(target)) << encoding;
      EXPECT_EQ(PathBytes(link.Parent()), RealPath(decomposed) + "/");
    }
  }
  VPath broken((dir / "broken").c_str());
  broken.ResolveShortcut();
  EXPECT_EQ(broken.GetString(), dir / "broken");
  const std::string bom = std::string("\xEF\xBB\xBF") + "bom";
  for (const std::string& name :
       {target, dir.Write("bad\xFF\xFE.txt", "22"), dir.Write(bom, "22")}) {
    const VPath path = VPath::FromFileSystem(name);
    EXPECT_EQ(PathBytes(path), name);
    EXPECT_TRUE(VFile(path).IsFile()) << name;
    EXPECT_EQ(VFile(name.c_str()).GetSize(), 2u) << name;
  }
  // Hostile texts neither crash nor throw.
  VPath longPath(("/" + std::string(5000, 'a') + "/" + std::string(300, 'b')).c_str());
  EXPECT_EQ(longPath.Depth(), 1);
  EXPECT_FALSE(VFile(longPath).Exists());
  EXPECT_FALSE(VFile(VPath("/a/../../../etc/..\n/x")).IsFile());
}

}  // namespace
