// What the tool says: a problem on standard error, and lines for the log.
#ifndef VANTU_TOOLS_HOTFOLDER_MESSAGES_H
#define VANTU_TOOLS_HOTFOLDER_MESSAGES_H

#include <cstdio>
#include <string>

#include <vantu/VLog.h>

namespace hotfolder {

// Says what is wrong on standard error; false, for the caller to return.
inline bool Fail(const std::string& message) {
  std::fprintf(stderr, "vantu-hotfolder: %s\n", message.c_str());
  return false;
}

// Writes to the log, if there is one.
inline void Record(void (VLog::*write)(const std::string&), const std::string& text) {
  if (VLog* log = VLog::GetCurrent()) (log->*write)(text);
}

}  // namespace hotfolder

#endif  // VANTU_TOOLS_HOTFOLDER_MESSAGES_H
