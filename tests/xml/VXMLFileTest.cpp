// Saving documents: the file is replaced whole or not at all, and VXMLFile saves when it goes.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>

#include <vantu/VXMLFile.h>

#include <filesystem>

#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using vantu::test::TempDir;

std::string Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::vector<std::string> Names(const TempDir& dir) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir.path())) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// A document of about a megabyte.
void Fill(VXML& xml) {
  VDataNode root = xml.AddNode(nullptr, "r");
  const std::string text(1000, 'x');
  for (int i = 0; i < 1000; ++i) xml.SetValue(xml.AddNode(root, "v"), text.data(), text.size());
}

// Saves `xml` to `path` in a child process whose files may not grow beyond 64 KiB; true when
// the save failed there with the library's exception, and VXMLFile's destructor survived it.
bool SaveFailsInChild(const std::string& path) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{64 * 1024, 64 * 1024};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    bool threw = false;
    {
      VXMLFile file(VPath(path.c_str(), UTF8));
      VXML& xml = *file.GetContainer();
      xml.Clear();
      Fill(xml);
      try {
        xml.Save(path);
      } catch (const VantuPathNotFoundException& e) {
        threw = e.Message() == "Exception saving XML document";
      }
    }
    ::_exit(threw ? 0 : 1);
  }
  int status = -1;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(VXMLFileTest, AFailedSaveLeavesThePreviousFileAndNoTemporaryFile) {
  TempDir dir;
  const std::string path = dir.Write("doc.xml", "<old>kept</old>\n");
  EXPECT_TRUE(SaveFailsInChild(path));
  EXPECT_EQ(Read(path), "<old>kept</old>\n");
  EXPECT_EQ(Names(dir), std::vector<std::string>{"doc.xml"});
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
  EXPECT_EQ(Names(dir), std::vector<std::string>{"doc.xml"});
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
  EXPECT_EQ(Names(dir), (std::vector<std::string>{"link.xml", "real.xml"}));
  EXPECT_THROW(xml.Save(dir.path()), VantuPathNotFoundException);
  EXPECT_FALSE(VXML().Save(real));
}

TEST(VXMLFileTest, CopiesShareOneContainerAndEachSavesWhenItGoes) {
  TempDir dir;
  const std::string path = dir / "missing/dir/doc.xml";
  {
    VXMLFile file(VPath(path.c_str(), UTF8));
    EXPECT_EQ(file.GetContainer()->GetDocument(), nullptr);
    VXMLFile copy(file);
    VXMLFile assigned;
    assigned = copy;
    EXPECT_EQ(assigned.GetContainer(), file.GetContainer());
    copy.GetContainer()->AddNode(nullptr, "r");
  }
  EXPECT_EQ(Read(path), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<r />\n");
  VXMLFile again(VPath(path.c_str(), UTF8));
  EXPECT_NE(again.GetContainer()->GetRoot(), nullptr);
}

TEST(VXMLFileTest, AFileThatDoesNotLoadIsNotOverwritten) {
  TempDir dir;
  const std::string path = dir.Write("doc.xml", "<a><b>");
  { VXMLFile file(VPath(path.c_str(), UTF8)); }
  EXPECT_EQ(Read(path), "<a><b>");
}

}  // namespace
