// Files by descriptor, for archives, extraction and saving. Failures throw std::system_error
// carrying the errno value (generic category) and the path or the operation.
#ifndef VANTU_PLATFORM_FILEIO_H
#define VANTU_PLATFORM_FILEIO_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <system_error>

namespace vantu::platform {

// Opens a regular file for reading (closed on exec). A directory fails with EISDIR; anything
// else that is not a regular file (a FIFO, a device, a socket) fails at once, with an error of
// NotRegularFileCategory, rather than blocking or reading without end.
int OpenForReadingFd(const std::string& path);
// Its message is "Not a regular file"; it compares equal to std::errc::invalid_argument.
const std::error_category& NotRegularFileCategory();
// Creates a new file for writing; fails if anything, a link included, already has the name.
int CreateNewFile(const std::string& path, unsigned mode);
// Reads up to `size` bytes at `offset` (fewer only at the end of the file); safe to call from
// several threads on one descriptor.
size_t ReadAt(int fd, void* buffer, size_t size, unsigned long long offset);
void WriteAll(int fd, const void* buffer, size_t size);
// Opens an existing regular file for reading and writing in place (closed on exec), without
// following a symbolic link (ELOOP) and failing on anything but a regular file, as
// OpenForReadingFd does.
int OpenForUpdateFd(const std::string& path);
// Writes all `size` bytes at `offset`.
void WriteAt(int fd, const void* buffer, size_t size, unsigned long long offset);
// Cuts or extends the file to `size` bytes.
void SetFileSize(int fd, unsigned long long size);
unsigned long long GetFileSize(int fd);
// Sets the modification (and access) time, and the permission bits unless `mode` is 0.
void SetFileTimeAndMode(int fd, long long modifiedSeconds, unsigned mode);
// Closes and reports a failure of the close itself (a write the file system could not finish).
void CloseFile(int fd);
void CloseFileQuietly(int fd) noexcept;

// Opens a file for writing in binary mode, closed on exec, creating it or truncating it (devices
// and pipes are not truncated), and holds an exclusive flock on it until the stream is closed:
// cooperating processes that take a flock cannot write it meanwhile. Null when the file cannot
// be opened or another open file description holds a flock on it; the file is then left as it
// was.
std::FILE* OpenForWritingLocked(const std::string& path);

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_FILEIO_H
