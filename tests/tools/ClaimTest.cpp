// The hot-folder tool's claim protocol: a file moves from the watched folder into the claim
// folder without replacing another and never through a link, a file already gone was taken by
// another instance, the claim folder's lock holds off a second instance, and a claim folder in
// the wrong place is refused before it is made.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Claim.h"
#include "Folder.h"
#include "Session.h"
#include "support/TempDir.h"

namespace hotfolder {
namespace {

using vantu::test::TempDir;
namespace fs = std::filesystem;

std::string Read(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// A watched folder "in" in a fresh temporary folder, opened as the tool opens it.
class ClaimTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(temp_ / "in");
    in_ = vantu::test::RealPath(temp_ / "in");
    options_.directory = in_;
    ASSERT_TRUE(OpenWatched(in_));
    g_claim.lockWait = std::chrono::milliseconds(300);
  }
  void TearDown() override { Release(); }

  // Opens --claim `dir`, keeping what it said on standard error in said_.
  bool Open(const std::string& dir) {
    options_.claim = dir;
    testing::internal::CaptureStderr();
    const bool opened = OpenClaim(options_);
    said_ = testing::internal::GetCapturedStderr();
    return opened;
  }
  // Closes the claim folder, as the tool's exit does.
  void Release() {
    for (int* fd : {&g_claim.fd, &g_claim.done, &g_claim.failed, &g_claim.lock}) {
      if (*fd >= 0) ::close(*fd);
      *fd = -1;
    }
  }

  TempDir temp_;
  std::string in_;
  Options options_;
  VHotfolder folder_;
  std::string said_;
};

// Same names from two sub-folders: the second gets ~1 before its extension, shortened at a
// character's start to stay within 255 bytes.
TEST_F(ClaimTest, ClaimsSameNamesWithoutReplacing) {
  std::string e;  // "é", two bytes
  for (int i = 0; i < 124; ++i) e += "\xC3\xA9";
  const struct {
    std::string name, second;
  } kCases[] = {{"x.txt", "x~1.txt"},
                {"noext", "noext~1"},
                {"a.tar.gz", "a.tar~1.gz"},
                {std::string(251, 'y') + ".txt", std::string(249, 'y') + "~1.txt"},
                {e + "\xC3\xA9y.txt", e + "~1.txt"}};
  ASSERT_TRUE(Open(in_ + "/.c")) << said_;
  const std::string claim = g_claim.path + "/";
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.second);
    for (const char* sub : {"a", "b"}) temp_.Write(std::string("in/") + sub + "/" + c.name, sub);
    Result first, second;
    ASSERT_TRUE(Claim(options_, folder_, in_ + "/a/" + c.name, first));
    ASSERT_TRUE(Claim(options_, folder_, in_ + "/b/" + c.name, second));
    EXPECT_EQ(first.claimed, claim + c.name);
    EXPECT_EQ(second.claimed, claim + c.second) << second.claimError;
    EXPECT_EQ(Read(first.claimed) + Read(second.claimed), "ab");
    EXPECT_FALSE(fs::exists(in_ + "/a/" + c.name));
  }
}

// A file gone before its claim, or with its folder, was taken by another instance: no claim and
// no error.
TEST_F(ClaimTest, FileAlreadyGoneIsTakenByAnother) {
  ASSERT_TRUE(Open(in_ + "/.c")) << said_;
  for (const char* gone : {"/gone", "/sub/gone"}) {
    Result result;
    EXPECT_FALSE(Claim(options_, folder_, in_ + gone, result)) << gone;
    EXPECT_EQ(result.claimed + result.claimError, "") << gone;
  }
}

// A link swapped in for a sub-folder leads nowhere: the file beyond it stays. A link to a file is
// claimed as itself.
TEST_F(ClaimTest, NeverLeavesTheWatchedFolderThroughALink) {
  const std::string secret = temp_.Write("out/sub/f", "s");
  fs::create_directory_symlink("../out/sub", in_ + "/sub");
  fs::create_symlink(secret, in_ + "/flink");
  ASSERT_TRUE(Open(in_ + "/.c")) << said_;
  Result through, link;
  ASSERT_TRUE(Claim(options_, folder_, in_ + "/sub/f", through));
  EXPECT_EQ(through.claimError, "a symbolic link on its way is not followed");
  EXPECT_EQ(through.claimed, "");
  ASSERT_TRUE(Claim(options_, folder_, in_ + "/flink", link));
  EXPECT_TRUE(fs::is_symlink(link.claimed)) << link.claimError;
  EXPECT_EQ(Read(secret), "s");
  EXPECT_FALSE(fs::exists(g_claim.path + "/f"));
}

// While one instance holds DIR, a second one waits for it, then gives up; once the first is
// gone the lock is taken at once.
TEST_F(ClaimTest, SecondInstanceWaitsThenFails) {
  ASSERT_TRUE(Open(in_ + "/.c")) << said_;
  const bool refused = vantu::test::InChild([&] {
    const auto start = std::chrono::steady_clock::now();
    return !Open(in_ + "/.c") && std::chrono::steady_clock::now() - start >= g_claim.lockWait &&
           said_.find("waiting up to 10 s") != std::string::npos &&
           said_.find("is in use by another instance") != std::string::npos;
  });
  EXPECT_TRUE(refused);
  Release();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(Open(in_ + "/.c")) << said_;
  EXPECT_LT(std::chrono::steady_clock::now() - start, g_claim.lockWait);
}

// Inside the watched folder only below a dot-name, on its file system only, and an existing
// folder only when the tool made it: refused with a message, and nothing made or touched.
TEST_F(ClaimTest, RefusesAFolderInTheWrongPlace) {
  temp_.Write("srv/config.ini", "x");
  const std::string shm = "/dev/shm/" + fs::path(temp_.path()).filename().string();
  struct stat shmInfo, tempInfo;
  const bool otherDevice = ::stat("/dev/shm", &shmInfo) == 0 &&
                           ::stat(temp_.path().c_str(), &tempInfo) == 0 &&
                           shmInfo.st_dev != tempInfo.st_dev;
  const struct {
    std::string dir, says;
  } kCases[] = {{in_ + "/sub", "lies inside the watched folder"},
                {in_, "lies inside the watched folder"},
                {temp_ / "srv", "was not made by vantu-hotfolder"},
                {shm + "/c", "is on another file system"}};
  for (const auto& c : kCases) {
    if (c.dir.rfind("/dev/shm/", 0) == 0 && !otherDevice) continue;
    const bool existed = fs::exists(c.dir);
    EXPECT_FALSE(Open(c.dir)) << c.dir;
    EXPECT_NE(said_.find(c.says), std::string::npos) << said_;
    EXPECT_EQ(fs::exists(c.dir), existed) << c.dir;
    EXPECT_FALSE(fs::exists(c.dir + "/.lock")) << c.dir;
  }
  EXPECT_FALSE(fs::exists(shm));
  EXPECT_EQ(Read(temp_ / "srv/config.ini"), "x");
}

// Files that an earlier run left in the claim folder are queued first, in name order; dot-files
// and folders are not.
TEST_F(ClaimTest, QueuesWhatAnEarlierRunLeft) {
  for (const char* name : {"b", "a", ".hidden", ".vantu-hotfolder-claim", "done/old"}) {
    temp_.Write(std::string("in/.c/") + name, "x");
  }
  ASSERT_TRUE(Open(in_ + "/.c")) << said_;
  g_session.Finish();
  std::vector<std::string> queued;
  for (Item item; g_session.Take(item);) queued.push_back(item.claimed);
  EXPECT_EQ(queued, (std::vector<std::string>{in_ + "/.c/a", in_ + "/.c/b"}));
}

}  // namespace
}  // namespace hotfolder
