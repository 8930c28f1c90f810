#include <vantu/VLogMessage.h>

#include <cstdarg>
#include <cstdio>

#include <vantu/VLog.h>

VLogMessage::VLogMessage(const std::string& file, int line, const std::string& function,
                         const std::string& level)
    : file_(file), line_(line), function_(function), level_(level) {}

std::ostringstream& VLogMessage::messageStream() {
  if (!stream_) stream_ = std::make_unique<std::ostringstream>();
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
  if (level_.find('\0') != std::string::npos || !WouldLog(level_.c_str())) return;
  const size_t cut = file_.find_last_of("(/\\");
  std::string line;
  line.reserve(64 + file_.size() + function_.size());
  line += level_;
  line += " [File: ";
  line.append(file_, cut == std::string::npos ? 0 : cut + 1, std::string::npos);
  if (level_ == "FATAL") {
    line += " at: ";
    line += function_;
  }
  line += " Line: ";
  line += std::to_string(line_);
  line += "]\t";
  if (stream_) {
    const std::string text = stream_->str();
    if (!text.empty()) {
      line += '"';
      line += text;
      line += '"';
    }
  }
  VLog::LogCurrentByLevel(level_, line);
}
