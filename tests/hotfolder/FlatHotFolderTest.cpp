#include <gtest/gtest.h>

#include <string>

#include <vantu/VFile.h>
#include <vantu/VHotfolder.h>
#include <vantu/vantu.h>

#include "support/TempDir.h"

namespace {

using vantu::test::TempDir;

int Count(const char*, int, void* data) {
  ++*static_cast<int*>(data);
  return 0;
}

TEST(FlatHotFolderTest, CreateConfigureAndDispose) {
  const TempDir dir;
  int calls = 0;
  void* handle = vantu_CreateHotFolder(dir.path().c_str(), 5000, 0, 1, Count, &calls);
  ASSERT_NE(handle, nullptr);
  auto* folder = static_cast<VHotfolder*>(handle);
  EXPECT_TRUE(folder->GetRecursive());
  EXPECT_FALSE(folder->GetGroupFolders());
  EXPECT_EQ(folder->GetTimeMilliseconds(), 5000);
  EXPECT_EQ(folder->GetHolfoderCbFn(), &Count);
  EXPECT_EQ(folder->GetUserData(), &calls);
  EXPECT_EQ(folder->GetPath().GetString(), dir.path());

  // Bit 0 is ignored; bits 1 and 2 are read, and here off.
  vantu_ConfigHotFolder(handle, 700, VANTU_HOTFOLDER_ACTIVATE);
  EXPECT_FALSE(folder->GetRecursive());
  EXPECT_EQ(folder->GetTimeMilliseconds(), 700);
  EXPECT_FALSE(folder->GetFollowLinks());
  vantu_ConfigHotFolder(handle, 700, VANTU_HOTFOLDER_GROUP_FOLDERS | VANTU_HOTFOLDER_FOLLOW_LINKS);
  EXPECT_TRUE(folder->GetGroupFolders());
  EXPECT_TRUE(folder->GetFollowLinks());
  folder->SetDotRuleBelowFolderOnly(true);
  const VHotfolder copy(*folder);  // the settings, CopyFrom
  EXPECT_TRUE(copy.GetFollowLinks() && copy.GetDotRuleBelowFolderOnly() && copy.GetGroupFolders());

  dir.Write("f", "x");
  folder->CheckFolderChanges();
  EXPECT_EQ(calls, 1);
  vantu_DeleteFileFromHotFolder(handle, (dir / "f").c_str(), 0);
  EXPECT_FALSE(VFile((dir / "f").c_str()).Exists());
  vantu_ActivateHotFolder(handle, 0);
  EXPECT_TRUE(folder->GetFileList()->empty());
  vantu_DisposeHotFolder(handle);
  vantu_DisposeHotFolder(nullptr);
  vantu_ConfigHotFolder(nullptr, 1, 2);
  vantu_ActivateHotFolder(nullptr, 1);
  vantu_DeleteFileFromHotFolder(nullptr, "x", 0);
}

// The handle callback: one function for several hot folders, each call naming its hot folder.
TEST(FlatHotFolderTest, AHandleCallbackGetsTheHandleAndMayDeleteThroughIt) {
  const TempDir dir;
  struct Seen {
    void* handle = nullptr;
    std::string path;
    int calls = 0;
  } seen;
  int classic = 0;
  void* handle = vantu_CreateHotFolderEx(dir.path().c_str(), 5000, 0, Count, &classic);
  ASSERT_NE(handle, nullptr);
  vantu_SetHotFolderHandleCallback(
      handle,
      [](void* folder, const char* path, int length, void* data) {
        auto* s = static_cast<Seen*>(data);
        s->handle = folder;
        s->path.assign(path, static_cast<size_t>(length));
        ++s->calls;
        vantu_DeleteFileFromHotFolder(folder, path, 0);
        return 0;
      },
      &seen);
  auto* folder = static_cast<VHotfolder*>(handle);
  EXPECT_EQ(folder->GetHolfoderCbFn(), nullptr);
  EXPECT_EQ(folder->GetUserData(), &seen);
  const std::string file = dir.Write("f", "x");
  folder->CheckFolderChanges();
  EXPECT_EQ(seen.handle, handle);
  EXPECT_EQ(seen.path, file);
  EXPECT_FALSE(VFile(file.c_str()).Exists());
  vantu_SetHotFolderHandleCallback(handle, nullptr, nullptr);  // no callback at all
  dir.Write("g", "x");
  folder->CheckFolderChanges();
  EXPECT_EQ(seen.calls + classic, 1);
  EXPECT_EQ(folder->GetFileList()->size(), 1u);
  vantu_SetHotFolderHandleCallback(nullptr, nullptr, nullptr);
  vantu_DisposeHotFolder(handle);
}

}  // namespace
