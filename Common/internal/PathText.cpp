#include "internal/PathText.h"

#include "internal/TextConversion.h"
#include "platform/Platform.h"

namespace vantu::internal {

std::string PathBytes(const VString& path) {
  const StringEncoding encoding = path.GetEncoding();
  if (encoding == UTF8 || (encoding == SystemCodePage && platform::CodePageIsUtf8()) ||
      encoding < SystemCodePage || encoding > UTF16) {
    return path.GetString();
  }
  std::string bytes;
  ConvertText(encoding, UTF8, path.GetString(), bytes);
  return bytes;
}

void SetPathBytes(VString& path, const std::string& bytes, StringEncoding encoding) {
  if (encoding == UTF8 || (encoding == SystemCodePage && platform::CodePageIsUtf8()) ||
      encoding < SystemCodePage || encoding > UTF16) {
    path.SetRaw(bytes.data(), bytes.size(), encoding);
    return;
  }
  std::string converted;
  ConvertText(UTF8, encoding, bytes, converted);
  path.SetRaw(converted.data(), converted.size(), encoding);
}

}  // namespace vantu::internal
