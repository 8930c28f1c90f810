// What the main thread does with each item the scans queued: a delivered entry is claimed, its
// command run, then it is deleted or settled, and reported; a note is printed with --verbose.
#ifndef VANTU_TOOLS_HOTFOLDER_DELIVERY_H
#define VANTU_TOOLS_HOTFOLDER_DELIVERY_H

#include <string>

#include <vantu/VHotfolder.h>

#include "Options.h"
#include "Session.h"

namespace hotfolder {

// Handles one delivered entry, or a file found in the claim folder at start.
void Handle(const Options& options, VHotfolder& folder, const Item& item);

// Prints a note on a waiting or skipped file (--verbose), once for each reason.
void Note(const Options& options, const std::string& note);

}  // namespace hotfolder

#endif  // VANTU_TOOLS_HOTFOLDER_DELIVERY_H
