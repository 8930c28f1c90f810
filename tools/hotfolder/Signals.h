// SIGINT and SIGTERM: blocked in every thread, so that only the waits made for them take them
// (the signal thread, Command.h; the claim lock's wait, Claim.h), and the tool's end by one.
#ifndef VANTU_TOOLS_HOTFOLDER_SIGNALS_H
#define VANTU_TOOLS_HOTFOLDER_SIGNALS_H

#include <signal.h>

namespace hotfolder {

extern sigset_t g_signals;  // SIGINT and SIGTERM, blocked in every thread

// Blocks them in the calling thread, before any other thread starts.
void BlockStopSignals();

// Ends the process by `signal`'s default action, as a caller's shell expects of a tool that
// a signal stopped.
[[noreturn]] void EndBy(int signal);

}  // namespace hotfolder

#endif  // VANTU_TOOLS_HOTFOLDER_SIGNALS_H
