// The flat hot folder functions of <vantu/vantu.h>. A handle is the VHotfolder's address.
#include <vantu/vantu.h>

#include <cstring>
#include <memory>
#include <string_view>

#include <vantu/VHotfolder.h>

extern "C" {

void* vantu_CreateHotFolder(const char* path, unsigned int milliseconds, int activate,
                            int recursive, vantu_HotFolderCallback callback, void* userData) {
  const unsigned flags = (activate != 0 ? VANTU_HOTFOLDER_ACTIVATE : 0u) |
                         (recursive != 0 ? VANTU_HOTFOLDER_RECURSIVE : 0u);
  return vantu_CreateHotFolderEx(path, milliseconds, flags, callback, userData);
}

void* vantu_CreateHotFolderEx(const char* path, unsigned int milliseconds, unsigned int flags,
                              vantu_HotFolderCallback callback, void* userData) {
  try {
    const VPath folder(path);
    auto hotFolder = std::make_unique<VHotfolder>();
    hotFolder->SetPath(folder);
    hotFolder->SetTimeMilliseconds(static_cast<int>(milliseconds));
    hotFolder->SetRecursive((flags & VANTU_HOTFOLDER_RECURSIVE) != 0);
    hotFolder->SetGroupFolders((flags & VANTU_HOTFOLDER_GROUP_FOLDERS) != 0);
    hotFolder->SetFollowLinks((flags & VANTU_HOTFOLDER_FOLLOW_LINKS) != 0);
    hotFolder->SetCallback(callback);
    hotFolder->SetUserData(userData);
    if ((flags & VANTU_HOTFOLDER_ACTIVATE) != 0) hotFolder->Start();
    return hotFolder.release();
  } catch (...) {
    return nullptr;
  }
}

void vantu_ConfigHotFolder(void* handle, unsigned int milliseconds, unsigned int flags) {
  if (handle == nullptr) return;
  auto* hotFolder = static_cast<VHotfolder*>(handle);
  hotFolder->SetTimeMilliseconds(static_cast<int>(milliseconds));
  hotFolder->SetRecursive((flags & VANTU_HOTFOLDER_RECURSIVE) != 0);
  hotFolder->SetGroupFolders((flags & VANTU_HOTFOLDER_GROUP_FOLDERS) != 0);
  hotFolder->SetFollowLinks((flags & VANTU_HOTFOLDER_FOLLOW_LINKS) != 0);
}

void vantu_ActivateHotFolder(void* handle, int activate) {
  if (handle == nullptr) return;
  auto* hotFolder = static_cast<VHotfolder*>(handle);
  if (activate != 0) {
    hotFolder->Start();
  } else {
    hotFolder->Stop();
  }
}

void vantu_DeleteFileFromHotFolder(void* handle, const char* path, int keepFile) {
  if (handle == nullptr || path == nullptr) return;
  try {
    // The path as the callback gave it: its bytes are compared with the listed entries'.
    static_cast<VHotfolder*>(handle)->Remove(VFile(VPath::FromFileSystem(path, std::strlen(path))),
                                             keepFile != 0);
  } catch (...) {
  }
}

void vantu_DisposeHotFolder(void* handle) { delete static_cast<VBaseObject*>(handle); }

void vantu_SetHotFolderHandleCallback(void* handle, vantu_HotFolderHandleCallback callback,
                                      void* userData) {
  if (handle == nullptr) return;
  auto* hotFolder = static_cast<VHotfolder*>(handle);
  try {
    if (callback == nullptr) {
      hotFolder->SetCallback(VHotfolder::Callback(nullptr));
    } else {
      // The scan's path is NUL-terminated after the view's end.
      hotFolder->SetCallback([handle, callback, userData](std::string_view path) {
        return callback(handle, path.data(), static_cast<int>(path.size()), userData);
      });
    }
    hotFolder->SetUserData(userData);
  } catch (...) {
    // No memory for the callable: the previous callback stays.
  }
}

}  // extern "C"
