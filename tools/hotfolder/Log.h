// The tool's log (--log, or --verbose, which reads the hot folder's trace from it).
#ifndef VANTU_TOOLS_HOTFOLDER_LOG_H
#define VANTU_TOOLS_HOTFOLDER_LOG_H

#include <memory>
#include <string>

#include <vantu/VLog.h>

#include "Options.h"

namespace hotfolder {

// Opens the log and makes it the current one; false after saying why. With --verbose the log's
// listener turns the trace into notes on waiting and skipped files, queued for the main thread.
// The log goes to --log DIR, or with --verbose alone to a private folder (`privateLog`), which
// the caller removes at exit.
bool OpenLog(const Options& options, std::unique_ptr<VLog>& log, std::string& privateLog);

}  // namespace hotfolder

#endif  // VANTU_TOOLS_HOTFOLDER_LOG_H
