#include "Output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <system_error>

#include "Session.h"

namespace hotfolder {
namespace {

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

std::string Now() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  char buffer[32];
  std::strftime(buffer, sizeof(buffer), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return buffer;
}

}  // namespace

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

}  // namespace hotfolder
