// Text in the calling thread's narrow code page (the codeset of its LC_CTYPE locale) and UTF-16.
#ifndef VANTU_PLATFORM_CODEPAGE_H
#define VANTU_PLATFORM_CODEPAGE_H

#include <string>

namespace vantu::platform {

// The calling thread's narrow code page (the codeset of its LC_CTYPE locale) is UTF-8. Under the
// C/POSIX locale the code page counts as UTF-8.
bool CodePageIsUtf8();

// Converts text in the thread's code page into UTF-16LE bytes, replacing `out`. Each byte that
// is not valid in the code page becomes "?".
void CodePageToUtf16(const std::string& in, std::string& out);

// Converts UTF-16LE bytes into the thread's code page, replacing `out`. Characters the code page
// cannot hold, unpaired surrogates and a trailing odd byte become "?".
void Utf16ToCodePage(const std::string& in, std::string& out);

}  // namespace vantu::platform

#endif  // VANTU_PLATFORM_CODEPAGE_H
