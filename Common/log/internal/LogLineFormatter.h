// The log's line formatter: the bytes of Poco::PatternFormatter with the pattern
// "%Y/%n/%e - [%w] - %H:%M:%S - %t" (times in UTC), or of the bare "%t", made without its
// per-message date arithmetic and allocations.
#ifndef VANTU_LOG_INTERNAL_LOGLINEFORMATTER_H
#define VANTU_LOG_INTERNAL_LOGLINEFORMATTER_H

#include <Poco/Formatter.h>
#include <Poco/Message.h>
#include <Poco/Timestamp.h>

#include <atomic>
#include <string>

namespace vantu::internal {

class LogLineFormatter : public Poco::Formatter {
 public:
  // Starts bare: the text alone.
  LogLineFormatter() = default;

  // Switches between the bare text and the dated line.
  void SetDated(bool dated) { dated_.store(dated, std::memory_order_release); }

  // Replaces `line` with the formatted line of `text` logged at `time`.
  void Format(const Poco::Timestamp& time, const std::string& text, std::string& line) const;
  // Makes `text` the formatted line in place.
  void Prepend(const Poco::Timestamp& time, std::string& text) const;

  // Poco::Formatter, for messages of other loggers that reach the log's channel.
  void format(const Poco::Message& message, std::string& text) override;

  // "<year>/<month>/<day> - [<weekday>] - <hh>:<mm>:<ss> - " of a time, in UTC.
  static void AppendDatePrefix(const Poco::Timestamp& time, std::string& out);

 private:
  std::atomic<bool> dated_{false};
};

}  // namespace vantu::internal

#endif  // VANTU_LOG_INTERNAL_LOGLINEFORMATTER_H
