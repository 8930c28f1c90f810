// The log writes "<date> - [<weekday>] - <time> - <text>" lines to a file on its own thread;
// VLOG adds the level and the source line. This demo logs into a temporary folder and prints
// the file.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include <vantu/VFile.h>
#include <vantu/VLog.h>
#include <vantu/VLogMessage.h>

int main() {
  std::string folder = std::filesystem::temp_directory_path() / "vantu-log-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) return 1;
  // A log made without a folder uses one under the user's data folder: keep the demo's there.
  setenv("XDG_DATA_HOME", folder.c_str(), 1);

  VLog log;
  log.SetName("demo");
  log.SetFolder(VPath::FromFilesystemPath(folder));  // the file is <folder>/demo.log
  log.SetRotation(10, 9);                            // a new file after 10 M
  log.SetLevel(6);                                   // information and above
  VLog::SetCurrent(&log);

  VLOG(INFO) << "started with " << 3 << " workers";
  VLOG(WARNING).Format("disk %d%% full", 91);
  log.Debug("not written: below the level");
  log.Flush();  // every line so far is in the file

  std::cout << std::ifstream(log.GetFilePath().ToFilesystemPath()).rdbuf();
  VLog::SetCurrent(nullptr);
  VFile(VPath::FromFilesystemPath(folder)).Remove(true);
  return 0;
}
