// Saving documents: the file is replaced whole or not at all, and VXMLFile saves when it goes.
#include <gtest/gtest.h>

#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <vantu/VXMLFile.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

#include "platform/AtomicSave.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using vantu::test::TempDir;

std::string Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

size_t Entries(const TempDir& dir) {
  return static_cast<size_t>(std::distance(fs::directory_iterator(dir.path()), {}));
}

std::set<std::string> Names(const TempDir& dir) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir.path())) {
    names.insert(entry.path().filename());
  }
  return names;
}

// A document of about a megabyte.
void Fill(VXML& xml) {
  VDataNode root = xml.AddNode(nullptr, "r");
  const std::string text(1000, 'x');
  for (int i = 0; i < 1000; ++i) xml.SetValue(xml.AddNode(root, "v"), text.data(), text.size());
}

TEST(VXMLFileTest, ASaveThatFailsHalfWayLeavesThePreviousFileAndNoTemporaryFile) {
  TempDir dir;
  const std::string path = dir.Write("doc.xml", "<old>kept</old>\n");
  // Files may not grow beyond 64 KiB in the child: the save throws, then the destructor's
  // save fails quietly.
  EXPECT_TRUE(vantu::test::InChild([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{64 * 1024, 64 * 1024};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    VXMLFile file(VPath(path.c_str(), UTF8));
    file.GetContainer()->Clear();
    Fill(*file.GetContainer());
    try {
      file.GetContainer()->Save(path);
    } catch (const VantuPathNotFoundException& e) {
      return e.Message() == "Exception saving XML document";
    }
    return false;
  }));
  EXPECT_EQ(Read(path), "<old>kept</old>\n");
  EXPECT_EQ(Entries(dir), 1u);
}

// A save killed at any moment leaves at most a temporary file that the next save beside the
// same target removes, with unnamed temporary files and with named ones. Only names of the
// exact pattern, of a process that is gone and whose file nobody holds locked, are removed.
TEST(VXMLFileTest, SavesKilledAtAnyMomentLeaveNoTemporaryFileAfterTheNextSave) {
  TempDir dir;
  const std::string path = dir / "doc.xml";
  VXML xml;
  Fill(xml);
  std::mt19937 random(11);
  for (bool named : {false, true}) {
    vantu::platform::UseNamedTemporaryFiles(named);
    for (int round = 0; round < 25; ++round) {
      int ready[2];
      ASSERT_EQ(::pipe(ready), 0);
      const pid_t child = ::fork();
      if (child == 0) {
        try {
          for (bool first = true;; first = false) {
            xml.Save(path);
            if (first) (void)!::write(ready[1], "x", 1);
          }
        } catch (...) {
        }
        ::_exit(1);
      }
      char byte = 0;
      EXPECT_EQ(::read(ready[0], &byte, 1), 1);
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
      ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, 0);
      ::close(ready[0]);
      ::close(ready[1]);
    }
  }
  const pid_t gone = ::fork();
  if (gone == 0) ::_exit(0);
  ::waitpid(gone, nullptr, 0);
  const std::string self = std::to_string(::getpid()), dead = std::to_string(gone);
  const std::string kept[] = {
      ".doc.xml." + self + "-0123456789abcdef.tmp",   ".doc.xml." + dead + "-0123456789ABCDEF.tmp",
      ".doc.xml." + dead + "-0123456789abcdef.tmp~",  ".doc.xml." + dead + "-0123456789abcde.tmp",
      ".other.xml." + dead + "-0123456789abcdef.tmp", "locked"};
  for (const std::string& name : kept) dir.Write(name, "x");
  dir.Write(".doc.xml." + dead + "-fedcba9876543210.tmp", "x");  // removed
  // Held by a living process: kept, whatever its name says.
  fs::rename(dir / "locked", dir / (".doc.xml." + dead + "-00000000000000ff.tmp"));
  const int lock = ::open((dir / (".doc.xml." + dead + "-00000000000000ff.tmp")).c_str(), O_RDONLY);
  ASSERT_EQ(::flock(lock, LOCK_EX), 0);
  vantu::platform::UseNamedTemporaryFiles(false);
  ASSERT_TRUE(xml.Save(path));
  ::close(lock);
  std::set<std::string> expected(std::begin(kept), std::end(kept) - 1);
  expected.insert({"doc.xml", ".doc.xml." + dead + "-00000000000000ff.tmp"});
  EXPECT_EQ(Names(dir), expected);
  EXPECT_EQ(Read(path), xml.ToString(3));
}

// On a file system with unnamed files, nothing is named beside the target before the commit.
TEST(VXMLFileTest, TheTemporaryFileIsUnnamedUntilTheCommit) {
  TempDir dir;
  const int probe = ::open(dir.path().c_str(), O_TMPFILE | O_WRONLY, 0600);
  if (probe < 0) GTEST_SKIP() << "no O_TMPFILE here";
  ::close(probe);
  vantu::platform::FileReplacement file(dir / "doc.xml");
  file.Write("<r/>", 4);
  EXPECT_EQ(Entries(dir), 0u);
  file.Commit();
  EXPECT_EQ(Names(dir), std::set<std::string>{"doc.xml"});
}

TEST(VXMLFileTest, NonRootSaveIntoAReadOnlyFolderOrFileKeepsThePreviousFile) {
  if (vantu::test::RunningAsRoot()) GTEST_SKIP() << "root ignores permissions";
  TempDir dir;
  const std::string path = dir.Write("doc.xml", "<old/>");
  VXML xml;
  Fill(xml);
  ::chmod(path.c_str(), 0444);
  EXPECT_THROW(xml.Save(path), VantuPathNotFoundException);
  ::chmod(path.c_str(), 0644);
  ::chmod(dir.path().c_str(), 0555);
  EXPECT_THROW(xml.Save(path), VantuPathNotFoundException);
  ::chmod(dir.path().c_str(), 0755);
  EXPECT_EQ(Read(path), "<old/>");
  EXPECT_EQ(Entries(dir), 1u);
}

TEST(VXMLFileTest, SavingKeepsPermissionsAndWritesThroughLinks) {
  TempDir dir;
  const std::string real = dir.Write("real.xml", "<old/>");
  ::chmod(real.c_str(), 0640);
  fs::create_symlink("real.xml", dir / "link.xml");
  VXML xml;
  xml.AddNode(nullptr, "new");
  EXPECT_TRUE(xml.Save(dir / "link.xml"));
  EXPECT_TRUE(fs::is_symlink(dir / "link.xml"));
  EXPECT_EQ(Read(real), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<new />\n");
  EXPECT_EQ(fs::status(real).permissions(), fs::perms(0640));
  EXPECT_EQ(Entries(dir), 2u);
  EXPECT_THROW(xml.Save(dir.path()), VantuPathNotFoundException);
  EXPECT_FALSE(VXML().Save(real));
}

TEST(VXMLFileTest, CopiesShareOneContainerAndEachSavesWhenItGoes) {
  TempDir dir;
  // Resolved once: ".." after a folder that does not exist takes that folder's name back.
  const std::string path = dir / "gone/../missing/dir/doc.xml";
  {
    VXMLFile file(VPath(path.c_str(), UTF8));
    VXMLFile copy(file);
    VXMLFile assigned;
    assigned = copy;
    EXPECT_EQ(assigned.GetContainer(), file.GetContainer());
    copy.GetContainer()->AddNode(nullptr, "r");
  }
  EXPECT_EQ(Read(dir / "missing/dir/doc.xml"),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<r />\n");
  EXPECT_FALSE(fs::exists(dir / "gone"));
}

TEST(VXMLFileTest, TheFileLoadedIsTheFileSavedAndOneThatDoesNotLoadIsKept) {
  TempDir dir;
  const std::string broken = dir.Write("broken.xml", "<a><b>");
  dir.Write("doc.xml", "<a>1</a>");
  {
    VXMLFile file(VPath((dir / "gone/../doc.xml").c_str(), UTF8));
    EXPECT_EQ(file.GetPath().GetString(), (fs::canonical(dir.path()) / "doc.xml").string());
    EXPECT_EQ(file.GetContainer()->GetInt(file.GetContainer()->GetRoot()), 1);
    file.GetContainer()->SetInt(file.GetContainer()->GetRoot(), 2);
    VXMLFile unreadable(VPath(broken.c_str(), UTF8));
  }
  EXPECT_EQ(Read(broken), "<a><b>");
  EXPECT_EQ(Read(dir / "doc.xml"), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a>2</a>\n");
}

}  // namespace
