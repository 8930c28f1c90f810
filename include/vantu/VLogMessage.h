// VLogMessage: one log line, composed from a source location, a level name and the caller's
// text, and handed to the current log (VLog::LogCurrentByLevel) when the object is destroyed.
//
// The line reads: LEVEL " [File: " <last path component of the file> (" at: " <function>, for
// "FATAL" only) " Line: " <line> "]" TAB, then the text in double quotes when there is any. The
// last path component follows the last of '(', '/' and '\'. Nothing is composed when nothing
// would be written: no current log, the level "DEBUG" or an unknown level name, or a level the
// log filters out.
//
// Use the macros, which fill file, line and function and skip the whole statement (its
// arguments are not evaluated) when the line would not be written:
//   VLOG(INFO) << "copied " << count << " files";
//   VLOG(ERROR).Format("cannot open %s", path);
// VLOG_AT(level, file, line, function) names the location explicitly.
//
// The message stream is one the thread's previous message used, emptied and with its format
// state (flags, width, precision, fill, exceptions, tie) as a new stream has it; a stream whose
// locale or buffer the caller changed is not reused.
//
// Thread safety: one object per thread; the log it writes to is thread-safe.
#ifndef VANTU_VLOGMESSAGE_H
#define VANTU_VLOGMESSAGE_H

#include <memory>
#include <sstream>
#include <string>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

class VANTU_API VLogMessage : public VBaseObject {
 public:
  VLogMessage(const std::string& file, int line, const std::string& function,
              const std::string& level);
  // The same from C strings (as the macros pass them), without copying the file path whole.
  VLogMessage(const char* file, int line, const char* function, const char* level);
  // Composes the line and logs it.
  ~VLogMessage() override;
  VLogMessage(const VLogMessage&) = delete;
  VLogMessage& operator=(const VLogMessage&) = delete;

  // The caller's text, for << of any streamable value.
  std::ostringstream& messageStream();
  // printf-style, appended to the text through a 2048-byte buffer: a longer result is cut to
  // 2047 bytes followed by "2048"; an empty result or a format error appends a notice naming the
  // format.
  VLogMessage& Format(const char* format, ...) __attribute__((format(printf, 2, 3)));

  template <typename T>
  VLogMessage& operator<<(const T& value) {
    messageStream() << value;
    return *this;
  }

  // Whether a line of this level would reach a file now (a current log exists, the level name
  // is known and not "DEBUG", and the log lets the level through).
  static bool WouldLog(const char* level);

 private:
  std::string file_;  // the last component of the caller's file path
  int line_;
  std::string function_;  // kept for "FATAL" only, the one level that prints it
  std::string level_;
  std::unique_ptr<std::ostringstream> stream_;  // taken on first use
  int priority_ = 0;  // the POCO priority of level_; 0 when nothing is ever written
};

#define VLOG_AT(level, file, line, function)                                  \
  for (bool vantu_log_once_ = VLogMessage::WouldLog(#level); vantu_log_once_; \
       vantu_log_once_ = false)                                               \
  VLogMessage(file, line, function, #level)

#define VLOG(level) VLOG_AT(level, __FILE__, __LINE__, __func__)

#endif  // VANTU_VLOGMESSAGE_H
