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

// Replaces `path`'s content by file-system bytes so that PathBytes gives them back exactly: in
// `encoding` when that encoding holds them (UTF8 and the system code page on a UTF-8 system
// take them as they are, not normalised; other encodings when the conversion goes there and
// back unchanged), else as UTF8 bytes as they are. Names that are decomposed or not valid UTF-8
// therefore stay reachable whatever the encoding of the path they were found through.
void SetPathBytes(VString& path, const std::string& bytes, StringEncoding encoding);

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_PATHTEXT_H
