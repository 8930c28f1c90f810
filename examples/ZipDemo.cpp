// Zip archives: VZipFile adds files, memory buffers and whole folders (compressing on several
// threads); VUnzipFile lists, tests, reads and extracts, never writing outside its folder.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <vantu/VFile.h>
#include <vantu/VUnzipFile.h>
#include <vantu/VZipFile.h>

int main() {
  std::string folder = std::filesystem::temp_directory_path() / "vantu-zip-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) return 1;
  std::filesystem::create_directories(folder + "/docs/2026");
  std::ofstream(folder + "/docs/a.txt") << "first\n";
  std::ofstream(folder + "/docs/2026/b.txt") << "second\n";
  const VPath archive = VPath::FromFilesystemPath(folder + "/docs.zip");

  VZipFile zip(archive);
  zip.AddDirectory(VPath::FromFilesystemPath(folder + "/docs"));  // "docs/", "docs/a.txt"...
  const std::string note = "made by ZipDemo\n";
  zip.AddBuffer(note.data(), note.size(), VString::FromUTF8("README.txt"));
  zip.Close();  // the archive takes its name only now, complete

  VUnzipFile unzip(archive);
  for (const VUnzipFile::Entry& entry : unzip.GetEntries())
    std::printf("%-20s %3llu bytes\n", entry.name.c_str(),
                static_cast<unsigned long long>(entry.size));
  unzip.Test();  // throws when an entry's CRC or size is wrong
  std::fputs(unzip.Read(VString::FromUTF8("docs/2026/b.txt")).c_str(), stdout);
  unzip.ExtractAll(VPath::FromFilesystemPath(folder + "/out"));
  const bool extracted = VFile(VPath::FromFilesystemPath(folder + "/out/docs/a.txt")).IsFile();

  VFile(VPath::FromFilesystemPath(folder)).Remove(true);
  return extracted ? 0 : 1;
}
