// Whether someone is still writing a file (see VFile::IsAvailable for the contract).
#ifndef VANTU_PLATFORM_FILEAVAILABILITY_H
#define VANTU_PLATFORM_FILEAVAILABILITY_H

#include <cstdio>
#include <string>

namespace vantu::platform {

// Whether no one is still writing the file; see VFile::IsAvailable.
bool IsFileAvailable(const std::string& path, bool requireNonEmpty, bool forWrite);

// The file opened for reading (a descriptor, closed on exec) when IsFileAvailable(path, false,
// false) would say so, else -1. The test and the reading use one descriptor, so whatever
// replaces the file at that path afterwards (a FIFO that would block, another file) is not read.
int OpenAvailableForReadingFd(const std::string& path);

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_FILEAVAILABILITY_H
