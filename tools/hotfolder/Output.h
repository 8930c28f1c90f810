// The tool's records on standard output: plain (fields separated by tabs, one line each), NUL
// (fields and records ended by NUL, with --null) and JSON (one object a line, with --json).
#ifndef VANTU_TOOLS_HOTFOLDER_OUTPUT_H
#define VANTU_TOOLS_HOTFOLDER_OUTPUT_H

#include <string>

#include "Options.h"

namespace hotfolder {

// What happened to one delivered entry.
struct Result {
  bool ran = false;
  int status = -1;  // the command's exit status, 128 + n when signal n ended it
  bool deleted = false;
  std::string error;  // why the command could not start, or the entry not be deleted
  // --claim: the claimed path (empty when the claim failed), where the file went afterwards,
  // and why it could not be claimed or moved there.
  std::string claimed;
  std::string moved;
  std::string claimError;
  std::string moveError;
};

// A JSON string of the bytes; a byte outside well-formed UTF-8 becomes \udcXX.
std::string JsonString(const std::string& text);

// Writes one record to stdout; output that cannot be written stops the tool, as nobody would
// learn what the next commands did.
void Write(const std::string& record);

// The record of one handled entry (`path` is empty for a file found in the claim folder).
void Report(const Options& options, const std::string& path, const Result& result);

}  // namespace hotfolder

#endif  // VANTU_TOOLS_HOTFOLDER_OUTPUT_H
