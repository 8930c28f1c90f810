// The option table, the usage text printed from it, and the parsing of the command line.
#include "Options.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Messages.h"

namespace hotfolder {
namespace {

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

}  // namespace

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

}  // namespace hotfolder
