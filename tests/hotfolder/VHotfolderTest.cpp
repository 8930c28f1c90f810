#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <vantu/VHotfolder.h>
#include <vantu/VLog.h>
#include <vantu/vantu.h>

#include "platform/FilesBelow.h"
#include "support/LogFiles.h"
#include "support/TempDir.h"

namespace {

using namespace std::chrono_literals;
using vantu::test::HeldOpen;
using vantu::test::ReadLines;
using vantu::test::RunningAsRoot;
using vantu::test::TempDir;

// Records deliveries; tests wait on it instead of sleeping.
class Deliveries {
 public:
  static int Callback(const char* path, int length, void* self) {
    auto* deliveries = static_cast<Deliveries*>(self);
    const std::string text(path, static_cast<size_t>(length));
    std::error_code ignored;
    const auto size = std::filesystem::file_size(text, ignored);
    std::lock_guard<std::mutex> lock(deliveries->mutex_);
    deliveries->paths_.push_back(text);
    deliveries->sizes_[text] = size;
    deliveries->changed_.notify_all();
    return 0;
  }
  bool WaitFor(size_t count, std::chrono::milliseconds timeout = 30s) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return paths_.size() >= count; });
  }
  std::vector<std::string> Paths() {
    std::lock_guard<std::mutex> lock(mutex_);
    return paths_;
  }
  uintmax_t SizeOf(const std::string& path) {
    std::lock_guard<std::mutex> lock(mutex_);
    return sizes_[path];
  }
  size_t Count(const std::string& path) {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<size_t>(std::count(paths_.begin(), paths_.end(), path));
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> paths_;
  std::map<std::string, uintmax_t> sizes_;
};

// Below `root`, folders with 200-byte names until their paths are longer than the system
// accepts, and in the last folder that can be reached a file whose path cannot be. Returns the
// file's path and the first unreachable folder's.
std::pair<std::string, std::string> MakeTooDeep(const std::string& root) {
  const std::string name(200, 'd');
  std::string path = root;
  std::string file;
  std::string deep;
  int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY);
  for (; deep.empty(); path += "/" + name) {
    if (file.empty() && path.size() + 1 + name.size() >= PATH_MAX) {
      file = path + "/" + name + "f";
      ::close(::openat(fd, (name + "f").c_str(), O_WRONLY | O_CREAT, 0600));
    } else if (path.size() >= PATH_MAX) {
      deep = path;
    }
    ::mkdirat(fd, name.c_str(), 0700);
    const int next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(fd);
    fd = next;
  }
  ::close(fd);
  return {file, deep};
}

class VHotfolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder.SetPath(VPath(dir.path().c_str()));
    folder.SetCallback(&Deliveries::Callback);
    folder.SetUserData(&delivered);
  }
  TempDir dir;
  Deliveries delivered;
  VHotfolder folder;
};

TEST_F(VHotfolderTest, ACompleteFileIsDeliveredOnceAndEmptyFilesNever) {
  const std::string a = dir.Write("a.txt", "alpha");
  dir.Write("empty.txt", "");
  dir.Write(".hidden/inside.txt", "x");
  EXPECT_EQ(folder.CheckFolderChanges(), 0);  // the empty file counts as found, not delivered
  EXPECT_EQ(delivered.Paths(), std::vector<std::string>{a});
  EXPECT_EQ(folder.GetFileList()->size(), 1u);
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Count(a), 1u);

  std::filesystem::remove(dir / "empty.txt");
  EXPECT_EQ(folder.CheckFolderChanges(), 1);  // every found entry is in the list
}

TEST_F(VHotfolderTest, AFileAnotherProcessWritesWaitsUntilItIsClosed) {
  const std::string held = dir.Write("held.bin", "partial");
  HeldOpen writer(held, true);
  ASSERT_TRUE(writer.opened());
  folder.CheckFolderChanges();
  EXPECT_TRUE(delivered.Paths().empty());
  writer.Release();
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Paths(), std::vector<std::string>{held});
}

TEST_F(VHotfolderTest, AGrowingFileIsDeliveredOnceWithItsFinalSize) {
  const std::string growing = dir / "growing.log";
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int i = 0; i < 20; ++i) {  // 2 s, reopening the file for each append
      std::ofstream(growing, std::ios::app) << std::string(1000, 'g');
      std::this_thread::sleep_for(100ms);
    }
    done = true;
  });
  while (!done) folder.CheckFolderChanges();
  writer.join();
  folder.CheckFolderChanges();
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Count(growing), 1u);
  EXPECT_EQ(delivered.SizeOf(growing), 20000u);
}

TEST_F(VHotfolderTest, AThousandFilesWhileRunningEachOnceThenGoneAndBack) {
  folder.SetTimeMilliseconds(200);
  folder.Start();
  std::vector<std::string> files;
  for (int i = 0; i < 1000; ++i) files.push_back(dir.Write("f" + std::to_string(i), "data"));
  ASSERT_TRUE(delivered.WaitFor(1000));
  std::this_thread::sleep_for(600ms);  // a further scan must not deliver anything again
  for (const auto& file : files) ASSERT_EQ(delivered.Count(file), 1u) << file;
  EXPECT_EQ(delivered.Paths().size(), 1000u);

  std::filesystem::remove(files[1]);
  folder.Stop();
  EXPECT_TRUE(folder.GetFileList()->empty());
  // After Stop the list is empty: the next Start delivers everything still there again.
  folder.Start();
  ASSERT_TRUE(delivered.WaitFor(1999));
  folder.Stop();
  EXPECT_EQ(delivered.Count(files[2]), 2u);
  EXPECT_EQ(delivered.Count(files[1]), 1u);
  EXPECT_EQ(delivered.Paths().size(), 1999u);
}

// The list is the hot folder's only memory: what leaves it is delivered again if it is there.
TEST_F(VHotfolderTest, EntriesThatDisappearOrAreRemovedAndKeptComeBackAsNew) {
  const std::string a = dir.Write("a", "1");
  const std::string b = dir.Write("b", "2");
  folder.CheckFolderChanges();
  std::filesystem::remove(a);
  EXPECT_EQ(folder.CheckFolderChanges(), 1);  // what was found is all in the list
  EXPECT_EQ(folder.GetFileList()->size(), 1u);
  dir.Write("a", "again");
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Count(a), 2u);

  folder.Remove(VFile((dir / "A").c_str()), false);  // case matters: not in the list
  folder.Remove(VFile(a.c_str()), true);             // kept on the disk
  EXPECT_TRUE(std::filesystem::exists(a));
  folder.Remove(VFile(b.c_str()), false);
  EXPECT_FALSE(std::filesystem::exists(b));
  EXPECT_TRUE(folder.GetFileList()->empty());
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Count(a), 3u);
  EXPECT_EQ(delivered.Count(b), 1u);
}

TEST_F(VHotfolderTest, GroupFoldersDeliverASubdirectoryOnceAllItsFilesAreComplete) {
  folder.SetGroupFolders(true);
  std::filesystem::create_directories(dir / "empty");
  dir.Write("job/one", "1");
  const std::string second = dir.Write("job/two", "2");
  dir.Write(".private/x", "x");
  {
    HeldOpen writer(second, true);
    folder.CheckFolderChanges();
    EXPECT_TRUE(delivered.Paths().empty());
  }
  dir.Write("gone/one", "1");
  folder.CheckFolderChanges();
  ASSERT_EQ(delivered.Count(dir / "job/") + delivered.Count(dir / "gone/"), 2u);
  ASSERT_EQ(folder.GetFileList()->size(), 2u);
  size_t names = 0;
  for (const VHFItem& item : *folder.GetFileList()) names += item.contents.size();
  EXPECT_EQ(names, 3u);
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Paths().size(), 2u);
  // A sub-directory is removed by the path it was delivered under, in directory form, whatever
  // the disk holds now; with its content unless kept.
  std::filesystem::remove_all(dir / "gone");
  folder.Remove(VFile((dir / "gone").c_str()), true);
  EXPECT_EQ(folder.GetFileList()->size(), 2u);
  folder.Remove(VFile((dir / "gone/").c_str()), true);
  EXPECT_EQ(folder.GetFileList()->size(), 1u);
  folder.Remove(VFile((dir / "job/").c_str()), false);
  EXPECT_FALSE(std::filesystem::exists(dir / "job"));
}

TEST_F(VHotfolderTest, TheFolderGoingAwayAndHostileTreesDoNotStopIt) {
  folder.SetRecursive(true);
  dir.Write("sub/deep/f", "1");
  ASSERT_EQ(::symlink(dir.path().c_str(), (dir / "sub/deep/loop").c_str()), 0);
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Count(dir / "sub/deep/f"), 1u);

  const std::string moved = dir.path() + "-moved";
  std::filesystem::rename(dir.path(), moved);
  EXPECT_EQ(folder.CheckFolderChanges(), 0);
  EXPECT_TRUE(folder.GetFileList()->empty());
  std::filesystem::create_directories(dir.path());
  dir.Write("new", "n");
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Count(dir / "new"), 1u);
  std::filesystem::remove_all(moved);
}

// A link that leads out of the folder is followed only when asked: its target then comes under
// the link's own path, and Remove deletes the link, never what lies outside.
TEST_F(VHotfolderTest, LinksLeadingOutsideAreSkippedUnlessFollowed) {
  const TempDir outside;
  const std::string target = outside.Write("o", "out");
  outside.Write("d/f", "out");
  const std::string inner = dir.Write("sub/t", "in");
  for (const auto& [to, name] : {std::pair{target, "lf"}, {outside / "d", "ld"}, {inner, "lt"}}) {
    ASSERT_EQ(::symlink(to.c_str(), (dir / name).c_str()), 0);
  }
  folder.CheckFolderChanges();  // not recursive: the link inside brings sub/t
  EXPECT_EQ(delivered.Paths(), std::vector<std::string>{inner});
  folder.SetRecursive(true);
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Paths(), std::vector<std::string>{inner});
  folder.SetFollowLinks(true);
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Count(dir / "lf"), 1u);
  EXPECT_EQ(delivered.Count(dir / "ld/f"), 1u);
  EXPECT_EQ(delivered.Paths().size(), 3u);
  folder.Remove(VFile((dir / "lf").c_str()), false);
  folder.Remove(VFile((dir / "ld/f").c_str()), false);
  EXPECT_FALSE(std::filesystem::is_symlink(dir / "lf"));
  EXPECT_TRUE(std::filesystem::exists(target));
  EXPECT_TRUE(std::filesystem::exists(outside / "d/f"));
}

// Remove deletes relative to the watched folder without following links: a link swapped in for
// a delivered file goes itself, one swapped in for its folder stops the deletion.
TEST_F(VHotfolderTest, RemoveNeverFollowsALinkSwappedInForAFileOrItsFolder) {
  const TempDir outside;
  const std::string target = outside.Write("sub/f", "keep");
  folder.SetRecursive(true);
  const std::string f = dir.Write("sub/f", "1");
  const std::string g = dir.Write("g", "2");
  folder.CheckFolderChanges();
  ASSERT_EQ(delivered.Paths().size(), 2u);
  std::filesystem::remove(g);
  std::filesystem::remove_all(dir / "sub");
  ASSERT_EQ(::symlink(target.c_str(), g.c_str()), 0);
  ASSERT_EQ(::symlink((outside / "sub").c_str(), (dir / "sub").c_str()), 0);
  folder.Remove(VFile(f.c_str()), false);
  folder.Remove(VFile(g.c_str()), false);
  EXPECT_FALSE(std::filesystem::is_symlink(g));
  EXPECT_TRUE(std::filesystem::exists(target));
}

// By default a folder below a "." directory delivers nothing (in group-folders mode only its own
// files); with the rule applied below the folder only, it is watched like any other.
TEST(VHotfolderDotRuleTest, AFolderBelowADotDirectory) {
  const TempDir base;
  const std::string inbox = base / ".data/inbox";
  for (const char* name : {"a", "job/b", ".x/c"})
    base.Write(".data/inbox/" + std::string(name), "1");
  const struct {
    bool group;
    bool belowOnly;
    std::vector<std::string> expected;
  } cases[] = {{false, false, {}},
               {true, false, {inbox + "/a"}},
               {false, true, {inbox + "/a", inbox + "/job/b"}},
               {true, true, {inbox + "/a", inbox + "/job/"}}};
  for (const auto& c : cases) {
    Deliveries delivered;
    VHotfolder folder;
    folder.SetPath(VPath(inbox.c_str()));
    folder.SetCallback(&Deliveries::Callback);
    folder.SetUserData(&delivered);
    folder.SetRecursive(!c.group);
    folder.SetGroupFolders(c.group);
    folder.SetDotRuleBelowFolderOnly(c.belowOnly);
    folder.CheckFolderChanges();
    std::vector<std::string> paths = delivered.Paths();
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, c.expected) << "group " << c.group << ", below only " << c.belowOnly;
  }
}

// Callbacks come once the scan has let go of the list: an entry that a callback removes before
// its own callback came is not called back (and, not kept, is deleted).
TEST_F(VHotfolderTest, AnEntryRemovedBeforeItsCallbackIsNotCalledBack) {
  struct Context {
    VHotfolder* folder;
    std::string a, b;
    std::vector<std::string> seen;
  } context{&folder, dir.Write("a", "1"), dir.Write("b", "2"), {}};
  folder.SetUserData(&context);
  folder.SetCallback([](const char* path, int, void* data) {
    auto* c = static_cast<Context*>(data);
    c->seen.emplace_back(path);
    vantu_DeleteFileFromHotFolder(c->folder, (c->seen.front() == c->a ? c->b : c->a).c_str(), 0);
    return 0;
  });
  folder.CheckFolderChanges();
  ASSERT_EQ(context.seen.size(), 1u);
  EXPECT_FALSE(std::filesystem::exists(context.seen.front() == context.a ? context.b : context.a));
  EXPECT_EQ(folder.GetFileList()->size(), 1u);
}

// The callable form gets the path's exact bytes; it and the pointer replace each other, a copy
// of the hot folder calls a copy of it, and a replaced one is destroyed.
TEST_F(VHotfolderTest, ACallableGetsThePathsBytesAndReplacesThePointer) {
  const std::string file = dir.Write("e\xCC\x81t\xE9", "x");  // not NFC, not even UTF-8
  std::vector<std::string> seen;
  const auto token = std::make_shared<int>(0);
  folder.SetCallback([&seen, token](std::string_view path) {
    seen.emplace_back(path);
    EXPECT_EQ(path.data()[path.size()], '\0');
    return 0;
  });
  EXPECT_EQ(folder.GetHolfoderCbFn(), nullptr);
  VHotfolder copy(folder);
  EXPECT_EQ(token.use_count(), 3);
  folder.CheckFolderChanges();
  copy.CheckFolderChanges();
  EXPECT_EQ(seen, (std::vector<std::string>{file, file}));
  EXPECT_TRUE(delivered.Paths().empty());
  folder.SetCallback(&Deliveries::Callback);
  copy.SetCallback(VHotfolder::Handler());
  EXPECT_EQ(token.use_count(), 1);
  vantu_DeleteFileFromHotFolder(&folder, file.c_str(), 1);  // kept: delivered again
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Paths(), std::vector<std::string>{file});
  EXPECT_EQ(seen.size(), 2u);
}

// Paths longer than the system accepts are said at warning level, with the folder.
TEST_F(VHotfolderTest, EveryStepIsTracedInTheCurrentLog) {
  const TempDir logDir;
  folder.SetRecursive(true);
  const auto [file, deep] = MakeTooDeep(dir.path());
  VLog log;
  log.SetFolder(VPath(logDir.path().c_str()));
  log.SetName(VString("trace"));
  VLog* previous = VLog::SetCurrent(&log);
  const std::string a = dir.Write("a", "1");
  dir.Write("empty", "");
  ASSERT_EQ(::symlink(logDir.path().c_str(), (dir / "out").c_str()), 0);
  folder.CheckFolderChanges();
  folder.CheckFolderChanges();
  folder.Remove(VFile(a.c_str()), false);
  VLog::SetCurrent(previous);
  log.Flush();
  std::string failed;
  vantu::platform::RemoveTree(dir / std::string(200, 'd'), failed);  // beyond std::filesystem
  std::string all;
  for (const auto& line : ReadLines(logDir / "trace.log")) all += line + "\n";
  const auto has = [&](const std::string& text) { return all.find(text) != std::string::npos; };
  EXPECT_TRUE(has("INFO [File: VHotfolder Line: 146]\t\"Checking file " + a + "\""));
  EXPECT_TRUE(has("INFO [File: VHotfolder Line: 208]\t\"Adding " + a + " to the list\""));
  EXPECT_TRUE(has("INFO [File: VHotfolder Line: 214]\t\"Calling callback for file " + a + "\""));
  EXPECT_TRUE(
      has("INFO [File: VHotfolder Line: 233]\t\"File " + (dir / "empty") + " is not available\""));
  EXPECT_TRUE(has("INFO [File: VHotfolder Line: 160]\t\"File " + a + " found in the list\""));
  EXPECT_TRUE(has("INFO [File: VHotfolder Line: 236]\t\"Skipping " + (dir / "out") +
                  ": the link leads outside the folder, to " + logDir.path() + "\""));
  EXPECT_TRUE(has("INFO [File: VHotfolder Line: 447]\t\"Removing " + a + "\""));
  EXPECT_TRUE(has("INFO [File: VHotfolder Line: 464]\t\"Removing " + a + ", found in the list\""));
  EXPECT_TRUE(has("INFO [File: VHotfolder Line: 474]\t\"Deleting " + a + "\""));
  for (const std::string& unreachable : {file, deep}) {
    EXPECT_TRUE(has("WARNING [File: VHotfolder Line: 238]\t\"Skipping a path of " +
                    std::to_string(unreachable.size()) + " bytes in " + dir.path() +
                    ", longer than the system accepts: ..." +
                    unreachable.substr(unreachable.size() - 200) + "\""));
  }
}

// A sub-folder that cannot be read neither stops the scan nor makes it forget what it
// delivered there: once readable again, nothing is delivered twice.
TEST_F(VHotfolderTest, AnUnreadableSubdirectoryIsNeitherAnEndNorAnAmnesia) {
  if (RunningAsRoot()) GTEST_SKIP() << "root reads every directory";
  folder.SetRecursive(true);
  dir.Write("locked/f", "1");
  dir.Write("later/g", "2");
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Paths().size(), 2u);
  ASSERT_EQ(::chmod((dir / "locked").c_str(), 0), 0);
  dir.Write("later/h", "3");
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Count(dir / "later/h"), 1u);
  EXPECT_EQ(folder.GetFileList()->size(), 3u);
  ::chmod((dir / "locked").c_str(), 0700);
  folder.CheckFolderChanges();
  EXPECT_EQ(delivered.Count(dir / "locked/f"), 1u);
}

// With wake on change a file is delivered soon after its writer closes it, long before the
// next periodic scan, also in a sub-folder made after the start, when moved in, and in a folder
// that replaced the watched one.
TEST_F(VHotfolderTest, WakeOnChangeDeliversSoonAfterTheWriterClosesTheFile) {
  const TempDir outside;
  folder.SetRecursive(true);
  folder.SetTimeMilliseconds(600000);
  folder.SetWakeOnChange(true);
  dir.Write("first", "1");
  folder.Start();
  ASSERT_TRUE(delivered.WaitFor(1));  // the first periodic scan, one second after the start
  const auto start = std::chrono::steady_clock::now();
  dir.Write("closed", "2");
  ASSERT_TRUE(delivered.WaitFor(2, 10s));
  std::filesystem::create_directories(dir / "new/deeper");
  dir.Write("new/deeper/inside", "3");
  ASSERT_TRUE(delivered.WaitFor(3, 10s));
  std::filesystem::rename(outside.Write("moved", "4"), dir / "moved");
  ASSERT_TRUE(delivered.WaitFor(4, 10s));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
  EXPECT_EQ(delivered.Count(dir / "new/deeper/inside"), 1u);
  EXPECT_EQ(delivered.Count(dir / "moved"), 1u);
  // A folder replaced is watched again, and what it holds already is delivered at once (moving
  // the old one away announces no change that would bring a scan).
  std::filesystem::rename(dir.path(), outside / "old");
  outside.Write("again/in", "5");
  std::filesystem::rename(outside / "again", dir.path());
  ASSERT_TRUE(delivered.WaitFor(5, 10s));
  EXPECT_EQ(delivered.Count(dir / "in"), 1u);
  folder.SetWakeOnChange(false);
  dir.Write("unnoticed", "6");
  EXPECT_FALSE(delivered.WaitFor(6, 2s));
  folder.Stop();
}

// A steady stream keeps a wake-up scan going; Remove from another thread takes its entry out
// while the scan waits for second readings, instead of waiting for the whole scan.
TEST_F(VHotfolderTest, RemoveFromAnotherThreadNeedNotWaitForAScanInProgress) {
  folder.SetTimeMilliseconds(600000);
  folder.SetWakeOnChange(true);
  const std::string kept = dir.Write("kept", "1");
  folder.Start();
  ASSERT_TRUE(delivered.WaitFor(1));
  std::atomic<bool> writing{true};
  std::thread writer([&] {
    for (int i = 0; i < 60; ++i, std::this_thread::sleep_for(100ms)) {
      dir.Write("s" + std::to_string(i), "x");
    }
    writing = false;
  });
  ASSERT_TRUE(delivered.WaitFor(3));  // the stream's scan is under way
  folder.Remove(VFile(kept.c_str()), false);
  EXPECT_TRUE(writing) << "Remove waited for the scan to end";
  writer.join();
  EXPECT_FALSE(std::filesystem::exists(kept));
  ASSERT_TRUE(delivered.WaitFor(61));
  for (int i = 0; i < 60; ++i) EXPECT_EQ(delivered.Count(dir / ("s" + std::to_string(i))), 1u);
  folder.Stop();
}

// Four running hot folders (two also woken by changes) whose callbacks scan and remove across
// each other for 10 s while files keep coming: nothing deadlocks, callbacks never overlap, and
// every file is delivered exactly once (an entry another callback takes out of the list before
// its own callback is delivered again by a later scan).
TEST(VHotfolderConcurrencyTest, CallbacksScanAndRemoveAcrossFourRunningFolders) {
  constexpr int kFolders = 4;
  struct Folder;
  struct Stress {
    std::vector<std::unique_ptr<Folder>> folders;
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    std::atomic<long> crossScans{0};
    std::atomic<long> crossRemoves{0};
    std::atomic<int64_t> lastCrossScan{0};
    std::mutex mutex;
    std::map<std::string, int> delivered;
  } stress;
  struct Folder {
    Stress* stress;
    int index;
    TempDir dir;
    std::atomic<int> written{0};
    VHotfolder folder;
  };
  static thread_local int depth = 0;  // callbacks nest when a callback's scan delivers
  const auto callback = [](const char* path, int length, void* data) {
    auto* self = static_cast<Folder*>(data);
    Stress& s = *self->stress;
    if (depth++ == 0 && ++s.inside > 1) ++s.overlaps;
    {
      std::lock_guard<std::mutex> lock(s.mutex);
      ++s.delivered[std::string(path, static_cast<size_t>(length))];
    }
    if (depth == 1) {
      Folder& other = *s.folders[(self->index + 1 + s.crossRemoves % (kFolders - 1)) % kFolders];
      const int newest = other.written - 1;
      other.folder.Remove(VFile((other.dir / ("f" + std::to_string(newest))).c_str()), true);
      ++s.crossRemoves;
      // A scan of another folder at most every 250 ms: it waits 500 ms for second readings.
      const int64_t now = std::chrono::steady_clock::now().time_since_epoch() / 1ms;
      int64_t last = s.lastCrossScan;
      if (now - last >= 250 && s.lastCrossScan.compare_exchange_strong(last, now)) {
        other.folder.CheckFolderChanges();
        ++s.crossScans;
      }
    }
    self->folder.Remove(VFile(VPath::FromFileSystem(path, static_cast<size_t>(length))), false);
    if (--depth == 0) --s.inside;
    return 0;
  };
  for (int i = 0; i < kFolders; ++i) {
    stress.folders.push_back(std::make_unique<Folder>());
    Folder& f = *stress.folders.back();
    f.stress = &stress;
    f.index = i;
    f.folder.SetPath(VPath(f.dir.path().c_str()));
    f.folder.SetTimeMilliseconds(100);
    f.folder.SetWakeOnChange(i % 2 == 1);
    f.folder.SetCallback(callback);
    f.folder.SetUserData(&f);
  }
  std::mutex doneMutex;
  std::condition_variable doneChanged;
  bool done = false;
  std::thread watchdog([&] {
    std::unique_lock<std::mutex> lock(doneMutex);
    if (!doneChanged.wait_for(lock, 180s, [&] { return done; })) {
      std::fprintf(stderr, "hot folder callbacks deadlocked\n");
      std::_Exit(1);  // the scan threads cannot be stopped
    }
  });
  const auto start = std::chrono::steady_clock::now();
  for (auto& f : stress.folders) f->folder.Start();
  int written = 0;
  for (; std::chrono::steady_clock::now() - start < 10s; ++written) {
    Folder& f = *stress.folders[written % kFolders];
    f.dir.Write("f" + std::to_string(f.written), "x");
    ++f.written;
    std::this_thread::sleep_for(25ms);
  }
  const auto deliveredCount = [&] {
    std::lock_guard<std::mutex> lock(stress.mutex);
    return stress.delivered.size();
  };
  const auto drainUntil = std::chrono::steady_clock::now() + 60s;
  while (deliveredCount() < static_cast<size_t>(written) &&
         std::chrono::steady_clock::now() < drainUntil) {
    std::this_thread::sleep_for(50ms);
  }
  for (auto& f : stress.folders) f->folder.Stop();
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  {
    std::lock_guard<std::mutex> lock(doneMutex);
    done = true;
  }
  doneChanged.notify_all();
  watchdog.join();
  std::printf("%d files, %zu delivered, %ld cross scans, %ld cross removes, %.1f s\n", written,
              deliveredCount(), stress.crossScans.load(), stress.crossRemoves.load(), seconds);
  EXPECT_EQ(stress.overlaps, 0);
  EXPECT_GT(stress.crossScans, 0);
  EXPECT_EQ(deliveredCount(), static_cast<size_t>(written));
  for (const auto& [path, count] : stress.delivered) EXPECT_EQ(count, 1) << path;
  for (auto& f : stress.folders) EXPECT_TRUE(std::filesystem::is_empty(f->dir.path()));
}

TEST(VHotfolderConcurrencyTest, ControlFromAnotherThreadWhileScansRun) {
  const TempDir dir;
  for (int f = 0; f < 20; ++f) dir.Write("f" + std::to_string(f), "x");
  std::atomic<int> calls{0};
  void* handle = vantu_CreateHotFolderEx(
      dir.path().c_str(), 50, VANTU_HOTFOLDER_ACTIVATE,
      [](const char* path, int, void* data) {
        ++*static_cast<std::atomic<int>*>(data);
        std::this_thread::sleep_for(1ms);
        (void)path;
        return 0;
      },
      &calls);
  ASSERT_NE(handle, nullptr);
  std::thread churn([&] {
    for (int i = 0; i < 20; ++i) dir.Write("churn" + std::to_string(i), std::string(i + 1, 'c'));
  });
  const auto until = std::chrono::steady_clock::now() + 5s;
  for (int round = 0; std::chrono::steady_clock::now() < until; ++round) {
    vantu_ConfigHotFolder(handle, 50 + round % 3, round % 2 ? VANTU_HOTFOLDER_RECURSIVE : 0);
    vantu_ActivateHotFolder(handle, round % 40 != 39);  // a restart now and then
    vantu_DeleteFileFromHotFolder(handle, (dir / ("f" + std::to_string(round % 20))).c_str(), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(round % 5 * 30));
  }
  churn.join();
  vantu_DisposeHotFolder(handle);
  EXPECT_GT(calls, 0);
}

// The callback replaced again and again, by a callable and by the pointer, from another thread
// while scans run: every file is delivered exactly once, and no replaced callable is kept.
TEST(VHotfolderConcurrencyTest, ReplacingTheCallbackWhileScansRunLosesAndRepeatsNothing) {
  const TempDir dir;
  struct Record {
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::string, int> delivered;
    void Add(std::string path) {
      std::lock_guard<std::mutex> lock(mutex);
      ++delivered[std::move(path)];
      changed.notify_all();
    }
  } record;
  const auto token = std::make_shared<int>(0);
  const auto handler = [&record, token](std::string_view path) {
    record.Add(std::string(path));
    return 0;
  };
  const auto pointer = [](const char* path, int length, void* data) {
    static_cast<Record*>(data)->Add(std::string(path, static_cast<size_t>(length)));
    return 0;
  };
  VHotfolder folder;
  folder.SetPath(VPath(dir.path().c_str()));
  folder.SetTimeMilliseconds(20);
  folder.SetWakeOnChange(true);
  folder.SetUserData(&record);
  folder.SetCallback(handler);
  folder.Start();
  std::atomic<bool> writing{true};
  std::thread replacer([&] {
    for (int i = 0; writing; ++i) {
      if (i % 3 == 0) {
        folder.SetCallback(pointer);
      } else {
        folder.SetCallback(handler);
      }
      std::this_thread::yield();
    }
  });
  constexpr int kFiles = 200;
  for (int i = 0; i < kFiles; ++i) {
    dir.Write("f" + std::to_string(i), "x");
    std::this_thread::sleep_for(5ms);
  }
  {
    std::unique_lock<std::mutex> lock(record.mutex);
    EXPECT_TRUE(
        record.changed.wait_for(lock, 60s, [&] { return record.delivered.size() >= kFiles; }));
  }
  writing = false;
  replacer.join();
  folder.Stop();
  folder.SetCallback(VHotfolder::Callback(nullptr));
  EXPECT_EQ(token.use_count(), 2);  // this test's and the lambda's
  EXPECT_EQ(record.delivered.size(), static_cast<size_t>(kFiles));
  for (const auto& [path, count] : record.delivered) EXPECT_EQ(count, 1) << path;
}

}  // namespace
