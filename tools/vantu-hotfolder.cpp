// vantu-hotfolder: watches a directory and prints each complete file that arrives in it.
//
// Built on libvantu's public classes only: a VHotfolder finds and delivers the files, a VLog
// records deliveries and the commands' results (with --log; the hot folder's trace too at level
// information, which --verbose reads to say why a file still waits or a link is skipped).
//
// With --claim, each instance moves a delivered file into a folder of its own before handling
// it, so that several instances share one watched folder and each file is handled once.
//
// Deletes and claims act relative to a descriptor of the watched folder and never follow a link
// on their way: nothing outside the folder is deleted or moved, whatever links others plant.
//
// Threads: the scans (the hot folder's timer thread, or one thread for --once) only queue what
// they deliver; the main thread takes the queue one entry at a time and runs the commands; a
// thread of its own takes SIGINT and SIGTERM, which every other thread blocks.
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <vantu/VException.h>
#include <vantu/VFile.h>
#include <vantu/VHotfolder.h>
#include <vantu/VLog.h>

extern char** environ;

namespace {

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

bool Fail(const std::string& message) {
  std::fprintf(stderr, "vantu-hotfolder: %s\n", message.c_str());
  return false;
}

// A log level by name or number (1 to 8); 0 when it is neither.
int LevelOf(const std::string& text) {
  static const char* const kNames[] = {"fatal",  "critical",    "error", "warning",
                                       "notice", "information", "debug", "trace"};
  for (int i = 0; i < 8; ++i) {
    if (text == kNames[i]) return i + 1;
  }
  if (text == "info") return kInformation;
  return text.size() == 1 && text[0] >= '1' && text[0] <= '8' ? text[0] - '0' : 0;
}

// Splits a command line into words, honouring single and double quotes; false when a quote
// does not close.
bool Words(const std::string& command, std::vector<std::string>& words) {
  std::string word;
  bool inWord = false;
  char quote = 0;
  for (char c : command) {
    if (quote != 0) {
      if (c == quote) {
        quote = 0;
      } else {
        word.push_back(c);
      }
    } else if (c == '\'' || c == '"') {
      quote = c;
      inWord = true;
    } else if (c == ' ' || c == '\t') {
      if (inWord) words.push_back(word);
      word.clear();
      inWord = false;
    } else {
      word.push_back(c);
      inWord = true;
    }
  }
  if (inWord) words.push_back(word);
  return quote == 0;
}

// The options: each one's name, the name of its value (null when it takes none), its help text
// (later lines indented), and either the flag it sets or what it does, which returns false
// after saying what is wrong.
struct OptionEntry {
  const char* name;
  const char* value;
  const char* help;
  bool Options::*flag;
  bool (*set)(Options& options, const char* value) = nullptr;
};

const OptionEntry kOptionTable[] = {
    {"--recursive", nullptr, "also watch sub-directories", &Options::recursive},
    {"--group-folders", nullptr,
     "deliver each sub-directory as one unit (its path ends in \"/\"), at the\n"
     "first scan that finds it holding files and every file directly inside it,\n"
     "as present at that scan, complete; its own sub-directories are not checked,\n"
     "and files added to it after its delivery go unnoticed",
     &Options::groupFolders},
    {"--period", "MS", "scan every MS milliseconds (default 1000; the first scan after 1 s)",
     nullptr,
     [](Options& o, const char* v) {
       char* end = nullptr;
       const long ms = std::strtol(v, &end, 10);
       if (*v == '\0' || *end != '\0' || ms < 1 || ms > 86400000) {
         return Fail("--period takes milliseconds, 1 to 86400000");
       }
       o.period = static_cast<int>(ms);
       return true;
     }},
    {"--ignore", "GLOB",
     "skip delivered entries whose name matches the shell pattern GLOB, as\n"
     "'*.gz' (a GLOB holding \"/\" is matched against the path below DIRECTORY);\n"
     "repeatable. Names starting with \".\" are always skipped",
     nullptr,
     [](Options& o, const char* v) {
       if (*v == '\0') return Fail("--ignore needs a pattern");
       o.ignore.emplace_back(v);
       return true;
     }},
    {"--exec", "'CMD {}'",
     "run CMD for each delivered path ({} is replaced by the path; without\n"
     "{} the path is appended) and report its exit status; no shell is used",
     nullptr,
     [](Options& o, const char* v) {
       std::vector<std::string> words;
       if (!Words(v, words)) return Fail("--exec: a quote does not close");
       if (words.empty()) return Fail("--exec needs a command");
       o.exec = v;
       return true;
     }},
    {"--claim", "DIR",
     "move each delivered file into DIR before handling it, and hand the command\n"
     "the moved path; a file that another instance moved first is skipped without\n"
     "a word. The move is a rename: DIR must be on the watched folder's file\n"
     "system, and inside the watched folder its name must start with \".\". A\n"
     "missing DIR is made, with the marker file .vantu-hotfolder-claim in it; an\n"
     "existing DIR must be empty or hold that marker. Each instance needs a DIR of\n"
     "its own, locked while the tool runs (a start waits up to 10 s for an\n"
     "instance that is still stopping). Files found in DIR at start were left by a\n"
     "run that stopped before finishing them: they are handled first. A handled\n"
     "file leaves DIR: deleted (--delete, after a successful command), else moved\n"
     "to DIR/done/, or to DIR/failed/ when its command failed or could not start\n"
     "(a name taken there gets ~1, ~2... before its extension, shortened to stay\n"
     "within 255 bytes); a command cut short by a stop of the tool leaves its file\n"
     "in DIR. So each file is handled exactly once while instances run, at least\n"
     "once across crashes. Not with --group-folders",
     nullptr,
     [](Options& o, const char* v) {
       if (*v == '\0') return Fail("--claim needs a directory");
       o.claim = v;
       return true;
     }},
    {"--follow-links", nullptr,
     "for trusted folders: also deliver what a symbolic link that leads out of\n"
     "DIRECTORY points to, under the link's path (by default such a link is\n"
     "skipped). --delete and --claim still act on the link itself, never on\n"
     "its target, and leave a file reached through a linked folder alone",
     &Options::followLinks},
    {"--shell", nullptr, "run the --exec command through /bin/sh -c", &Options::shell},
    {"--delete", nullptr,
     "delete a delivered entry after its command succeeded (needs --exec): a link\n"
     "as itself, never its target; an entry that cannot be deleted is reported,\n"
     "and not handled again before a restart",
     &Options::deleteAfter},
    {"--keep", nullptr, "keep it (the default)", nullptr,
     [](Options& o, const char*) {
       o.deleteAfter = false;
       return true;
     }},
    {"--log", "DIR",
     "log deliveries, claims, commands' results, deletes, moves and problems to\n"
     "DIR/vantu-hotfolder.log",
     nullptr,
     [](Options& o, const char* v) {
       if (*v == '\0') return Fail("--log needs a directory");
       o.logDir = v;
       return true;
     }},
    {"--log-level", "LEVEL",
     "what the log keeps: fatal, critical, error, warning (failed commands and\n"
     "deletes), notice (the default: also deliveries and results), information\n"
     "(also the hot folder's trace of every step of every scan; the default with\n"
     "--verbose), debug, trace, or 1 to 8 in that order",
     nullptr,
     [](Options& o, const char* v) {
       o.logLevel = LevelOf(v);
       return o.logLevel != 0 || Fail(std::string("unknown log level ") + v);
     }},
    {"--once", nullptr, "scan once, handle what was delivered, and exit", &Options::once},
    {"--no-wake", nullptr,
     "scan on the timer only. By default a scan also runs soon after a file in\n"
     "the watched folders is closed after writing, moved in or deleted\n"
     "(inotify), so a file is handled about half a second after its writer\n"
     "closed it; the timer's scans stay as the safety net (network file systems\n"
     "report no changes: there the period is what counts)",
     &Options::noWake},
    {"--json", nullptr,
     "print one JSON object per delivery; a path's bytes that are not UTF-8 are\n"
     "written as \\udc80 to \\udcff (one lone surrogate per byte, as Python's\n"
     "\"surrogateescape\": os.fsencode gives the bytes back)",
     &Options::json},
    {"--null", nullptr,
     "end each output record with NUL instead of a newline, and separate its\n"
     "fields (path, claimed path, result, deleted, moved to) with NUL instead\n"
     "of a tab (as find -print0), so that names holding newlines or tabs read\n"
     "back unchanged",
     &Options::null},
    {"--verbose", nullptr,
     "also say why a file still waits (held open by a writer, still growing,\n"
     "empty, unreadable) and why a link is skipped",
     &Options::verbose},
};

const char kUsageHead[] =
    "Usage: vantu-hotfolder [options] [DIRECTORY]\n"
    "Watches DIRECTORY (default ./inbox, created if missing) and prints the path of each file\n"
    "that arrives in it, once the file is complete: no process holds it open for writing, it is\n"
    "not empty, and its size stays the same for half a second.\n"
    "\n";

const char kUsageTail[] =
    "  --help             show this text\n"
    "\n"
    "Output: each delivered path; with --exec, PATH<TAB>exit N (N is the command's exit status,\n"
    "128+n when a signal n ended it), then <TAB>deleted or <TAB>not deleted: ERROR with\n"
    "--delete; PATH<TAB>not run: ERROR when the command could not start. With --claim:\n"
    "PATH<TAB>CLAIMED, then the command's result, then <TAB>moved to WHERE when the file went to\n"
    "done/ or failed/; PATH is empty for a file found in the claim folder at start, and a file\n"
    "that could not be claimed gives PATH<TAB><TAB>not claimed: ERROR. --json adds \"claimed\"\n"
    "(and \"moved\"), with \"path\": null for a file found in the claim folder.\n"
    "\n"
    "Exit status: 0 when every command ran and succeeded; 1 when a command failed or could not\n"
    "start, a delete, claim or move failed, the output could not be written, or a replaced\n"
    "watched or claim folder could not be opened again; 2 for bad options, or a DIRECTORY\n"
    "(as an unreadable one), --claim folder or --log that cannot be used.\n"
    "\n"
    "SIGINT and SIGTERM stop it: no command starts after the signal, the running command\n"
    "receives it (a signal from the terminal reaches it directly), the log is written out, and\n"
    "the tool ends by the same signal. A second signal ends it at once. Commands start with no\n"
    "signal blocked, and SIGINT, SIGTERM and SIGPIPE at their default action.\n"
    "\n"
    "The tool knows what it handled only while it runs: a restart delivers again every file\n"
    "still in the folder, unless it was deleted, moved away or claimed (--claim).\n"
    "\n"
    "Writers are seen through file leases. For a file that belongs to another user this needs\n"
    "CAP_LEASE; without it, the writers of other users are invisible, and on file systems\n"
    "without leases (NFS) all remote writers are: for those files only the half-second size\n"
    "test protects a file still being written.\n";

void PrintUsage(FILE* to) {
  std::fputs(kUsageHead, to);
  for (const OptionEntry& option : kOptionTable) {
    std::string head = std::string("  ") + option.name;
    if (option.value != nullptr) head += std::string(" ") + option.value;
    std::fprintf(to, "%-21s", head.c_str());
    for (const char* c = option.help; *c != '\0'; ++c) {
      std::fputc(*c, to);
      if (*c == '\n') std::fputs("                     ", to);
    }
    std::fputc('\n', to);
  }
  std::fputs(kUsageTail, to);
}

// Options that only make sense together.
bool Check(const Options& o) {
  if (o.shell && o.exec.empty()) return Fail("--shell needs --exec");
  if (o.deleteAfter && o.exec.empty()) {
    return Fail("--delete needs --exec: a file is deleted after its command succeeded");
  }
  if (!o.claim.empty() && o.groupFolders) {
    return Fail("--claim moves single files: it does not take --group-folders");
  }
  if (o.null && o.json) return Fail("--null is for the plain output, not --json");
  if (o.logLevel != 0 && o.logDir.empty()) return Fail("--log-level needs --log");
  if (o.verbose && o.logLevel != 0 && o.logLevel < kInformation) {
    return Fail("--verbose reads the trace written at level information");
  }
  return true;
}

bool Parse(int argc, char** argv, Options& options) {
  bool sawDirectory = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      PrintUsage(stdout);
      std::exit(0);
    }
    if (arg.size() > 1 && arg[0] == '-') {
      const OptionEntry* option = nullptr;
      for (const OptionEntry& entry : kOptionTable) {
        if (arg == entry.name) option = &entry;
      }
      if (option == nullptr) {
        Fail("unknown option " + arg);
        PrintUsage(stderr);
        return false;
      }
      const char* value = nullptr;
      if (option->value != nullptr) {
        if (i + 1 >= argc) return Fail(arg + " needs a value");
        value = argv[++i];
      }
      if (option->flag != nullptr) {
        options.*option->flag = true;
      } else if (!option->set(options, value)) {
        return false;
      }
    } else if (!sawDirectory) {
      options.directory = arg;
      sawDirectory = true;
    } else {
      return Fail("one directory only");
    }
  }
  return Check(options);
}

// One thing the scans hand to the main thread.
struct Item {
  std::string text;
  bool delivery;             // a delivered path; else a note on a waiting file
  std::string claimed = {};  // a file found in the claim folder at start (text is empty)
};

// What the scans deliver, the stop request and the running command, shared by the scans, the
// main thread and the signal thread.
class Session {
 public:
  void Push(Item item) {
    std::lock_guard<std::mutex> lock(mutex_);
    items_.push_back(std::move(item));
    changed_.notify_all();
  }
  // No more items will come (--once).
  void Finish() {
    std::lock_guard<std::mutex> lock(mutex_);
    finished_ = true;
    changed_.notify_all();
  }
  // Waits for the next item; false once stopped, or finished and drained.
  bool Take(Item& item) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return stopped_ || finished_ || !items_.empty(); });
    if (stopped_ || items_.empty()) return false;
    item = std::move(items_.front());
    items_.pop_front();
    return true;
  }
  // Asks for a stop (signal 0: the output failed) and passes the signal on to the running
  // command when `forward`. The first request's signal is kept.
  void Stop(int signal, bool forward) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (forward && child_ > 0) ::kill(child_, signal);
    if (!stopped_) {
      stopped_ = true;
      signal_ = signal;
    }
    changed_.notify_all();
  }
  bool Stopping() {
    std::lock_guard<std::mutex> lock(mutex_);
    return stopped_;
  }
  int StopSignal() {
    std::lock_guard<std::mutex> lock(mutex_);
    return signal_;
  }
  // Starts a command unless a stop was asked for: posix_spawnp's result, or ECANCELED.
  int Spawn(char* const argv[], const posix_spawnattr_t* attributes, pid_t& child) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopped_) return ECANCELED;
    const int error = ::posix_spawnp(&child, argv[0], nullptr, attributes, argv, environ);
    if (error == 0) child_ = child;
    return error;
  }
  // The command has ended (not reaped yet, so its pid cannot be reused meanwhile).
  void Ended() {
    std::lock_guard<std::mutex> lock(mutex_);
    child_ = 0;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Item> items_;
  bool finished_ = false;
  bool stopped_ = false;
  int signal_ = 0;
  pid_t child_ = 0;
};

Session g_session;
bool g_failed = false;  // main thread only

int OnDelivery(const char* path, int length, void*) {
  g_session.Push({std::string(path, static_cast<size_t>(length)), true});
  return 0;
}

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

// The length of the well-formed UTF-8 sequence at text[at], or 0 when there is none.
size_t Utf8Length(const std::string& text, size_t at) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at);
  if (lead < 0x80) return 1;
  size_t length = 0;
  unsigned char low = 0x80;  // the second byte's range
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;   // no overlong forms
    if (lead == 0xED) high = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;  // nothing above U+10FFFF
  } else {
    return 0;
  }
  if (at + length > text.size() || byte(at + 1) < low || byte(at + 1) > high) return 0;
  for (size_t i = 2; i < length; ++i) {
    if (byte(at + i) < 0x80 || byte(at + i) > 0xBF) return 0;
  }
  return length;
}

// A JSON string of the bytes; a byte outside well-formed UTF-8 becomes \udcXX.
std::string JsonString(const std::string& text) {
  std::string out = "\"";
  char buffer[8];
  for (size_t i = 0; i < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    const size_t length = Utf8Length(text, i);
    if (length == 0) {
      std::snprintf(buffer, sizeof(buffer), "\\udc%02x", c);
      out += buffer;
      ++i;
      continue;
    }
    if (length > 1) {
      out.append(text, i, length);
    } else if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20) {
      std::snprintf(buffer, sizeof(buffer), "\\u%04x", c);
      out += buffer;
    } else {
      out += static_cast<char>(c);
    }
    i += length;
  }
  return out + "\"";
}

std::string ShellQuoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

// Writes to the log, if there is one.
void Record(void (VLog::*write)(const std::string&), const std::string& text) {
  if (VLog* log = VLog::GetCurrent()) (log->*write)(text);
}

sigset_t g_signals;  // SIGINT and SIGTERM, blocked in every thread

// Ends the process by `signal`'s default action, as a caller's shell expects of a tool that
// a signal stopped.
[[noreturn]] void EndBy(int signal) {
  ::signal(signal, SIG_DFL);
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal);
  pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  ::raise(signal);
  std::_Exit(128 + signal);
}

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

// Runs the --exec command for one path, with a clean signal state. False when a stop came
// before it started.
bool Run(const Options& options, const std::string& path, Result& result) {
  std::vector<std::string> argv;
  if (options.shell) {
    std::string command = options.exec;
    const size_t at = command.find("{}");
    if (at == std::string::npos) {
      command += " " + ShellQuoted(path);
    } else {
      for (size_t p = at; p != std::string::npos; p = command.find("{}", p)) {
        command.replace(p, 2, ShellQuoted(path));
        p += ShellQuoted(path).size();
      }
    }
    argv = {"/bin/sh", "-c", command};
  } else {
    Words(options.exec, argv);
    bool replaced = false;
    for (auto& word : argv) {
      for (size_t p = word.find("{}"); p != std::string::npos; p = word.find("{}", p)) {
        word.replace(p, 2, path);
        p += path.size();
        replaced = true;
      }
    }
    if (!replaced) argv.push_back(path);
  }
  std::vector<char*> raw;
  for (auto& word : argv) raw.push_back(word.data());
  raw.push_back(nullptr);

  // The tool blocks SIGINT and SIGTERM, POCO blocks SIGPIPE, and a shell may have left SIGINT
  // ignored: none of that reaches the command.
  static const posix_spawnattr_t* const attributes = [] {
    static posix_spawnattr_t made;
    ::posix_spawnattr_init(&made);
    sigset_t none;
    sigemptyset(&none);
    sigset_t reset;
    sigemptyset(&reset);
    for (int s : {SIGINT, SIGTERM, SIGPIPE}) sigaddset(&reset, s);
    ::posix_spawnattr_setsigmask(&made, &none);
    ::posix_spawnattr_setsigdefault(&made, &reset);
    ::posix_spawnattr_setflags(&made, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    return &made;
  }();
  pid_t child = 0;
  const int error = g_session.Spawn(raw.data(), attributes, child);
  if (error == ECANCELED) return false;
  if (error != 0) {
    result.error = "cannot run " + argv[0] + ": " + std::strerror(error);
    return true;
  }
  siginfo_t info{};
  while (::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) < 0 &&
         errno == EINTR) {
  }
  g_session.Ended();
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  result.ran = true;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return true;
}

// The watched folder, opened at start: deletes and claims act relative to its descriptor, so a
// link planted or swapped in there never leads them out of it. Its identity tells when the folder
// at its path was replaced (deleted and made again, or renamed away).
struct WatchedFolder {
  std::string path;
  int fd = -1;
};
WatchedFolder g_watched;

// --claim's folder: its path, and descriptors of it, of its done/ and failed/ folders and of its
// lock, kept for the run.
struct ClaimFolder {
  std::string path;
  int fd = -1;
  int done = -1;
  int failed = -1;
  int lock = -1;
};
ClaimFolder g_claim;

// Opens the watched folder (again); false after saying why.
bool OpenWatched(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return Fail("cannot read directory " + path + ": " + std::strerror(errno));
  if (g_watched.fd >= 0) ::close(g_watched.fd);
  g_watched = {path, fd};
  return true;
}

// Whether `fd` is still the folder at `path`.
bool SameFolder(const std::string& path, int fd) {
  struct stat now;
  struct stat opened;
  return ::stat(path.c_str(), &now) == 0 && ::fstat(fd, &opened) == 0 &&
         now.st_dev == opened.st_dev && now.st_ino == opened.st_ino;
}

// An errno value of its own: a link (or a file) where a delivered path goes through a folder.
constexpr int kLinkOnTheWay = -1;

std::string Describe(int error) {
  return error == kLinkOnTheWay ? "a symbolic link on its way is not followed"
                                : std::strerror(error);
}

// The folder that holds a delivered entry, opened from the watched folder's descriptor one
// sub-folder at a time without following links, and the entry's name in it; error is 0 or an
// errno value.
class Parent {
 public:
  explicit Parent(std::string path) {
    const std::string& root = g_watched.path;
    if (path.size() > 1 && path.back() == '/') path.pop_back();
    if (path.size() <= root.size() + 1 || path.compare(0, root.size(), root) != 0 ||
        path[root.size()] != '/') {
      error = EINVAL;
      return;
    }
    size_t from = root.size() + 1;
    for (size_t slash; (slash = path.find('/', from)) != std::string::npos; from = slash + 1) {
      const int next = ::openat(fd, path.substr(from, slash - from).c_str(),
                                O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (next < 0) {
        error = errno == ENOTDIR || errno == ELOOP ? kLinkOnTheWay : errno;
        return;
      }
      Close();
      fd = next;
      owned_ = true;
    }
    name = path.substr(from);
    if (name == "." || name == "..") error = EINVAL;
  }
  Parent(const Parent&) = delete;
  Parent& operator=(const Parent&) = delete;
  ~Parent() { Close(); }

  int fd = g_watched.fd;
  std::string name;
  int error = 0;

 private:
  void Close() {
    if (owned_) ::close(fd);
  }
  bool owned_ = false;
};

bool OpenClaim(const Options& options);

// Whether the watched folder or the claim folder was replaced since it was opened (deleted and
// made again, or renamed away): then it is opened again at its path (the claim folder made again
// if missing), and true. One that cannot be opened again stops the tool with status 1, so that a
// supervisor restarts it. While no folder is at the watched path there is nothing to open.
bool Reopened(const Options& options) {
  struct stat info;
  if (::stat(g_watched.path.c_str(), &info) != 0) return false;
  const bool watched = !SameFolder(g_watched.path, g_watched.fd);
  const bool claim = !options.claim.empty() && !SameFolder(g_claim.path, g_claim.fd);
  if (!watched && !claim) return false;
  if ((watched && !OpenWatched(g_watched.path)) || (claim && !OpenClaim(options))) {
    g_failed = true;
    g_session.Stop(0, false);
    return false;
  }
  Record(&VLog::Warning, std::string(watched ? "The watched folder " + g_watched.path
                                             : "The claim folder " + g_claim.path) +
                             " was replaced: opened again");
  return true;
}

// Deletes a delivered entry (a link itself, never what it points to; a folder with its content),
// or a claimed file in the claim folder. A delivered entry, once gone, leaves the hot folder's
// list, so that a new file of the same name is delivered; one that cannot be deleted stays
// listed, so that its command does not run again at every scan.
void Delete(const Options& options, VHotfolder& folder, const std::string& path, bool claimed,
            Result& result) {
  int error = 0;
  if (claimed) {
    const std::string name = path.substr(g_claim.path.size() + 1);
    if (::unlinkat(g_claim.fd, name.c_str(), 0) != 0) error = errno;
  }
  for (int attempt = 0; !claimed && attempt < 2; ++attempt) {
    Parent parent(path);
    struct stat info;
    error = parent.error;
    if (error == 0 && ::fstatat(parent.fd, parent.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      error = errno;
    } else if (error == 0 && S_ISDIR(info.st_mode)) {
      // Through the descriptor's own name, which no link can redirect; the removal enters
      // sub-folders without following links.
      const std::string at = "/proc/self/fd/" + std::to_string(parent.fd) + "/" + parent.name;
      try {
        VFile(VPath::FromFileSystem(at)).Remove(true);
      } catch (const VException& e) {
        result.error = std::string(e.Name()) + ": " + e.Message();
        return;
      }
    } else if (error == 0 && ::unlinkat(parent.fd, parent.name.c_str(), 0) != 0) {
      error = errno;
    }
    if (error != ENOENT || !Reopened(options)) break;
  }
  if (error != 0) {
    result.error = Describe(error);
    return;
  }
  result.deleted = true;
  Record(&VLog::Notice, "Deleted " + path);
  if (claimed) return;  // never in the list: the claim took it out
  // The list matches a directory entry in directory form only while it is a directory.
  const bool directory = path.size() > 1 && path.back() == '/';
  folder.Remove(VFile(VPath::FromFileSystem(directory ? path.substr(0, path.size() - 1) : path)),
                true);
}

// rename(2) that never replaces an entry: 0, or an errno value (EEXIST when `to` exists). File
// systems without RENAME_NOREPLACE (NFS, SMB) get a test and a plain rename: only this
// instance writes into its claim folder, which it holds locked.
int RenameNoReplace(int fromDir, const char* from, int toDir, const char* to) {
  if (::renameat2(fromDir, from, toDir, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  struct stat info;
  if (::fstatat(toDir, to, &info, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return ::renameat(fromDir, from, toDir, to) == 0 ? 0 : errno;
}

// Moves `from` into the folder `toDir` under `name`, or, when that name is taken, under
// name~1.ext, name~2.ext... (the number before the last extension, the part before it shortened
// at a character's start when the name would pass NAME_MAX bytes). Returns 0 and sets `used`,
// or an errno value.
int MoveInto(int fromDir, const std::string& from, int toDir, const std::string& name,
             std::string& used) {
  size_t dot = name.rfind('.');
  if (dot == 0 || dot == std::string::npos || name.size() - dot > NAME_MAX / 2) dot = name.size();
  for (int n = 0; n < 100000; ++n) {
    used = name;
    if (n > 0) {
      const std::string tail = "~" + std::to_string(n) + name.substr(dot);
      size_t keep = std::min(dot, NAME_MAX - tail.size());
      while (keep > 0 && (static_cast<unsigned char>(name[keep]) & 0xC0) == 0x80) --keep;
      used = name.substr(0, keep) + tail;
    }
    const int error = RenameNoReplace(fromDir, from.c_str(), toDir, used.c_str());
    if (error != EEXIST) return error;
  }
  return EEXIST;
}

// Moves a delivered file (a link as itself) into the claim folder and has it taken out of the
// hot folder's list, so that a new file of the same name is delivered. False when the file is
// gone (another instance claimed it): nothing is reported, and the next scan drops it from the
// list. A failed claim leaves the file listed, so that it is not tried again at every scan.
bool Claim(const Options& options, VHotfolder& folder, const std::string& path, Result& result) {
  std::string name;
  int error = 0;
  bool gone = false;
  for (int attempt = 0; attempt < 2; ++attempt) {
    Parent parent(path);
    error = parent.error != 0 ? parent.error
                              : MoveInto(parent.fd, parent.name, g_claim.fd, parent.name, name);
    struct stat info;
    gone = error == ENOENT && (parent.error != 0 || (::fstatat(parent.fd, parent.name.c_str(),
                                                               &info, AT_SYMLINK_NOFOLLOW) != 0 &&
                                                     errno == ENOENT));
    if (error != ENOENT || !Reopened(options)) break;
  }
  if (gone) return false;
  if (error == 0) {
    folder.Remove(VFile(VPath::FromFileSystem(path)), true);
    result.claimed = g_claim.path + "/" + name;
    Record(&VLog::Notice, "Claimed " + path + " as " + result.claimed);
  } else {
    result.claimError = Describe(error);
    Record(&VLog::Error, "Cannot claim " + path + ": " + result.claimError);
  }
  return true;
}

// Takes a handled file out of the claim folder's top level, into done/ or, when its command
// failed or could not start, failed/. A command that failed after a stop was asked for was
// most likely ended by it: its file stays, and the next start handles it again.
void Settle(const Options& options, Result& result) {
  const bool succeeded = options.exec.empty() || (result.ran && result.status == 0);
  if (!succeeded && g_session.Stopping()) return;
  const bool done = succeeded && result.error.empty();
  const std::string name = result.claimed.substr(g_claim.path.size() + 1);
  std::string used;
  const int error = MoveInto(g_claim.fd, name, done ? g_claim.done : g_claim.failed, name, used);
  if (error == 0) {
    result.moved = g_claim.path + (done ? "/done/" : "/failed/") + used;
    Record(&VLog::Notice, "Moved " + result.claimed + " to " + result.moved);
  } else {
    result.moveError = std::strerror(error);
    Record(&VLog::Error, "Cannot move " + result.claimed + ": " + result.moveError);
  }
}

// Marks a folder that the tool made as its claim folder: only there are files found at start
// taken as left by an earlier run.
const char kMarker[] = ".vantu-hotfolder-claim";

// Takes the claim folder's lock, waiting up to 10 s for an instance that is still stopping (as
// one being restarted: its lock goes only once it has fully exited). SIGINT and SIGTERM end the
// wait and the tool.
bool Lock(int fd, const std::string& path) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (bool said = false; ::flock(fd, LOCK_EX | LOCK_NB) != 0;) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      return Fail("cannot lock " + path + "/.lock: " + std::strerror(errno));
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      return Fail("claim folder " + path +
                  " is in use by another instance: each instance needs its own");
    }
    if (!said) {
      std::fprintf(stderr,
                   "vantu-hotfolder: claim folder %s is locked by another instance: waiting up "
                   "to 10 s for it\n",
                   path.c_str());
      said = true;
    }
    const timespec step{0, 50000000};
    const int signal = ::sigtimedwait(&g_signals, nullptr, &step);
    if (signal > 0) EndBy(signal);
  }
  return true;
}

// Whether the folder holds no entry at all.
bool Empty(int fd) {
  const int listed = ::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* dir = listed < 0 ? nullptr : ::fdopendir(listed);
  if (dir == nullptr) {
    if (listed >= 0) ::close(listed);
    return false;
  }
  bool empty = true;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") empty = false;
  }
  ::closedir(dir);
  return empty;
}

// Opens --claim DIR (see --help), again when it was replaced, and queues the files that an
// earlier run left in it. DIR is made only once the checks pass.
bool OpenClaim(const Options& options) {
  for (int* fd : {&g_claim.fd, &g_claim.done, &g_claim.failed, &g_claim.lock}) {
    if (*fd >= 0) ::close(*fd);
    *fd = -1;
  }
  std::error_code error;
  const std::string watched = std::filesystem::canonical(g_watched.path, error);
  struct stat watchedInfo;
  if (error || ::fstat(g_watched.fd, &watchedInfo) != 0) {
    return Fail("cannot use directory " + g_watched.path);
  }
  // Inside the watched folder only below a dot-name. Tested before DIR is made and again once
  // links in its path are resolved.
  const auto misplaced = [&](const std::string& path) {
    if (path != watched && path.compare(0, watched.size() + 1, watched + "/") != 0) return false;
    if (path.find("/.", watched.size()) != std::string::npos) return false;
    return !Fail("--claim folder " + path +
                 " lies inside the watched folder, where its files would be delivered again: "
                 "use a folder whose name starts with \".\", as " +
                 watched + "/.claimed");
  };
  std::filesystem::path planned = std::filesystem::weakly_canonical(options.claim, error);
  if (misplaced(planned)) return false;
  struct stat info;
  while (::stat(planned.c_str(), &info) != 0 && planned.has_relative_path()) {
    planned = planned.parent_path();  // where DIR would be made
  }
  const auto elsewhere = [&](const std::string& path) {
    return info.st_dev != watchedInfo.st_dev &&
           !Fail("--claim folder " + path + " is on another file system than " + watched +
                 ": files cannot be renamed into it");
  };
  if (elsewhere(planned)) return false;
  const bool made = std::filesystem::create_directories(options.claim, error);
  const std::string path = std::filesystem::canonical(options.claim, error);
  if (error || !std::filesystem::is_directory(path)) {
    return Fail("cannot use --claim folder " + options.claim);
  }
  if (misplaced(path)) return false;
  g_claim.path = path;
  g_claim.fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (g_claim.fd < 0 || ::fstat(g_claim.fd, &info) != 0) {
    return Fail("cannot open --claim folder " + path + ": " + std::strerror(errno));
  }
  if (elsewhere(path)) return false;
  if (!made && ::faccessat(g_claim.fd, kMarker, F_OK, AT_SYMLINK_NOFOLLOW) != 0 &&
      !Empty(g_claim.fd)) {
    return Fail("--claim folder " + path + " holds entries but was not made by vantu-hotfolder (" +
                kMarker + " is missing in it): name a new or empty folder");
  }
  const int marker =
      ::openat(g_claim.fd, kMarker, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (marker < 0)
    return Fail("cannot create " + path + "/" + kMarker + ": " + std::strerror(errno));
  ::close(marker);
  g_claim.lock = ::openat(g_claim.fd, ".lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (g_claim.lock < 0) return Fail("cannot create " + path + "/.lock: " + std::strerror(errno));
  if (!Lock(g_claim.lock, path)) return false;
  for (const char* sub : {"done", "failed"}) {
    if (::mkdirat(g_claim.fd, sub, 0777) != 0 && errno != EEXIST) {
      return Fail("cannot create " + path + "/" + sub + ": " + std::strerror(errno));
    }
    (sub[0] == 'd' ? g_claim.done : g_claim.failed) =
        ::openat(g_claim.fd, sub, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  }
  if (g_claim.done < 0 || g_claim.failed < 0) {
    return Fail("cannot open " + path + "/done and /failed: " + std::strerror(errno));
  }
  std::vector<std::string> left;
  for (const auto& entry : std::filesystem::directory_iterator(path, error)) {
    const std::string name = entry.path().filename();
    if (name[0] != '.' &&
        entry.symlink_status(error).type() == std::filesystem::file_type::regular) {
      left.push_back(entry.path());
    }
  }
  std::sort(left.begin(), left.end());
  for (const std::string& file : left) g_session.Push({std::string(), true, file});
  return true;
}

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

std::string Now() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  char buffer[32];
  std::strftime(buffer, sizeof(buffer), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return buffer;
}

// Writes one record to stdout; output that cannot be written stops the tool, as nobody would
// learn what the next commands did.
void Write(const std::string& record) {
  if (std::fwrite(record.data(), 1, record.size(), stdout) == record.size() &&
      std::fflush(stdout) == 0) {
    return;
  }
  const int error = errno;
  std::fprintf(stderr, "vantu-hotfolder: cannot write the output: %s\n", std::strerror(error));
  g_failed = true;
  g_session.Stop(0, false);
}

void Report(const Options& options, const std::string& path, const Result& result) {
  const bool exec = !options.exec.empty();
  std::string record;
  if (options.json) {
    record = "{\"path\": " + (path.empty() ? "null" : JsonString(path));
    if (!options.claim.empty()) record += ", \"claimed\": " + JsonString(result.claimed);
    record += ", \"time\": \"" + Now() + "\"";
    std::error_code error;
    const std::string& now = result.moved.empty() ? path : result.moved;
    if (std::filesystem::is_regular_file(now, error)) {
      const auto size = std::filesystem::file_size(now, error);
      if (!error) record += ", \"size\": " + std::to_string(size);
    }
    if (!result.claimError.empty()) record += ", \"error\": " + JsonString(result.claimError);
    if (exec && result.claimError.empty()) {
      record += ", \"status\": " + (result.ran ? std::to_string(result.status) : "null") +
                ", \"deleted\": " + (result.deleted ? "true" : "false");
      if (!result.error.empty()) record += ", \"error\": " + JsonString(result.error);
    }
    if (!result.moved.empty()) record += ", \"moved\": " + JsonString(result.moved);
    if (!result.moveError.empty()) record += ", \"moveError\": " + JsonString(result.moveError);
    record += "}\n";
  } else {
    const char separator = options.null ? '\0' : '\t';
    record = path;
    if (!options.claim.empty()) record += separator + result.claimed;
    if (!result.claimError.empty()) {
      record += separator + ("not claimed: " + result.claimError);
    } else if (exec) {
      record += separator;
      if (!result.ran) {
        record += "not run: " + result.error;
      } else {
        record += "exit " + std::to_string(result.status);
        if (result.deleted) record += separator + std::string("deleted");
        if (!result.error.empty()) record += separator + ("not deleted: " + result.error);
      }
    }
    if (!result.moved.empty()) record += separator + ("moved to " + result.moved);
    if (!result.moveError.empty()) record += separator + ("not moved: " + result.moveError);
    record += options.null ? '\0' : '\n';
  }
  Write(record);
}

std::map<std::string, std::string> g_waiting;

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

// g_waiting holds the last reason printed for each waiting or skipped path: a reason is printed
// again only when it changes.
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

// The signal thread: the first SIGINT or SIGTERM stops the tool, a second one ends it at once.
// Each is passed on to the running command, unless the terminal sent it: the terminal signals
// the whole foreground process group, command included. The main thread ends this thread
// with a SIGTERM of its own, the only one that carries this process's id.
void WatchSignals(sigset_t signals) {
  for (int received = 0;;) {
    siginfo_t info{};
    const int signal = ::sigwaitinfo(&signals, &info);
    if (signal < 0) continue;
    if (info.si_code != SI_KERNEL && info.si_pid == ::getpid()) return;
    g_session.Stop(signal, info.si_code != SI_KERNEL);
    if (++received == 2) EndBy(signal);
  }
}

// The log goes to --log DIR, or with --verbose alone to a private folder removed at exit.
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

}  // namespace

int main(int argc, char** argv) {
  // Blocked here, before any thread starts, so that only the signal thread takes them.
  sigemptyset(&g_signals);
  sigaddset(&g_signals, SIGINT);
  sigaddset(&g_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &g_signals, nullptr);

  Options options;
  if (!Parse(argc, argv, options)) return 2;
  std::error_code error;
  std::filesystem::create_directories(options.directory, error);
  if (!std::filesystem::is_directory(options.directory)) {
    Fail("cannot use directory " + options.directory);
    return 2;
  }
  // Resolved, as the hot folder resolves the links inside it: every path it delivers starts
  // with this one, and a file is not delivered again under a second spelling.
  const std::string resolved = std::filesystem::canonical(options.directory, error);
  if (error) {
    Fail("cannot use directory " + options.directory + ": " + error.message());
    return 2;
  }
  options.directory = resolved;
  if (!OpenWatched(options.directory)) return 2;
  std::string privateLog;
  std::unique_ptr<VLog> log;
  if (!OpenLog(options, log, privateLog)) return 2;

  if (!options.claim.empty() && !OpenClaim(options)) return 2;

  std::thread signalThread(WatchSignals, g_signals);
  VHotfolder folder;
  folder.SetPath(VPath::FromFileSystem(options.directory));
  folder.SetTimeMilliseconds(options.period);
  folder.SetRecursive(options.recursive);
  folder.SetGroupFolders(options.groupFolders);
  folder.SetCallback(OnDelivery);
  folder.Enable(true);
  folder.SetWakeOnChange(!options.noWake);
  folder.SetFollowLinks(options.followLinks);
  folder.SetDotRuleBelowFolderOnly(true);  // a watched folder below a dot-directory works
  std::thread scanner;
  if (options.once) {
    scanner = std::thread([&folder] {
      folder.CheckFolderChanges();
      g_session.Finish();
    });
  } else {
    folder.Start();
    std::fprintf(stderr, "vantu-hotfolder: watching %s (Ctrl-C to stop)\n",
                 options.directory.c_str());
  }
  Item item;
  while (g_session.Take(item)) {
    item.delivery ? Handle(options, folder, item) : Note(options, item.text);
  }
  folder.Stop();  // ends a scan in progress
  if (scanner.joinable()) scanner.join();

  VLog::SetCurrent(nullptr);
  log.reset();  // every queued line written
  if (!privateLog.empty()) std::filesystem::remove_all(privateLog, error);
  pthread_kill(signalThread.native_handle(), SIGTERM);
  signalThread.join();
  if (const int signal = g_session.StopSignal()) EndBy(signal);
  return g_failed ? 1 : 0;
}
