// The flat log functions of <vantu/vantu.h>. A handle is the VLog's address.
#include <vantu/vantu.h>

#include <memory>

#include <vantu/VLog.h>

extern "C" {

void* vantu_CreateLogEx(const char* name, const char* folder, int level, int rotationCount,
                        int rotationUnit, unsigned int archiveMode, unsigned int purgeCount,
                        unsigned int purgeUnit, int makeCurrent) {
  try {
    auto log = std::make_unique<VLog>();
    if (name != nullptr) log->SetName(VString(name));
    if (folder != nullptr) log->SetFolder(VPath(folder));
    log->SetLevel(level >= 1 && level <= 8 ? level : 3);
    if (rotationUnit < -1 || rotationUnit > 9 || rotationCount < 1) rotationCount = 1;
    log->SetRotation(static_cast<unsigned>(rotationCount), rotationUnit);
    log->SetArchive(archiveMode < 2 ? static_cast<int>(archiveMode) : 0);
    log->SetPurgeAge(purgeCount, purgeUnit <= 1 ? static_cast<int>(purgeUnit) : 2);
    log->Open();
    if (makeCurrent != 0) VLog::SetCurrent(log.get());
    return log.release();
  } catch (...) {
    return nullptr;  // no exception crosses the C boundary
  }
}

void* vantu_CreateLog(const char* name, const char* folder, int level, int rotationCount,
                      int rotationUnit, unsigned int archiveMode, unsigned int purgeCount,
                      unsigned int purgeUnit) {
  return vantu_CreateLogEx(name, folder, level, rotationCount, rotationUnit, archiveMode,
                           purgeCount, purgeUnit, 1);
}

void vantu_DeleteLog(void** handle) {
  if (handle == nullptr || *handle == nullptr) return;
  delete static_cast<VLog*>(*handle);
  *handle = nullptr;
}

void* vantu_GetCurrentLog(void) { return VLog::GetCurrent(); }

int vantu_LogMessage(void* handle, unsigned int level, const char* text) {
  if (handle == nullptr) return -1;
  if (text == nullptr) return 0;
  try {
    VLog* log = static_cast<VLog*>(handle);
    const std::string message(text);
    switch (level > 8 ? 4 : level) {
      case 1:
        log->Debug(message);
        break;
      case 2:
        log->Warning(message);
        break;
      case 3:
        log->Fatal(message);
        break;
      case 4:
        log->Error(message);
        break;
      case 5:
        log->Critical(message);
        break;
      case 6:
        log->Notice(message);
        break;
      case 8:
        log->Trace(message);
        break;
      default:
        log->Information(message);
        break;  // 0 and 7
    }
  } catch (...) {
  }
  return 0;
}

}  // extern "C"
