#include "internal/PathText.h"

#include <utility>

#include "internal/TextConversion.h"
#include "platform/CodePage.h"

namespace vantu::internal {

// Stores bytes in a VString as they are: no byte-order-mark detection, no normalisation.
struct VStringAccess {
  static void SetBytes(VString& text, std::string bytes, StringEncoding encoding) {
    text.text_.swap(bytes);
    text.encoding_ = encoding;
    text.TextReplaced();
  }
};

namespace {

// Encodings whose path text is the file-system bytes themselves.
bool HoldsBytesAsTheyAre(StringEncoding encoding) {
  return encoding == UTF8 || (encoding == SystemCodePage && platform::CodePageIsUtf8()) ||
         encoding < SystemCodePage || encoding > UTF16;
}

}  // namespace

std::string PathBytes(const VString& path) {
  const StringEncoding encoding = path.GetEncoding();
  if (HoldsBytesAsTheyAre(encoding)) return path.GetString();
  std::string bytes;
  ConvertText(encoding, UTF8, path.GetString(), bytes);
  return bytes;
}

void SetPathBytes(VString& path, const std::string& bytes, StringEncoding encoding) {
  if (HoldsBytesAsTheyAre(encoding)) {
    VStringAccess::SetBytes(path, bytes, encoding);
    return;
  }
  std::string converted;
  ConvertText(UTF8, encoding, bytes, converted);
  std::string back;
  ConvertText(encoding, UTF8, converted, back);
  if (back == bytes) {
    VStringAccess::SetBytes(path, std::move(converted), encoding);
  } else {
    VStringAccess::SetBytes(path, bytes, UTF8);
  }
}

}  // namespace vantu::internal
