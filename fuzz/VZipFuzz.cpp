// Reads arbitrary bytes as a zip archive: opens it, lists it, tests it and extracts it into a
// scratch folder. Besides crashes, hangs and sanitizer reports it checks that extraction
// writes nothing outside its folder and that every failure is a member of the VException
// family.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <vantu/VException.h>
#include <vantu/VUnzipFile.h>
#include "FuzzCheck.h"

namespace {

// One scratch folder per process: the archive and the extraction folder inside it, removed at
// exit (the text outlives static destruction for that).
const std::string& Scratch() {
  static const std::string* const path = [] {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/vantu-zipfuzz-XXXXXX";
    CHECK(::mkdtemp(pattern.data()) != nullptr);
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(Scratch(), ignored);
    });
    return new std::string(pattern);
  }();
  return *path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace fs = std::filesystem;
  const std::string archive = Scratch() + "/archive.zip";
  const std::string out = Scratch() + "/out";
  std::ofstream(archive, std::ios::binary).write(reinterpret_cast<const char*>(data), size);
  try {
    VUnzipFile unzip(archive.c_str());
    unzip.SetLimits(64u << 20, 4096);
    unzip.SetThreads(1);
    for (const VUnzipFile::Entry& entry : unzip.GetEntries()) {
      CHECK(entry.compressedSize <= size);
    }
    std::vector<VUnzipFile::Failure> failures;
    unzip.Test(&failures);
    unzip.ExtractAll(out.c_str(), &failures);
    if (!unzip.GetEntries().empty()) (void)unzip.Read(unzip.GetEntries()[0].name);
  } catch (const VException&) {
  }
  // Nothing but the archive and the extraction folder may exist in the scratch folder.
  for (const auto& entry : fs::directory_iterator(Scratch())) {
    const std::string name = entry.path().filename().string();
    CHECK(name == "archive.zip" || name == "out");
  }
  std::error_code ignored;
  fs::remove_all(out, ignored);
  return 0;
}
