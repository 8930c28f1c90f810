// The tool's options, read from the command line; --help prints them from the same table.
#ifndef VANTU_TOOLS_HOTFOLDER_OPTIONS_H
#define VANTU_TOOLS_HOTFOLDER_OPTIONS_H

#include <string>
#include <vector>

namespace hotfolder {

struct Options {
  std::string directory = "inbox";
  bool recursive = false;
  bool groupFolders = false;
  int period = 1000;
  std::vector<std::string> ignore;
  std::string exec;
  bool shell = false;
  bool deleteAfter = false;
  std::string logDir;
  int logLevel = 0;  // 0: not given
  bool once = false;
  bool json = false;
  bool null = false;
  bool verbose = false;
  bool noWake = false;
  std::string claim;
  bool followLinks = false;
};

constexpr int kNotice = 5;       // the log's default: deliveries, results and problems
constexpr int kInformation = 6;  // the level of the hot folder's trace

// Splits a command line into words, honouring single and double quotes; false when a quote
// does not close.
bool Words(const std::string& command, std::vector<std::string>& words);

// Reads the arguments into `options`; false after saying what is wrong. --help prints the usage
// and exits.
bool Parse(int argc, char** argv, Options& options);

}  // namespace hotfolder

#endif  // VANTU_TOOLS_HOTFOLDER_OPTIONS_H
