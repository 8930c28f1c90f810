// The bridge between a path's text and the bytes the file system sees.
#ifndef VANTU_INTERNAL_PATHTEXT_H
#define VANTU_INTERNAL_PATHTEXT_H

#include <string>

#include <vantu/VString.h>

namespace vantu::internal {

// The UTF-8 bytes that name `path` in the file system. UTF8 text, and system-code-page text
// where the code page is UTF-8, are taken byte for byte: Linux names are bytes, so names that are
// not in NFC or not valid UTF-8 stay reachable. Other encodings are converted.
std::string PathBytes(const VString& path);

// Replaces `path`'s content by file-system bytes, stored in `encoding` (UTF8 text is kept in
// NFC as every UTF8 VString is; system-code-page text on a UTF-8 system keeps the bytes).
void SetPathBytes(VString& path, const std::string& bytes, StringEncoding encoding);

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_PATHTEXT_H
