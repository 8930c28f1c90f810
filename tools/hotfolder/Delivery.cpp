#include "Delivery.h"

#include <fnmatch.h>

#include <cstdio>
#include <map>
#include <string>

#include <vantu/VLog.h>

#include "Claim.h"
#include "Command.h"
#include "Folder.h"
#include "Messages.h"
#include "Output.h"

namespace hotfolder {
namespace {

// Names starting with "." and names matching an --ignore pattern.
bool Ignored(const Options& options, std::string path) {
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  const std::string name = path.substr(path.rfind('/') + 1);
  if (!name.empty() && name[0] == '.') return true;
  const std::string root = options.directory + "/";
  const std::string below =
      path.compare(0, root.size(), root) == 0 ? path.substr(root.size()) : path;
  for (const std::string& glob : options.ignore) {
    const bool whole = glob.find('/') != std::string::npos;
    if (::fnmatch(glob.c_str(), (whole ? below : name).c_str(), whole ? FNM_PATHNAME : 0) == 0) {
      return true;
    }
  }
  return false;
}

// g_waiting holds the last reason printed for each waiting or skipped path: a reason is printed
// again only when it changes.
std::map<std::string, std::string> g_waiting;

}  // namespace

void Handle(const Options& options, VHotfolder& folder, const Item& item) {
  const std::string& path = item.text;
  Result result;
  result.claimed = item.claimed;
  if (result.claimed.empty()) {
    g_waiting.erase(path);
    if (Ignored(options, path)) return;
    if (!options.claim.empty() && !Claim(options, folder, path, result)) return;
    if (options.claim.empty()) Record(&VLog::Notice, "Delivered " + path);
  } else {
    Record(&VLog::Notice, "Found " + result.claimed + " left in the claim folder");
  }
  const std::string& target = result.claimed.empty() ? path : result.claimed;
  if (!options.exec.empty() && result.claimError.empty()) {
    if (!Run(options, target, result)) return;  // stopped first: left for the next run
    if (!result.ran) {
      Record(&VLog::Error, "Cannot run the command for " + target + ": " + result.error);
    } else if (result.status != 0) {
      Record(&VLog::Warning,
             "The command for " + target + " ended with status " + std::to_string(result.status));
    } else {
      Record(&VLog::Notice, "The command for " + target + " succeeded");
      if (options.deleteAfter) Delete(options, folder, target, !result.claimed.empty(), result);
      if (!result.error.empty()) {
        Record(&VLog::Error, "Cannot delete " + target + ": " + result.error);
      }
    }
    g_failed = g_failed || result.status != 0 || !result.error.empty();
  }
  if (!result.claimed.empty() && !result.deleted) Settle(options, result);
  g_failed = g_failed || !result.claimError.empty() || !result.moveError.empty();
  Report(options, path, result);
}

void Note(const Options& options, const std::string& note) {
  if (!options.verbose) return;
  size_t split = note.rfind(": waiting, ");
  if (split == std::string::npos) split = note.rfind(": skipped, ");
  if (split != std::string::npos) {
    const std::string path = note.substr(0, split);
    if (Ignored(options, path)) return;
    std::string& last = g_waiting[path];
    if (last == note) return;
    last = note;
  }
  if (options.json) {
    Write("{\"waiting\": " + JsonString(note) + "}\n");
  } else {
    std::fprintf(stderr, "%s\n", note.c_str());
  }
}

}  // namespace hotfolder
