// The --exec command for each handled path, and the signals that stop the tool and reach it.
#ifndef VANTU_TOOLS_HOTFOLDER_COMMAND_H
#define VANTU_TOOLS_HOTFOLDER_COMMAND_H

#include <signal.h>

#include <string>

#include "Options.h"
#include "Output.h"

namespace hotfolder {

// Runs the --exec command for one path, with a clean signal state. False when a stop came
// before it started.
bool Run(const Options& options, const std::string& path, Result& result);

// The signal thread: the first SIGINT or SIGTERM stops the tool, a second one ends it at once.
// Each is passed on to the running command, unless the terminal sent it: the terminal signals
// the whole foreground process group, command included. The main thread ends this thread
// with a SIGTERM of its own, the only one that carries this process's id.
void WatchSignals(sigset_t signals);

}  // namespace hotfolder

#endif  // VANTU_TOOLS_HOTFOLDER_COMMAND_H
