// A hot folder hands each complete file that arrives in a folder to a callback, once. This demo
// watches a fresh temporary folder, drops one file into it and exits after its delivery.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <vantu/VEvent.h>
#include <vantu/VFile.h>
#include <vantu/VHotfolder.h>

namespace {

// Runs on a scan's thread with the file system's bytes of the file's path.
int OnFile(const char* path, int length, void* userData) {
  std::printf("delivered %.*s\n", length, path);
  static_cast<VEvent*>(userData)->Set();
  return 0;
}

}  // namespace

int main() {
  std::string folder = std::filesystem::temp_directory_path() / "vantu-hotfolder-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) return 1;

  VEvent delivered;
  VHotfolder inbox;
  inbox.SetPath(VPath::FromFilesystemPath(folder));
  inbox.SetTimeMilliseconds(2000);        // a scan every two seconds,
  inbox.SetWakeOnChange(true);            // and one as soon as a file is closed
  inbox.SetDotRuleBelowFolderOnly(true);  // $TMPDIR may lie below a ".name" folder
  inbox.SetCallback(OnFile);
  inbox.SetUserData(&delivered);
  inbox.Start();

  std::ofstream(folder + "/order-1.txt") << "2 apples\n";  // written and closed at once
  delivered.Wait();  // about half a second after the close: the size has to hold still

  inbox.Stop();
  VFile(VPath::FromFilesystemPath(folder)).Remove(true);
  return 0;
}
