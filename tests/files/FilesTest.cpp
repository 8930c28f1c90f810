// The file system layer: path texts and the bytes they keep, files, walks over directories,
// and the flat functions.
#include <gtest/gtest.h>

#include <Poco/Exception.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

#include <vantu/VChecksum.h>
#include <vantu/VDirectoryIterator.h>
#include <vantu/VException.h>
#include <vantu/VFile.h>
#include <vantu/VPath.h>
#include <vantu/vantu.h>

#include "internal/FileErrors.h"
#include "internal/PathText.h"
#include "support/TempDir.h"

extern "C" int vantu_test_flat_files_from_c(const char* file, const char* missing, char* failure,
                                            size_t size);

namespace {

namespace fs = std::filesystem;
using vantu::internal::PathBytes;
using vantu::internal::SetPathBytes;
using namespace vantu::test;  // TempDir, HeldOpen, EnvironmentAt, RealPath...
using Names = std::vector<std::string>;

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
      {"/a/b/c.txt", [](VPath& p) { p = p.MakeRelative(VPath("/a/x/y.txt")); }, "../b/c.txt"},
      {"/a/b/", [](VPath& p) { p = p.MakeRelative(VPath("/a/b/c/d/")); }, "../../"},
      {"/a/b/c/d.txt", [](VPath& p) { p = p.MakeRelative(VPath("/a/")); }, "b/c/d.txt"},
      {"/A/f", [](VPath& p) { p = p.MakeRelative(VPath("/a/g")); }, "../A/f"},
  };
  for (const auto& [text, operation, expected] : operations) {
    VPath path(text);
    operation(path);
    EXPECT_EQ(path.GetString(), expected) << text;
  }
}

// Results keep the encoding; folders from the environment and targets of links are file-system
// bytes: a decomposed or invalid name must come back as it is, or it names no file.
TEST(VPathTest, EncodingsOfResultsAndFileSystemBytes) {
  const TempDir dir;
  const std::string decomposed = dir / "e\xCC\x81";
  ASSERT_EQ(::mkdir(decomposed.c_str(), 0700), 0);
  const EnvironmentAt data("XDG_DATA_HOME", decomposed);
  const EnvironmentAt temp("TMPDIR", decomposed);
  EXPECT_EQ(PathBytes(VPath::GetAppDataPath()), decomposed + "/");
  EXPECT_EQ(PathBytes(VPath::GetTempHome()), decomposed + "/");
  const std::string target = dir.Write("e\xCC\x81/t\xFF.txt", "x");
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
  VPath utf16(VString(u"sub/f\u00e9"));
  utf16.ConvertTo(UTF16);
  VPath joined(VString("/base", UTF8));
  joined.Append(utf16);  // the higher encoding wins
  EXPECT_EQ(joined.GetEncoding(), UTF16);
  EXPECT_EQ(PathBytes(joined), "/base/sub/f\xC3\xA9");
  const VPath latin(VString("/d\xE9j\xE0/x", Latin1));
  EXPECT_EQ(latin.Parent().GetString(), "/d\xE9j\xE0/");
  EXPECT_EQ(latin.Parent().GetEncoding(), Latin1);
  // Hostile texts neither crash nor throw.
  VPath longPath(("/" + std::string(5000, 'a') + "/" + std::string(300, 'b')).c_str());
  EXPECT_EQ(longPath.Depth(), 1);
  EXPECT_FALSE(VFile(longPath).Exists());
  EXPECT_FALSE(VFile(VPath("/a/../../../etc/..\n/x")).IsFile());
}

// std::filesystem::path carries a path's bytes both ways unchanged: names in every script, a
// decomposed one and one that is not UTF-8 are made on disk through the standard library, found
// again by listing the folder, and still name their files.
TEST(VPathTest, FilesystemPathsKeepTheFileSystemsBytes) {
  const TempDir dir;
  const std::string names[] = {"ascii.txt",
                               "Gr\xC3\xBC\xC3\x9F"
                               "e",
                               "\xE6\xBC\xA2\xE5\xAD\x97",
                               "\xF0\x9F\x98\x80",
                               "e\xCC\x81",
                               "caf\xE9 latin-1"};
  for (const std::string& name : names) {
    const VPath path = VPath::FromFileSystem(dir / name);
    std::ofstream(path.ToFilesystemPath()) << name;
  }
  std::vector<std::string> found;
  for (const fs::directory_entry& entry : fs::directory_iterator(dir.path())) {
    const VPath path = VPath::FromFilesystemPath(entry.path());
    EXPECT_EQ(path.GetEncoding(), UTF8);
    EXPECT_EQ(path.ToFilesystemPath(), entry.path());
    EXPECT_EQ(VFile(path).GetSize(), path.GetFileName().Length());
    std::ostringstream out;
    out << path;
    EXPECT_EQ(out.str(), entry.path().native());
    found.push_back(path.GetFileName().GetString());
  }
  Names expected(std::begin(names), std::end(names));
  std::sort(expected.begin(), expected.end());
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, expected);
  EXPECT_EQ(VPath("/d/caf\xE9", Latin1).ToFilesystemPath(), fs::path("/d/caf\xC3\xA9"));
  EXPECT_EQ(VPath::FromFilesystemPath("").Length(), 0u);
  const std::string nul("a\0b", 3);  // no file system takes it, but the text keeps it
  EXPECT_EQ(VPath::FromFilesystemPath(nul).ToFilesystemPath().native(), nul);
}

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
  std::string path = PathBytes(entry.GetPath());
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
    for (const char* name : {"a.txt", ".hidden", "sub/b.txt", "sub/deeper/c.txt"})
      dir.Write(name, "x");
  }
  Names Paths(bool directories, bool recursive, unsigned depth) {
    Visit visit(dir.path());
    EXPECT_EQ(Walk(VFile(dir.path().c_str()), directories, recursive, depth, visit), 0);
    return visit.paths;
  }
  TempDir dir;
};

TEST_F(VDirectoryIteratorTest, DepthCountsTheLevelsThatMayBeEnteredAndResultsStopTheWalk) {
  EXPECT_EQ(Paths(false, true, 0), (Names{".hidden", "a.txt"}));
  EXPECT_EQ(Paths(false, true, 1), (Names{".hidden", "a.txt", "sub/b.txt"}));
  EXPECT_EQ(Paths(true, true, 0xFFFFFFFF),
            (Names{".hidden", "a.txt", "sub", "sub/b.txt", "sub/deeper", "sub/deeper/c.txt"}));
  EXPECT_EQ(Paths(true, false, 5), (Names{".hidden", "a.txt", "sub"}));
  // A result stops the walk, but a nested walk's result replaces its directory's.
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

// A callable sees what the pointer sees (the user data is unused), and its result stops the walk.
TEST_F(VDirectoryIteratorTest, ACallableWalksAsThePointerDoes) {
  for (const int stopAt : {-1, 0}) {
    Visit visit(dir.path(), stopAt);
    VDirectoryIterator walker([&visit](VFile& entry) { return Record(entry, &visit); }, true);
    EXPECT_EQ(walker.Iterate(VFile(dir.path().c_str()), stopAt < 0, nullptr, 9),
              stopAt < 0 ? 0 : 1);
    std::sort(visit.paths.begin(), visit.paths.end());
    Visit classic(dir.path(), stopAt);
    Walk(VFile(dir.path().c_str()), true, stopAt < 0, 9, classic);
    EXPECT_EQ(visit.paths, classic.paths);
    EXPECT_EQ(visit.paths.size(), stopAt < 0 ? 6u : 1u);
  }
  EXPECT_EQ(VDirectoryIterator(VDirectoryIterator::Function(), true)
                .Iterate(VFile(dir.path().c_str()), true, nullptr, 9),
            0);
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
    for (const char* link : {"/x", "/y"})
      ASSERT_EQ(::symlink(next.c_str(), (here + link).c_str()), 0);
  }
  const std::string bottom = RealPath(shared.Write("l18/bottom.txt", "b"));
  Visit walk;
  EXPECT_EQ(Walk(VFile((shared / "l0").c_str()), false, true, 0xFFFFFFFF, walk), 0);
  EXPECT_EQ(walk.paths, Names{bottom});
}

// Names that are decomposed or not UTF-8 come back with the file system's bytes whatever the
// encoding of the directory's path, so every entry names a file that exists; so do paths made
// from file-system bytes.
TEST(VDirectoryIteratorEntriesTest, EntriesKeepTheFileSystemsBytesInEveryEncoding) {
  const TempDir dir;
  const Names names = {"bad\xFF\xFE.txt", "caf\xC3\xA9", "e\xCC\x81.txt", "plain.txt",
                       std::string("\xEF\xBB\xBF") + "bom"};  // in byte order
  for (const std::string& name : names) dir.Write("sub/" + name, name);
  for (StringEncoding encoding : {SystemCodePage, UTF8, UTF16, Latin1, ASCII}) {
    VPath folder;
    SetPathBytes(folder, dir / "sub", encoding);
    Visit visit(dir / "sub");
    EXPECT_EQ(Walk(VFile(folder), false, false, 0, visit), 0);
    EXPECT_EQ(visit.paths, names) << "encoding " << encoding;
    EXPECT_EQ(visit.files, names.size()) << "encoding " << encoding;
  }
  for (const std::string& name : names)
    EXPECT_EQ(VFile(VPath::FromFileSystem(dir / "sub/" + name)).GetSize(), name.size()) << name;
}

TEST(VFileTest, FilesDirectoriesAndTheirFailures) {
  const VFile empty;  // every query on an empty path answers false
  EXPECT_FALSE(empty.Exists() || empty.IsFile() || empty.IsDirectory() || empty.IsShortcut() ||
               empty.CreateDirectory() || empty.IsAvailable(false, false) || empty.GetSize() != 0);
  const TempDir dir;
  const VFile file(dir.Write("a.txt", "hello").c_str());
  EXPECT_TRUE(file.IsFile() && !file.IsDirectory() && file.GetSize() == 5);
  const VFile sub((dir / "sub").c_str());
  EXPECT_TRUE(sub.CreateDirectory() && !sub.CreateDirectory());  // the second finds it there
  VFile((dir / "x/y/z").c_str()).CreateDirectories();
  Names names{"kept"};  // List appends
  VFile(dir.path().c_str()).List(names);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (Names{"a.txt", "kept", "sub", "x"}));
  VFile((dir / "x").c_str()).Remove(true);
  EXPECT_FALSE(VFile((dir / "x").c_str()).Exists());

  try {
    VFile((dir / "missing").c_str()).Remove(false);
    FAIL() << "no exception";
  } catch (const VantuFileNotFoundException& e) {
    EXPECT_NE(e.Message().find("missing"), std::string::npos) << e.Message();
  }
  EXPECT_THROW(VFile((dir / "missing").c_str()).Remove(true), VantuFileNotFoundException);
  EXPECT_THROW(VFile((dir / "a.txt/under").c_str()).CreateDirectories(), VantuFileException);
  dir.Write("full/f", "x");
  EXPECT_THROW(VFile((dir / "full").c_str()).Remove(false), VantuFileException);
  EXPECT_TRUE(VFile((dir / "full").c_str()).Exists());
}

template <typename Expected, typename Thrown>
void ExpectTranslated(const Thrown& thrown, const std::string& message) {
  try {
    try {
      throw thrown;
    } catch (...) {
      vantu::internal::RethrowAsVantuException();
    }
  } catch (const VException& e) {
    EXPECT_EQ(typeid(e), typeid(Expected)) << message;
    EXPECT_EQ(e.Message() + "/" + std::to_string(e.Code()), message + "/0");
  }
}

TEST(VFileTest, EachFileSystemExceptionBecomesOneOfOurs) {
  ExpectTranslated<VantuFileAccessDeniedException>(Poco::FileAccessDeniedException("a"), "a");
  ExpectTranslated<VantuFileNotFoundException>(Poco::FileNotFoundException("b"), "b");
  ExpectTranslated<VantuOpenFileException>(Poco::OpenFileException("c"), "c");
  ExpectTranslated<VantuFileReadOnlyException>(Poco::FileReadOnlyException("d"), "d");
  ExpectTranslated<VantuFileExistsException>(Poco::FileExistsException("e"), "e");
  ExpectTranslated<VantuFileException>(Poco::CreateFileException("f"), "f");
  ExpectTranslated<VantuPathSyntaxException>(Poco::PathSyntaxException("g"), "g");
  ExpectTranslated<VantuRuntimeException>(std::runtime_error("h"), "h");
  ExpectTranslated<VantuRuntimeException>(42, "Unkwnown exception");
  // POCO's message() is the text without the class's display name.
  ExpectTranslated<VantuFileNotFoundException>(Poco::FileNotFoundException("x", "y"), "x: y");
}

// Permission tests: run as an unprivileged user by the test script.
TEST(VFileTest, AccessDeniedAndUnreadableFilesAsANonRootUser) {
  if (RunningAsRoot()) GTEST_SKIP() << "root is never denied access";
  const TempDir dir;
  dir.Write("locked/f", "x");
  dir.Write("open/closed/g", "x");
  ASSERT_EQ(::chmod((dir / "open/closed").c_str(), 0), 0);
  Visit visit;  // an unreadable sub-directory stops the walk without a crash
  EXPECT_EQ(Walk(VFile((dir / "open").c_str()), false, true, 10, visit), -1);
  const std::string secret = dir.Write("secret", "x");
  ASSERT_EQ(::chmod(secret.c_str(), 0200), 0);
  EXPECT_FALSE(VFile(secret.c_str()).IsAvailable(false, false));
  ASSERT_EQ(::chmod((dir / "locked").c_str(), 0500), 0);
  EXPECT_THROW(VFile((dir / "locked/f").c_str()).Remove(false), VantuFileAccessDeniedException);
  EXPECT_THROW(VFile((dir / "locked").c_str()).Remove(true), VantuFileAccessDeniedException);
  EXPECT_THROW(VFile((dir / "locked/new/deeper").c_str()).CreateDirectories(),
               VantuFileAccessDeniedException);
}

// A sub-directory that another thread keeps exchanging with a link to a directory outside the
// tree, the way anyone who may write the tree could. The outside directory holds files of the
// same names, so a removal that looks a path up again after the exchange deletes them.
TEST(VFileTest, RemovingATreeNeverFollowsALinkNotEvenOneSwappedInWhileItRuns) {
  const TempDir dir;
  const std::string outside = dir / "outside";
  const std::string swap = dir / "swap";
  for (int f = 0; f < 8; ++f) dir.Write("outside/f" + std::to_string(f), "precious");
  dir.Write("tree/file", "x");
  ASSERT_EQ(::symlink(outside.c_str(), (dir / "tree/link").c_str()), 0);
  ASSERT_EQ(::symlink(outside.c_str(), (dir / "top").c_str()), 0);
  VFile((dir / "tree").c_str()).Remove(true);
  VFile((dir / "top").c_str()).Remove(true);  // the link goes, not what it points to
  EXPECT_FALSE(fs::exists(dir / "tree") || fs::is_symlink(dir / "top"));
  for (int round = 0; round < 100; ++round) {
    for (int f = 0; f < 8; ++f) dir.Write("tree/d/f" + std::to_string(f), "x");
    fs::remove_all(swap);
    ASSERT_EQ(::symlink(outside.c_str(), swap.c_str()), 0);
    std::atomic<bool> stop{false};
    std::thread swapper([&] {
      const std::string d = dir / "tree/d";
      while (!stop) ::renameat2(AT_FDCWD, d.c_str(), AT_FDCWD, swap.c_str(), RENAME_EXCHANGE);
    });
    try {
      VFile((dir / "tree").c_str()).Remove(true);
    } catch (const VantuFileException&) {
      // The exchanges may make a removal fail; it must never reach outside.
    }
    stop = true;
    swapper.join();
    fs::remove_all(dir / "tree");
    ASSERT_EQ(std::distance(fs::directory_iterator(outside), fs::directory_iterator()), 8)
        << "files outside the tree were deleted in round " << round;
  }
}

// vantu_GetFileInfo's checksum of the file.
unsigned Crc(const std::string& path) {
  unsigned crc = 1;
  vantu_GetFileInfo(path.c_str(), &crc);
  return crc;
}

// A file that is not available (empty, special, or written elsewhere) has the checksum 0.
TEST(VFileTest, AvailabilityOfHeldEmptyAndSpecialFilesAndShortcuts) {
  const TempDir dir;
  const std::string path = dir.Write("growing", "123456789");
  const VFile file(path.c_str());
  ASSERT_TRUE(file.IsAvailable(true, false));
  {
    HeldOpen writer(path, true);
    ASSERT_TRUE(writer.opened());
    EXPECT_FALSE(file.IsAvailable(true, false) || file.IsAvailable(false, true));
    EXPECT_EQ(vantu_IsFileAvailable(path.c_str()), 0);
    EXPECT_EQ(Crc(path), 0u);
    writer.Release();
    EXPECT_TRUE(file.IsAvailable(true, false));
  }
  EXPECT_EQ(Crc(path), 0xCBF43926u);
  // A reader elsewhere does not stop a reader here, but it does stop exclusive access.
  HeldOpen reader(path, false);
  ASSERT_TRUE(reader.opened());
  EXPECT_TRUE(file.IsAvailable(true, false));
  EXPECT_FALSE(file.IsAvailable(true, true));
  const VFile empty(dir.Write("empty", "").c_str());
  EXPECT_FALSE(empty.IsAvailable(true, false) || vantu_IsFileAvailable((dir / "empty").c_str()));
  EXPECT_TRUE(empty.IsAvailable(false, false) && empty.IsAvailable(false, true));
  EXPECT_EQ(Crc(dir / "empty"), 0u);
  EXPECT_FALSE(VFile((dir / "missing").c_str()).IsAvailable(false, false));
  EXPECT_FALSE(VFile(dir.path().c_str()).IsAvailable(false, false));  // a directory
  ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
  EXPECT_FALSE(VFile((dir / "fifo").c_str()).IsAvailable(false, false));  // and must not block
  // A shortcut is a link to something that exists.
  ASSERT_EQ(::symlink(path.c_str(), (dir / "link").c_str()), 0);
  ASSERT_EQ(::symlink((dir / "gone").c_str(), (dir / "broken").c_str()), 0);
  EXPECT_TRUE(VFile((dir / "link").c_str()).IsShortcut());
  EXPECT_FALSE(VFile((dir / "broken").c_str()).IsShortcut() || file.IsShortcut());
}

// Every CRC-32 of the library against zlib's over the same bytes: VChecksum fed in uneven
// pieces at every alignment, vantu_GetCRCEx, and vantu_GetFileInfo of files around the sizes
// where its reading splits into blocks.
TEST(FlatFilesTest, ChecksumsMatchZlibAtEveryLengthAndSplit) {
  std::string bytes(3 * 1024 * 1024 + 17, '\0');
  uint64_t x = 0x9E3779B97F4A7C15u;
  for (char& c : bytes) {
    x = x * 6364136223846793005u + 1442695040888963407u;
    c = static_cast<char>(x >> 56);
  }
  auto zlib = [&](size_t offset, size_t size) {
    return static_cast<unsigned>(
        crc32(0, reinterpret_cast<const Bytef*>(bytes.data() + offset), static_cast<uInt>(size)));
  };
  for (size_t size = 0; size < 600; size += 1 + size / 8) {
    for (size_t offset = 0; offset < 16; ++offset) {
      VChecksum checksum;
      for (size_t done = 0, piece = 1; done < size; done += piece, piece = piece * 3 % 61 + 1) {
        checksum.Update(bytes.data() + offset + done, std::min(piece, size - done));
      }
      ASSERT_EQ(checksum.Checksum(), zlib(offset, size)) << size << " bytes at " << offset;
      unsigned flat = 1;
      vantu_GetCRCEx(bytes.data() + offset, static_cast<unsigned>(size), &flat);
      ASSERT_EQ(flat, zlib(offset, size)) << size << " bytes at " << offset;
    }
  }
  const TempDir dir;
  const size_t block = 256 * 1024;
  for (size_t size : {size_t{1}, block - 1, block, block + 1, 2 * block + 7, bytes.size()}) {
    const std::string path = dir.Write("sum", bytes.substr(0, size));
    EXPECT_EQ(Crc(path), zlib(0, size)) << size << " bytes";
  }
}

// Another thread keeps exchanging the file for a FIFO, whose open for reading blocks until a
// writer comes: the checksum must never wait for one. The fork waits until the swapper is in its
// loop, so the child inherits no lock a starting thread holds (the sanitizers' allocators take
// some). The child sums the file for a second of attempts, at least until it was summed once (a
// loaded machine may hold the swapper back); a blocked open leaves it to its alarm.
TEST(FlatFilesTest, FileInfoNeverBlocksOnAFifoSwappedInForTheFile) {
  const TempDir dir;
  const std::string path = dir.Write("target", "123456789");
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::atomic<bool> stop{false};
  std::atomic<int> swaps{0};
  std::thread swapper([&] {
    while (!stop) {
      ::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, fifo.c_str(), RENAME_EXCHANGE);
      swaps.fetch_add(1, std::memory_order_relaxed);
    }
  });
  while (swaps.load() < 2) std::this_thread::yield();
  const bool finished = vantu::test::InChild([&] {
    ::alarm(60);
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    int summed = 0;
    while (summed == 0 || std::chrono::steady_clock::now() < until) {
      summed += Crc(path) == 0xCBF43926u;
    }
    return true;
  });
  stop = true;
  swapper.join();
  EXPECT_TRUE(finished) << "vantu_GetFileInfo waited for a writer of a FIFO";
}

TEST(FlatFilesTest, EveryFunctionCalledFromC) {
  const TempDir dir;
  const std::string file = dir.Write("check.txt", "123456789");
  char error[512] = "";
  EXPECT_EQ(vantu_test_flat_files_from_c(file.c_str(), (dir / "m").c_str(), error, 512), 0)
      << error;
  // The temporary folder and the prefix keep their bytes: a decomposed name stays decomposed.
  const std::string decomposed = dir / "te\xCC\x81mp";
  ASSERT_EQ(::mkdir(decomposed.c_str(), 0700), 0);
  const EnvironmentAt temp("TMPDIR", decomposed);
  char path[512];
  ASSERT_EQ(vantu_UniqueTempFile(path, sizeof(path), "e\xCC\x81"), 0);
  EXPECT_EQ(std::string(path).rfind(decomposed + "/e\xCC\x81", 0), 0u) << path;
  const vantu_char16 prefix[] = {u'e', 0x0301, 0};
  vantu_char16 wide[512];
  ASSERT_EQ(vantu_UniqueTempWFile(wide, 512, prefix), 0);
  const std::u16string units(reinterpret_cast<const char16_t*>(wide));
  EXPECT_NE(units.find(u"te\u0301mp/e\u0301"), std::u16string::npos);
}

}  // namespace
