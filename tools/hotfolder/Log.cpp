#include "Log.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include <vantu/VPath.h>
#include <vantu/VString.h>

#include "Messages.h"
#include "Session.h"

namespace hotfolder {
namespace {

// The text between the quotes of a traced message, after `prefix`.
std::string QuotedPath(const std::string& text, const char* prefix, const char* suffix) {
  const size_t start = text.find(prefix);
  if (start == std::string::npos) return std::string();
  const size_t from = start + std::strlen(prefix);
  const size_t end = text.rfind(suffix);
  return end == std::string::npos || end < from ? std::string() : text.substr(from, end - from);
}

// Reads the hot folder's trace: "not available" and "not complete" say why a file waits,
// "Skipping" why a link is not delivered.
void OnTrace(int, const std::string& text, void*) {
  if (text.find("[File: VHotfolder Line: 233]") != std::string::npos) {
    const std::string path = QuotedPath(text, "\"File ", " is not available\"");
    std::string why = "held open by a writer";
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    if (error) {
      why = "unreadable";
    } else if (size == 0) {
      why = "empty";
    } else if (!std::ifstream(path, std::ios::binary).is_open()) {
      why = "unreadable";
    }
    g_session.Push({path + ": waiting, " + why, false});
  } else if (text.find("[File: VHotfolder Line: 227]") != std::string::npos) {
    const size_t open = text.rfind(" is not complete (");
    const std::string path = QuotedPath(text, "\"File ", " is not complete (");
    const std::string sizes = open == std::string::npos ? "" : text.substr(open + 18);
    g_session.Push(
        {path + ": waiting, still growing (" + sizes.substr(0, sizes.find(')')) + ")", false});
  } else if (text.find("[File: VHotfolder Line: 236]") != std::string::npos) {
    const char kLeads[] = ": the link leads outside the folder, to ";
    const std::string path = QuotedPath(text, "\"Skipping ", kLeads);
    const size_t at = text.rfind(kLeads);
    const std::string target =
        at == std::string::npos ? "" : QuotedPath(text.substr(at), kLeads, "\"");
    g_session.Push({path + ": skipped, a link that leads out of the folder (to " + target +
                        "; --follow-links delivers it)",
                    false});
  }
}

}  // namespace

bool OpenLog(const Options& options, std::unique_ptr<VLog>& log, std::string& privateLog) {
  if (options.logDir.empty() && !options.verbose) return true;
  std::string folder = options.logDir;
  if (folder.empty()) {
    char pattern[] = "/tmp/vantu-hotfolder-XXXXXX";
    if (::mkdtemp(pattern) == nullptr) return Fail("cannot make a folder for --verbose's log");
    privateLog = folder = pattern;
  } else {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!std::ofstream(folder + "/vantu-hotfolder.log", std::ios::app)) {
      return Fail("cannot write the log " + folder + "/vantu-hotfolder.log");
    }
  }
  log = std::make_unique<VLog>();
  log->SetFolder(VPath::FromFileSystem(folder));
  log->SetName(VString("vantu-hotfolder"));
  log->SetLevel(options.logLevel != 0 ? options.logLevel
                : options.verbose     ? kInformation
                                      : kNotice);
  if (options.verbose) log->SetListener(OnTrace, nullptr);
  VLog::SetCurrent(log.get());
  return true;
}

}  // namespace hotfolder
