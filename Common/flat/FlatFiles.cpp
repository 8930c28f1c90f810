// The flat file utilities of <vantu/vantu.h>. Each builds the objects it needs on the stack and
// lets nothing escape across the C boundary.
#include <vantu/vantu.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <system_error>
#include <vector>

#include <vantu/VChecksum.h>
#include <vantu/VFile.h>
#include <vantu/VPath.h>
#include <vantu/VString.h>
#include <vantu/VTimestamp.h>

#include "internal/PathText.h"
#include "internal/Utf.h"
#include "platform/Descriptor.h"
#include "platform/FileAvailability.h"
#include "platform/FileIO.h"

namespace {

// Files are read in blocks that stay in the processor's second-level cache, so the checksum
// reads each block while it is still there after the kernel copied it.
constexpr size_t kReadBlock = 256 * 1024;

// The unique name: prefix, then the UUID time of now in decimal.
std::string UniqueName(const std::string& prefix) {
  return prefix + std::to_string(static_cast<unsigned long long>(VTimestamp().UtcTime()));
}

// The temporary folder with `name` (UTF-8 bytes, kept as they are) appended, as UTF-8.
std::string TempFilePath(const std::string& name) {
  VPath path = VPath::GetTempHome();
  VPath file;
  vantu::internal::SetPathBytes(file, name, UTF8);
  path.Append(file);
  return vantu::internal::PathBytes(path);
}

template <typename Char>
int CopyOut(const std::basic_string<Char>& text, Char* out, size_t size) {
  if (text.size() >= size) return -1;
  std::copy(text.begin(), text.end(), out);
  out[text.size()] = Char(0);
  return 0;
}

std::u16string Utf16(const vantu_char16* text) {
  return std::u16string(reinterpret_cast<const char16_t*>(text));
}

}  // namespace

extern "C" {

void vantu_GetCRC(const char* text, unsigned int* crc) {
  vantu_GetCRCEx(text, static_cast<unsigned int>(std::strlen(text)), crc);
}

void vantu_GetCRCEx(const char* data, unsigned int length, unsigned int* crc) {
  try {
    VChecksum checksum;
    checksum.Update(data, length);
    *crc = checksum.Checksum();
  } catch (...) {
    *crc = 0;
  }
}

void vantu_GetFileInfo(const char* path, unsigned int* crc) {
  *crc = 0;
  try {
    // The availability test and the reading share one descriptor.
    const VFile file(path);
    if (file.GetPath().Length() == 0) return;
    const vantu::platform::Descriptor fd(
        vantu::platform::OpenAvailableForReadingFd(vantu::internal::PathBytes(file.GetPath())));
    if (fd.get() < 0) return;
    // The size is taken as a signed 32-bit value, as it always was: files of 2 GiB or more are
    // not summed correctly.
    const auto size = static_cast<int32_t>(vantu::platform::GetFileSize(fd.get()));
    if (size <= 0) return;
    std::vector<char> block(std::min(static_cast<size_t>(size), kReadBlock));
    VChecksum checksum;
    for (size_t done = 0; done < static_cast<size_t>(size);) {
      size_t n = 0;
      try {
        n = vantu::platform::ReadAt(fd.get(), block.data(),
                                    std::min(block.size(), static_cast<size_t>(size) - done), done);
      } catch (const std::system_error&) {
        // A failed read ends the sum, as the end of the file does.
      }
      if (n == 0) break;
      checksum.Update(block.data(), n);
      done += n;
    }
    *crc = checksum.Checksum();
  } catch (...) {
    *crc = 0;
  }
}

int vantu_IsFile(const char* path) {
  try {
    return VFile(path).IsFile() ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

int vantu_IsFileAvailable(const char* path) {
  try {
    return VFile(path).IsAvailable(true, false) ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

const char* vantu_Path_CStr(const char* path) {
  static thread_local std::string text;
  try {
    text = VPath(path).GetString();
  } catch (...) {
    text.clear();
  }
  return text.c_str();
}

void vantu_ToUTF16(const char* text, vantu_char16* out, int plain) {
  std::u16string utf16;
  try {
    VString source(text);
    source.ConvertTo(UTF8);
    if (plain == 0) utf16.push_back(char16_t{0xFFFE});
    vantu::internal::AppendUtf16FromUtf8(source.GetString(), utf16);
  } catch (...) {
    utf16.clear();
  }
  auto* target = reinterpret_cast<char16_t*>(out);
  std::copy(utf16.begin(), utf16.end(), target);
  target[utf16.size()] = u'\0';
}

void vantu_ToUTF8(const vantu_char16* text, char* out, int withBom) {
  std::string utf8;
  try {
    VString source(Utf16(text));
    source.ConvertTo(UTF8);
    utf8 = source.GetString();
    if (withBom != 0) {
      if (utf8.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        utf8.erase(0, 3);
      } else if (utf8.compare(0, 2, "\xFF\xFE") == 0) {
        utf8.erase(0, 2);
      }
      if (!utf8.empty()) utf8.insert(0, "\xEF\xBB\xBF");
    }
  } catch (...) {
    utf8.clear();
  }
  std::memcpy(out, utf8.c_str(), utf8.size() + 1);
}

int vantu_UniqueTempName(char* out, size_t size, const char* prefix) {
  try {
    return CopyOut(UniqueName(prefix ? prefix : ""), out, size);
  } catch (...) {
    return -1;
  }
}

int vantu_UniqueTempFile(char* out, size_t size, const char* prefix) {
  try {
    return CopyOut(TempFilePath(UniqueName(prefix ? prefix : "")), out, size);
  } catch (...) {
    return -1;
  }
}

int vantu_UniqueTempWFile(vantu_char16* out, size_t size, const vantu_char16* prefix) {
  try {
    const std::string utf8Prefix = prefix ? VString(Utf16(prefix)).GetString() : std::string();
    std::u16string path;
    vantu::internal::AppendUtf16FromUtf8(TempFilePath(UniqueName(utf8Prefix)), path);
    return CopyOut(path, reinterpret_cast<char16_t*>(out), size);
  } catch (...) {
    return -1;
  }
}

}  // extern "C"
