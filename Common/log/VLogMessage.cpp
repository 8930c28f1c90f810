#include <vantu/VLogMessage.h>

#include <Poco/Message.h>

#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <locale>

#include <vantu/VLog.h>

namespace {

// Room for the date "<year>/<month>/<day> - [<weekday>] - <hh>:<mm>:<ss> - " that the log puts in
// front of each line.
constexpr size_t kDateRoom = 40;

// The last component of a path: what follows its last '(', '/' or '\'.
const char* LastComponent(const char* path) {
  const char* last = path;
  for (const char* p = path; *p != '\0'; ++p) {
    if (*p == '(' || *p == '/' || *p == '\\') last = p + 1;
  }
  return last;
}

// The message stream of a thread's previous message, kept for its next one: making a stream
// (its locale and facets) costs more than the rest of a line. The pointer is trivially
// destructible, so a message destroyed late in a thread's exit still finds it; `t_ended` tells
// that the stream has gone with the thread.
thread_local std::ostringstream* t_spare = nullptr;
thread_local bool t_ended = false;
struct SpareStream {
  ~SpareStream() {
    delete t_spare;
    t_spare = nullptr;
    t_ended = true;
  }
};
thread_local SpareStream t_spareOwner;

std::unique_ptr<std::ostringstream> TakeStream() {
  std::unique_ptr<std::ostringstream> stream(t_spare);
  t_spare = nullptr;
  if (!stream) stream = std::make_unique<std::ostringstream>();
  return stream;
}

// Empties the stream and gives it a new stream's format state; false when the caller gave it
// another buffer or locale, which a new stream would not have.
bool Reset(std::ostringstream& stream) {
  if (static_cast<std::ios&>(stream).rdbuf() != stream.rdbuf() ||
      stream.getloc() != std::locale()) {
    return false;
  }
  stream.str(std::string());
  stream.clear();
  stream.flags(std::ios::skipws | std::ios::dec);
  stream.width(0);
  stream.precision(6);
  stream.fill(' ');
  stream.exceptions(std::ios::goodbit);
  stream.tie(nullptr);
  return true;
}

void KeepStream(std::unique_ptr<std::ostringstream> stream) {
  if (t_ended || t_spare != nullptr || !Reset(*stream)) return;
  static_cast<void>(&t_spareOwner);  // frees the spare when the thread ends
  t_spare = stream.release();
}

int PriorityOfLevel(const std::string& level) {
  return level.find('\0') != std::string::npos ? 0 : VLog::PriorityOf(level.c_str());
}

}  // namespace

VLogMessage::VLogMessage(const std::string& file, int line, const std::string& function,
                         const std::string& level)
    : file_(LastComponent(file.c_str())),
      line_(line),
      function_(level == "FATAL" ? function : std::string()),
      level_(level),
      priority_(PriorityOfLevel(level)) {
  // A NUL in the path ends the C string above: the component is taken from the whole path.
  if (file.find('\0') != std::string::npos) {
    const size_t cut = file.find_last_of("(/\\");
    file_.assign(file, cut == std::string::npos ? 0 : cut + 1, std::string::npos);
  }
}

VLogMessage::VLogMessage(const char* file, int line, const char* function, const char* level)
    : file_(LastComponent(file != nullptr ? file : "")),
      line_(line),
      level_(level != nullptr ? level : "") {
  if (level_ == "FATAL" && function != nullptr) function_ = function;
  priority_ = VLog::PriorityOf(level_.c_str());
}

std::ostringstream& VLogMessage::messageStream() {
  if (!stream_) stream_ = TakeStream();
  return *stream_;
}

VLogMessage& VLogMessage::Format(const char* format, ...) {
  char buffer[2048];
  va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(buffer, sizeof(buffer), format, args);
  va_end(args);
  std::ostringstream& out = messageStream();
  if (length <= 0) {
    out << "\n\tERROR LOG MSG NOTIFICATION: Failure to parse successfully the message" << '"'
        << format << '"' << std::endl;
  } else if (length > static_cast<int>(sizeof(buffer))) {
    out << buffer << sizeof(buffer);  // the marker of a cut line
  } else {
    out << buffer;
  }
  return *this;
}

bool VLogMessage::WouldLog(const char* level) {
  VLog* log = VLog::GetCurrent();
  if (log == nullptr) return false;
  const int priority = VLog::PriorityOf(level);
  return priority != 0 && log->IsEnabled(priority);
}

VLogMessage::~VLogMessage() {
  std::unique_ptr<std::ostringstream> stream = std::move(stream_);
  VLog* log = priority_ != 0 ? VLog::GetCurrent() : nullptr;
  if (log != nullptr && log->IsEnabled(priority_)) {
    const std::string text = stream ? stream->str() : std::string();
    char number[16];
    const char* const digits = std::to_chars(number, number + sizeof(number), line_).ptr;
    std::string line;
    // Room for the date that the log puts in front, so that it moves the line without copying.
    line.reserve(kDateRoom + level_.size() + file_.size() + function_.size() + 32 + text.size());
    line += level_;
    line += " [File: ";
    line += file_;
    if (level_ == "FATAL") {
      line += " at: ";
      line += function_;
    }
    line += " Line: ";
    line.append(number, static_cast<size_t>(digits - number));
    line += "]\t";
    if (!text.empty()) {
      line += '"';
      line += text;
      line += '"';
    }
    log->Log(priority_, std::move(line));
  }
  if (stream) KeepStream(std::move(stream));
}
