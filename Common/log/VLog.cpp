#include <vantu/VLog.h>

#include <Poco/AutoPtr.h>
#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/LocalDateTime.h>
#include <Poco/Logger.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include <vantu/VFile.h>

#include "internal/PathText.h"
#include "log/internal/AsyncLogChannel.h"
#include "log/internal/LogLineFormatter.h"
#include "platform/Process.h"

namespace {

// Lines that may wait for the writer before a producer has to wait too.
constexpr size_t kQueueCapacity = 64 * 1024;
const char kBannerRule[] = "*****************************************************";

std::atomic<VLog*> g_current{nullptr};

// The text of a VString as UTF-8.
std::string Utf8(const VString& text) {
  VString copy(text);
  copy.ConvertTo(UTF8);
  return copy.GetString();
}

VString Formatted(unsigned count, const char* word) {
  char buffer[64];
  std::snprintf(buffer, sizeof(buffer), "%d %s", static_cast<int>(count), word);
  return VString(buffer);
}

// The size limit of a rotation text as the file channel reads it ("<n>", "<n> K", "<n> M"), or 0
// when the log is not rotated by size.
uint64_t RotationSizeLimit(const std::string& rotation) {
  size_t i = rotation.find_first_not_of(' ');
  if (i == std::string::npos || !std::isdigit(static_cast<unsigned char>(rotation[i]))) return 0;
  uint64_t count = 0;
  for (; i < rotation.size() && std::isdigit(static_cast<unsigned char>(rotation[i])); ++i) {
    count = count * 10 + static_cast<uint64_t>(rotation[i] - '0');
  }
  i = std::min(rotation.find_first_not_of(' ', i), rotation.size());
  size_t end = i;
  while (end < rotation.size() && std::isalpha(static_cast<unsigned char>(rotation[end]))) ++end;
  const std::string unit = rotation.substr(i, end - i);
  if (unit.empty()) return count;
  if (unit == "K") return count * 1024;
  if (unit == "M") return count * 1024 * 1024;
  return 0;
}

// "<application data>/Tarvik Software/".
VPath DefaultFolder() {
  VPath folder = VPath::GetAppDataPath();
  folder.Append(
      VPath(VString("\xEF\xBB\xBF"
                    "Tarvik Software")));
  folder.MakeDirectory();
  return folder;
}

// Creates the default folder, one level, when the application-data folder exists: nothing
// above it is ever made (a home folder that is missing stays missing).
void CreateDefaultFolder() {
  try {
    const VPath base = VPath::GetAppDataPath();
    if (base.Length() != 0 && VFile(base).IsDirectory()) VFile(DefaultFolder()).CreateDirectory();
  } catch (...) {
    // Reported the way every write failure is: the lines go nowhere.
  }
}

VString ExecutableBaseName() {
  const std::string path = vantu::platform::ExecutablePath();
  if (path.empty()) return VString("vantu");
  return VPath::FromFileSystem(path).GetBaseName();
}

}  // namespace

// The opened channel chain: formatter -> asynchronous writer -> file. The log's own lines are
// formatted in the caller's thread and queued straight to the writer; messages of other POCO
// loggers reach the same writer through the formatting channel set on the root logger. Torn
// down (every queued line written) when the last log that shares it goes.
struct VLog::Chain {
  Poco::AutoPtr<Poco::FileChannel> file;
  Poco::AutoPtr<vantu::internal::AsyncLogChannel> writer;
  Poco::AutoPtr<vantu::internal::LogLineFormatter> formatter;
  Poco::AutoPtr<Poco::FormattingChannel> formatting;
  Poco::Logger* logger = nullptr;
  std::atomic<int> level{0};

  // Formats and queues one line of the log's own.
  void Write(const std::string& text) {
    std::string line;
    formatter->Format(Poco::Timestamp(), text, line);
    writer->Push(std::move(line));
  }
  void Write(std::string&& text) {
    formatter->Prepend(Poco::Timestamp(), text);
    writer->Push(std::move(text));
  }

  ~Chain() {
    try {
      Poco::Logger& root = Poco::Logger::root();
      if (root.getChannel() == formatting.get()) root.setChannel(nullptr);
      if (logger != nullptr && logger->getChannel() == formatting.get()) {
        logger->setChannel(nullptr);
      }
      writer->close();
    } catch (...) {
    }
  }
};

VLog::VLog()
    : name_(ExecutableBaseName()),
      folder_(DefaultFolder()),
      rotation_("10 M"),
      archive_("number"),
      purgeAge_("24 hours") {
  CreateDefaultFolder();
}

VLog::VLog(const VLog& other) : VBaseObject(other) {
  std::lock_guard<std::mutex> lock(other.mutex_);
  CopyState(other);
}

VLog& VLog::operator=(const VLog& other) {
  if (this == &other) return *this;
  std::shared_ptr<Chain> previous;  // released outside the locks: its end may drain a queue
  {
    std::scoped_lock lock(mutex_, other.mutex_);
    previous = chain_;
    CopyState(other);
  }
  return *this;
}

void VLog::CopyState(const VLog& other) {
  name_ = other.name_;
  folder_ = other.folder_;
  rotation_ = other.rotation_;
  archive_ = other.archive_;
  purgeAge_ = other.purgeAge_;
  level_ = other.level_;
  opened_ = other.opened_;
  chain_ = other.chain_;
  ready_ = chain_.get();
}

VLog::~VLog() {
  VLog* self = this;
  g_current.compare_exchange_strong(self, nullptr);
}

void VLog::SetName(const VString& name) { name_ = name; }
void VLog::SetFolder(const VPath& folder) { folder_ = folder; }
void VLog::SetLevel(int level) { level_ = level; }

void VLog::SetRotation(unsigned count, int unit) {
  static const char* const kWords[] = {"never", "daily",  "weekly", "monthly", "hours", "days",
                                       "weeks", "months", "",       "K",       "M"};
  const char* word = (unit >= -1 && unit <= 9) ? kWords[unit + 1] : "days";
  rotation_ = Formatted(count, word);
}

void VLog::SetArchive(int mode) { archive_ = VString(mode == 1 ? "timestamp" : "number"); }

void VLog::SetPurgeAge(unsigned count, int unit) {
  static const char* const kWords[] = {"minutes", "minutes", "hours", "days", "weeks", "months"};
  const char* word = (unit >= -1 && unit <= 4) ? kWords[unit + 1] : "days";
  purgeAge_ = Formatted(count, word);
}

VString VLog::GetName() const { return name_; }
VPath VLog::GetFolder() const { return folder_; }
VString VLog::GetRotation() const { return rotation_; }
VString VLog::GetArchive() const { return archive_; }
VString VLog::GetPurgeAge() const { return purgeAge_; }
int VLog::GetLevel() const { return level_; }

VPath VLog::GetFilePath() const {
  VPath path = folder_.Length() == 0 ? DefaultFolder() : folder_;
  VString file(name_);
  file.Append(".log");
  path.Append(VPath(file));
  return path;
}

bool VLog::IsOpened() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return opened_;
}

void VLog::Open() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (opened_) return;
  opened_ = true;

  auto chain = std::make_shared<Chain>();
  chain->file = new Poco::FileChannel;
  chain->writer = new vantu::internal::AsyncLogChannel(chain->file, kQueueCapacity);

  const VPath path = GetFilePath();
  if (folder_.Length() == 0 || folder_.IsEqual(DefaultFolder())) {
    CreateDefaultFolder();
  } else {
    try {
      VFile(path.Parent()).CreateDirectories();
    } catch (...) {
    }
  }
  chain->file->setProperty(Poco::FileChannel::PROP_PATH, vantu::internal::PathBytes(path));
  chain->file->setProperty(Poco::FileChannel::PROP_ROTATION, Utf8(rotation_));
  chain->file->setProperty(Poco::FileChannel::PROP_ARCHIVE, Utf8(archive_));
  chain->file->setProperty(Poco::FileChannel::PROP_PURGEAGE, Utf8(purgeAge_));
  // Each batch of lines reaches the file before the writer takes the next one.
  chain->file->setProperty(Poco::FileChannel::PROP_FLUSH, "true");
  const uint64_t sizeLimit = RotationSizeLimit(Utf8(rotation_));
  if (sizeLimit != 0) {
    // The file is opened now so that its size is known before the first batch.
    try {
      chain->file->open();
    } catch (...) {
      // Reported the way every write failure is: the lines go nowhere.
    }
    Poco::FileChannel* file = chain->file.get();
    chain->writer->LimitBatches(sizeLimit, [file] { return file->size(); });
  }

  // Lines look as Poco::PatternFormatter makes them with "%t" for the banner, then with
  // "%Y/%n/%e - [%w] - %H:%M:%S - %t".
  chain->formatter = new vantu::internal::LogLineFormatter;
  chain->formatting = new Poco::FormattingChannel(chain->formatter, chain->writer);
  Poco::Logger::root().setChannel(chain->formatting);
  chain->logger = &Poco::Logger::get(Utf8(name_));
  chain->logger->setChannel(chain->formatting);
  chain->writer->open();

  // The banner, always written whatever the level, in the bare form.
  chain->level = Poco::Message::PRIO_TRACE;
  const Poco::LocalDateTime now;
  char line[512];
  chain->Write(kBannerRule);
  chain->Write("* - Log System -\t\t\t\t\t\t\t\t\t ");
  std::snprintf(line, sizeof(line), "* Creation date: %d/%d/%d at %d:%d:%d", now.day(), now.month(),
                now.year(), now.hour(), now.minute(), now.second());
  chain->Write(line);
  chain->Write("* Name: " + Utf8(name_));
  chain->Write("*" + std::string(52, ' '));
  chain->Write(kBannerRule);
  chain->level = level_;
  chain->logger->setLevel(level_);
  chain->formatter->SetDated(true);

  chain_ = chain;
  ready_.store(chain_.get(), std::memory_order_release);
}

VLog::Chain* VLog::Ready() {
  Chain* chain = ready_.load(std::memory_order_acquire);
  if (chain == nullptr) {
    Open();
    chain = ready_.load(std::memory_order_acquire);
  }
  return chain;
}

void VLog::Flush() {
  Chain* chain = ready_.load(std::memory_order_acquire);
  if (chain != nullptr) chain->writer->Drain();
}

bool VLog::IsEnabled(int priority) const {
  const Chain* chain = ready_.load(std::memory_order_acquire);
  if (chain != nullptr) return priority >= 1 && priority <= chain->level.load();
  return priority >= 1 && priority <= level_;
}

void VLog::Log(int priority, const std::string& text) {
  Chain* chain = Ready();
  if (chain == nullptr || priority < 1 || priority > chain->level.load()) return;
  chain->Write(text);
  if (const Listener listener = listener_.load()) listener(priority, text, listenerContext_);
}

void VLog::Log(int priority, std::string&& text) {
  Chain* chain = Ready();
  if (chain == nullptr || priority < 1 || priority > chain->level.load()) return;
  const Listener listener = listener_.load();
  if (listener == nullptr) return chain->Write(std::move(text));
  chain->Write(std::string(text));
  listener(priority, text, listenerContext_);
}

void VLog::Fatal(const std::string& text) { Log(Poco::Message::PRIO_FATAL, text); }
void VLog::Critical(const std::string& text) { Log(Poco::Message::PRIO_CRITICAL, text); }
void VLog::Error(const std::string& text) { Log(Poco::Message::PRIO_ERROR, text); }
void VLog::Warning(const std::string& text) { Log(Poco::Message::PRIO_WARNING, text); }
void VLog::Notice(const std::string& text) { Log(Poco::Message::PRIO_NOTICE, text); }
void VLog::Information(const std::string& text) { Log(Poco::Message::PRIO_INFORMATION, text); }
void VLog::Debug(const std::string& text) { Log(Poco::Message::PRIO_DEBUG, text); }
void VLog::Trace(const std::string& text) { Log(Poco::Message::PRIO_TRACE, text); }

void VLog::SetListener(Listener listener, void* context) {
  listenerContext_ = context;
  listener_ = listener;
}

VLog* VLog::SetCurrent(VLog* log) { return g_current.exchange(log); }

VLog* VLog::GetCurrent() { return g_current.load(); }

bool VLog::isActive() { return g_current.load() != nullptr; }

void VLog::LogCurrent(const std::string& text) {
  if (VLog* log = g_current.load()) log->Information(text);
}

int VLog::PriorityOf(const char* levelName) {
  // One candidate per first letter (two for 'I'), compared whole.
  const auto is = [levelName](const char* name) { return std::strcmp(levelName, name) == 0; };
  switch (levelName[0]) {
    case 'I':
      return is("INFO") || is("INFORMATION") ? Poco::Message::PRIO_INFORMATION : 0;
    case 'W':
      return is("WARNING") ? Poco::Message::PRIO_WARNING : 0;
    case 'F':
      return is("FATAL") ? Poco::Message::PRIO_FATAL : 0;
    case 'E':
      return is("ERROR") ? Poco::Message::PRIO_ERROR : 0;
    case 'C':
      return is("CRITICAL") ? Poco::Message::PRIO_CRITICAL : 0;
    case 'N':
      return is("NOTICE") ? Poco::Message::PRIO_NOTICE : 0;
    case 'T':
      return is("TRACE") ? Poco::Message::PRIO_TRACE : 0;
    default:
      return 0;  // "DEBUG" is recognised and deliberately dropped, like unknown names
  }
}

void VLog::LogCurrentByLevel(const std::string& levelName, const std::string& text) {
  VLog* log = g_current.load();
  if (log == nullptr) return;
  if (levelName.find('\0') != std::string::npos) return;  // names compare as whole strings
  const int priority = PriorityOf(levelName.c_str());
  if (priority != 0) log->Log(priority, text);
}
