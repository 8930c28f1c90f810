// --claim: each instance moves a delivered file into a folder of its own before handling it, so
// that several instances share one watched folder and each file is handled once. The folder is
// locked (DIR/.lock) while the tool runs, and lies on the watched folder's file system, inside
// it only below a dot-name; a handled file leaves it for done/ or failed/.
#ifndef VANTU_TOOLS_HOTFOLDER_CLAIM_H
#define VANTU_TOOLS_HOTFOLDER_CLAIM_H

#include <chrono>
#include <string>

#include <vantu/VHotfolder.h>

#include "Options.h"
#include "Output.h"

namespace hotfolder {

// --claim's folder: its path, and descriptors of it, of its done/ and failed/ folders and of its
// lock, kept for the run.
struct ClaimFolder {
  std::string path;
  int fd = -1;
  int done = -1;
  int failed = -1;
  int lock = -1;
  // How long a start waits for an instance that still holds the lock.
  std::chrono::steady_clock::duration lockWait = std::chrono::seconds(10);
};
extern ClaimFolder g_claim;

// Opens --claim DIR (see --help), again when it was replaced, and queues the files that an
// earlier run left in it. DIR is made only once the checks pass. False after saying why.
bool OpenClaim(const Options& options);

// Moves a delivered file (a link as itself) into the claim folder and has it taken out of the
// hot folder's list, so that a new file of the same name is delivered. False when the file is
// gone (another instance claimed it): nothing is reported, and the next scan drops it from the
// list. A failed claim leaves the file listed, so that it is not tried again at every scan.
bool Claim(const Options& options, VHotfolder& folder, const std::string& path, Result& result);

// Takes a handled file out of the claim folder's top level, into done/ or, when its command
// failed or could not start, failed/. A command that failed after a stop was asked for was
// most likely ended by it: its file stays, and the next start handles it again.
void Settle(const Options& options, Result& result);

}  // namespace hotfolder

#endif  // VANTU_TOOLS_HOTFOLDER_CLAIM_H
