// vantu-hotfolder: watches a directory and prints each complete file that arrives in it.
//
// Built on libvantu's public classes only: a VHotfolder finds and delivers the files, a VLog
// records the hot folder's trace (with --log, or --verbose, which reads the same trace to say
// why a file still waits).
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
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

#include <vantu/VFile.h>
#include <vantu/VHotfolder.h>
#include <vantu/VLog.h>

extern char** environ;

namespace {

const char kUsage[] =
    "Usage: vantu-hotfolder [options] [DIRECTORY]\n"
    "Watches DIRECTORY (default ./inbox, created if missing) and prints the path of each file\n"
    "that arrives in it, once the file is complete: no process holds it open for writing, it is\n"
    "not empty, and its size stays the same for half a second.\n"
    "\n"
    "  --recursive        also watch sub-directories\n"
    "  --group-folders    deliver each sub-directory as one unit once all its files are complete\n"
    "  --period MS        scan every MS milliseconds (default 1000; the first scan after 1 s)\n"
    "  --exec 'CMD {}'    run CMD for each delivered path ({} is replaced by the path; without\n"
    "                     {} the path is appended) and report its exit status; no shell is used\n"
    "  --shell            run the --exec command through /bin/sh -c\n"
    "  --delete           delete a delivered file after its command succeeded\n"
    "  --keep             keep it (the default)\n"
    "  --log DIR          write the hot folder's trace to DIR/vantu-hotfolder.log\n"
    "  --once             scan once, handle what was delivered, and exit\n"
    "  --json             print one JSON object per delivery\n"
    "  --verbose          also say why a file still waits (held open by a writer, still\n"
    "                     growing, empty, unreadable)\n"
    "  --help             show this text\n"
    "\n"
    "SIGINT and SIGTERM stop it cleanly; the log is written out before it exits.\n";

struct Options {
  std::string directory = "inbox";
  bool recursive = false;
  bool groupFolders = false;
  int period = 1000;
  std::string exec;
  bool shell = false;
  bool deleteAfter = false;
  std::string logDir;
  bool once = false;
  bool json = false;
  bool verbose = false;
};

// Paths delivered by the hot folder and waiting notes from its trace, handed from the hot
// folder's thread to the main thread.
class Inbox {
 public:
  void Push(std::string line, bool delivery) {
    std::lock_guard<std::mutex> lock(mutex_);
    items_.push_back({std::move(line), delivery});
    changed_.notify_one();
  }
  void Stop() {
    std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
    changed_.notify_one();
  }
  // Waits for items or a stop; returns false once stopped and drained.
  bool Take(std::deque<std::pair<std::string, bool>>& out) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return !items_.empty() || stopped_; });
    out.swap(items_);
    return !out.empty() || !stopped_;
  }
  std::deque<std::pair<std::string, bool>> TakeNow() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::deque<std::pair<std::string, bool>> out;
    out.swap(items_);
    return out;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::pair<std::string, bool>> items_;
  bool stopped_ = false;
};

Inbox g_inbox;

int OnDelivery(const char* path, int length, void*) {
  g_inbox.Push(std::string(path, static_cast<size_t>(length)), true);
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

// Reads the hot folder's trace: "not available" and "not complete" say why a file waits.
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
    g_inbox.Push(path + ": waiting, " + why, false);
  } else if (text.find("[File: VHotfolder Line: 227]") != std::string::npos) {
    const size_t open = text.rfind(" is not complete (");
    const std::string path = QuotedPath(text, "\"File ", " is not complete (");
    const std::string sizes = open == std::string::npos ? "" : text.substr(open + 18);
    g_inbox.Push(path + ": waiting, still growing (" + sizes.substr(0, sizes.find(')')) + ")",
                 false);
  }
}

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20) {
          char buffer[8];
          std::snprintf(buffer, sizeof(buffer), "\\u%04x", c);
          out += buffer;
        } else {
          out.push_back(static_cast<char>(c));
        }
    }
  }
  return out + "\"";
}

// Splits a command line into words, honouring single and double quotes.
std::vector<std::string> Words(const std::string& command) {
  std::vector<std::string> words;
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
  return words;
}

std::string ShellQuoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

// Runs the --exec command for one path; returns its exit status (127 when it cannot start,
// 128 + n when killed by signal n).
int Run(const Options& options, const std::string& path) {
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
    argv = Words(options.exec);
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
  pid_t child = 0;
  if (::posix_spawnp(&child, raw[0], nullptr, nullptr, raw.data(), environ) != 0) return 127;
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : 1;
}

std::map<std::string, std::string> g_waiting;

std::string Now() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  char buffer[32];
  std::strftime(buffer, sizeof(buffer), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return buffer;
}

void Handle(const Options& options, VHotfolder& folder, const std::string& path) {
  g_waiting.erase(path);
  int status = -1;
  if (!options.exec.empty()) status = Run(options, path);
  const bool deleted = status == 0 && options.deleteAfter;
  if (deleted) folder.Remove(VFile(VPath(path.c_str())), false);
  if (options.json) {
    std::error_code error;
    const auto size = std::filesystem::is_regular_file(path, error)
                          ? static_cast<long long>(std::filesystem::file_size(path, error))
                          : -1LL;
    std::printf("{\"path\": %s, \"time\": \"%s\"", JsonString(path).c_str(), Now().c_str());
    if (size >= 0 && !deleted) std::printf(", \"size\": %lld", size);
    if (!options.exec.empty())
      std::printf(", \"status\": %d, \"deleted\": %s", status, deleted ? "true" : "false");
    std::printf("}\n");
  } else if (options.exec.empty()) {
    std::printf("%s\n", path.c_str());
  } else {
    std::printf("%s\texit %d%s\n", path.c_str(), status, deleted ? "\tdeleted" : "");
  }
  std::fflush(stdout);
}

// g_waiting holds the last reason printed for each waiting path: a reason is printed again
// only when it changes.
void Note(const Options& options, const std::string& note) {
  if (!options.verbose) return;
  const size_t split = note.rfind(": waiting, ");
  if (split != std::string::npos) {
    std::string& last = g_waiting[note.substr(0, split)];
    if (last == note) return;
    last = note;
  }
  if (options.json) {
    std::printf("{\"waiting\": %s}\n", JsonString(note).c_str());
  } else {
    std::fprintf(stderr, "%s\n", note.c_str());
  }
  std::fflush(stdout);
}

bool Parse(int argc, char** argv, Options& options) {
  bool sawDirectory = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    auto value = [&](const char* name) -> const char* {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "vantu-hotfolder: %s needs a value\n", name);
        return nullptr;
      }
      return argv[++i];
    };
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      std::exit(0);
    } else if (arg == "--recursive") {
      options.recursive = true;
    } else if (arg == "--group-folders") {
      options.groupFolders = true;
    } else if (arg == "--period") {
      const char* v = value("--period");
      char* end = nullptr;
      const long ms = v ? std::strtol(v, &end, 10) : 0;
      if (v == nullptr || *end != '\0' || ms < 1 || ms > 86400000) {
        std::fprintf(stderr, "vantu-hotfolder: --period takes milliseconds, 1 to 86400000\n");
        return false;
      }
      options.period = static_cast<int>(ms);
    } else if (arg == "--exec") {
      const char* v = value("--exec");
      if (v == nullptr || *v == '\0') return false;
      options.exec = v;
    } else if (arg == "--shell") {
      options.shell = true;
    } else if (arg == "--delete") {
      options.deleteAfter = true;
    } else if (arg == "--keep") {
      options.deleteAfter = false;
    } else if (arg == "--log") {
      const char* v = value("--log");
      if (v == nullptr) return false;
      options.logDir = v;
    } else if (arg == "--once") {
      options.once = true;
    } else if (arg == "--json") {
      options.json = true;
    } else if (arg == "--verbose") {
      options.verbose = true;
    } else if (!arg.empty() && arg[0] == '-') {
      std::fprintf(stderr, "vantu-hotfolder: unknown option %s\n%s", arg.c_str(), kUsage);
      return false;
    } else if (!sawDirectory) {
      options.directory = arg;
      sawDirectory = true;
    } else {
      std::fprintf(stderr, "vantu-hotfolder: one directory only\n");
      return false;
    }
  }
  if (options.shell && options.exec.empty()) {
    std::fprintf(stderr, "vantu-hotfolder: --shell needs --exec\n");
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!Parse(argc, argv, options)) return 2;

  std::error_code error;
  std::filesystem::create_directories(options.directory, error);
  if (!std::filesystem::is_directory(options.directory)) {
    std::fprintf(stderr, "vantu-hotfolder: cannot use directory %s\n", options.directory.c_str());
    return 1;
  }
  const std::string directory = std::filesystem::absolute(options.directory).lexically_normal();

  // SIGINT and SIGTERM are taken by a thread of their own, so every other thread ignores them.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  // The trace goes to --log DIR, or with --verbose alone to a private folder removed at exit.
  std::string privateLog;
  std::unique_ptr<VLog> log;
  if (!options.logDir.empty() || options.verbose) {
    std::string folder = options.logDir;
    if (folder.empty()) {
      char pattern[] = "/tmp/vantu-hotfolder-XXXXXX";
      if (::mkdtemp(pattern) != nullptr) privateLog = folder = pattern;
    }
    log = std::make_unique<VLog>();
    log->SetFolder(VPath(folder.c_str()));
    log->SetName(VString("vantu-hotfolder"));
    log->SetLevel(6);
    if (options.verbose) log->SetListener(OnTrace, nullptr);
    VLog::SetCurrent(log.get());
  }

  VHotfolder folder;
  folder.SetPath(VPath(directory.c_str()));
  folder.SetTimeMilliseconds(options.period);
  folder.SetRecursive(options.recursive);
  folder.SetGroupFolders(options.groupFolders);
  folder.SetCallback(OnDelivery);
  folder.Enable(true);

  if (options.once) {
    folder.CheckFolderChanges();
    for (auto& [line, delivery] : g_inbox.TakeNow()) {
      delivery ? Handle(options, folder, line) : Note(options, line);
    }
  } else {
    std::thread signalWaiter([&signals] {
      int received = 0;
      sigwait(&signals, &received);
      g_inbox.Stop();
    });
    folder.Start();
    std::fprintf(stderr, "vantu-hotfolder: watching %s (Ctrl-C to stop)\n", directory.c_str());
    std::deque<std::pair<std::string, bool>> items;
    while (g_inbox.Take(items)) {
      for (auto& [line, delivery] : items) {
        delivery ? Handle(options, folder, line) : Note(options, line);
      }
      items.clear();
    }
    folder.Stop();
    signalWaiter.join();
  }

  VLog::SetCurrent(nullptr);
  log.reset();  // every queued line written
  if (!privateLog.empty()) std::filesystem::remove_all(privateLog, error);
  return 0;
}
