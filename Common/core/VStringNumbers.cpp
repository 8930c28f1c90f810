// VString's conversions between numbers and text, printf-style formatting and Base64.
#include <Poco/Base64Decoder.h>
#include <Poco/Base64Encoder.h>
#include <Poco/Exception.h>
#include <Poco/NumberFormatter.h>
#include <Poco/NumberParser.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include <vantu/VString.h>

#include "internal/Hex.h"

using vantu::internal::HexDigitValue;

namespace {

using Poco::NumberFormatter;
using Poco::NumberParser;

constexpr char kDecimalPoint = '.';
constexpr char kThousands = ',';
constexpr char kListSeparator = ',';

void AppendHexByte(unsigned char byte, std::string& out) {
  static const char kDigits[] = "0123456789ABCDEF";
  out.push_back(kDigits[byte >> 4]);
  out.push_back(kDigits[byte & 0x0F]);
}

[[noreturn]] void ThrowSyntax(const std::string& text) { throw Poco::SyntaxException(text); }

// The pieces of a list, split at every separator; empty text has none.
std::vector<std::string> SplitList(const std::string& text) {
  std::vector<std::string> pieces;
  if (text.empty()) return pieces;
  size_t start = 0;
  for (;;) {
    const size_t end = text.find(kListSeparator, start);
    pieces.push_back(text.substr(start, end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return pieces;
}

// Parses a decimal integer that must lie within [low, high].
long long ParseInRange(const std::string& piece, long long low, long long high) {
  const Poco::Int64 value = NumberParser::parse64(piece, kThousands);
  if (value < low || value > high) ThrowSyntax(piece);
  return value;
}

template <typename T>
std::string JoinList(const T* values, uint8_t count) {
  std::string text;
  for (unsigned i = 0; i < count; ++i) {
    if (i > 0) text.push_back(kListSeparator);
    if constexpr (std::is_same_v<T, float>) {
      text += NumberFormatter::format(values[i]);
    } else {
      text += NumberFormatter::format(static_cast<int>(values[i]));
    }
  }
  return text;
}

template <typename T>
size_t ParseList(const std::string& text, T* values, size_t capacity) {
  size_t stored = 0;
  for (const std::string& piece : SplitList(text)) {
    if (stored == capacity) break;
    if constexpr (std::is_same_v<T, float>) {
      values[stored++] =
          static_cast<float>(NumberParser::parseFloat(piece, kDecimalPoint, kThousands));
    } else {
      values[stored++] = static_cast<T>(ParseInRange(piece, 0, std::numeric_limits<T>::max()));
    }
  }
  return stored;
}

// POCO writes fixed text for magnitudes below 1e60 with at most 60 decimals; it gives empty
// text beyond that and aborts on a negative precision.
constexpr int kPocoMaxDecimals = 60;
constexpr double kPocoFirstTooLarge = 1e60;
// A double's exact decimal expansion has at most 1074 decimals.
constexpr int kExactDecimals = 1074;

// Fixed text with `precision` decimals (below 0 counts as 0): POCO's bytes where POCO writes
// them; beyond, the exact value rounded as POCO rounds, half away from zero, with POCO's sign
// rule ("-0.00" for a small negative value, no sign for a negative zero).
template <typename T>
std::string FixedText(T value, int precision) {
  precision = std::max(precision, 0);
  const double magnitude = std::fabs(static_cast<double>(value));
  if (!std::isfinite(magnitude) ||
      (precision <= kPocoMaxDecimals && magnitude < kPocoFirstTooLarge)) {
    return NumberFormatter::format(value, precision);
  }
  char exact[310 + 1 + kExactDecimals];  // 309 digits before the point at most
  const char* end = std::to_chars(exact, exact + sizeof(exact), magnitude, std::chars_format::fixed,
                                  kExactDecimals)
                        .ptr;
  const auto point =
      static_cast<size_t>(std::find(static_cast<const char*>(exact), end, '.') - exact);
  const size_t kept = static_cast<size_t>(std::min(precision, kExactDecimals));
  std::string digits(exact, point);
  digits.append(exact + point + 1, kept);
  digits.append(static_cast<size_t>(precision) - kept, '0');
  if (kept < static_cast<size_t>(kExactDecimals) && exact[point + 1 + kept] >= '5') {
    size_t i = digits.size();
    while (i > 0 && digits[i - 1] == '9') digits[--i] = '0';
    if (i == 0) {
      digits.insert(0, 1, '1');
    } else {
      ++digits[i - 1];
    }
  }
  if (precision > 0) digits.insert(digits.size() - static_cast<size_t>(precision), 1, '.');
  if (value < 0) digits.insert(0, 1, '-');
  return digits;
}

std::string EncodeBase64Bytes(const char* data, size_t count) {
  std::ostringstream out;
  Poco::Base64Encoder encoder(out);
  encoder.write(data, static_cast<std::streamsize>(count));
  encoder.close();
  return out.str();
}

// Decodes Base64 text; false when it is not Base64.
bool DecodeBase64Bytes(const std::string& text, std::string& decoded) {
  std::istringstream in(text);
  Poco::Base64Decoder decoder(in);
  std::ostringstream out;
  char buffer[4096];
  while (decoder.read(buffer, sizeof(buffer)) || decoder.gcount() > 0) {
    out.write(buffer, decoder.gcount());
  }
  // The decoder's stream buffer reports malformed input by throwing, which the stream turns
  // into badbit.
  if (decoder.bad()) return false;
  decoded = out.str();
  return true;
}

}  // namespace

void VString::ReplaceText(std::string text) noexcept {
  text_.swap(text);
  TextReplaced();
}

// ---------------------------------------------------------------------------------------------
// Formatting

void VString::SetDouble(double value) { ReplaceText(NumberFormatter::format(value)); }

void VString::SetDouble(double value, int precision) { ReplaceText(FixedText(value, precision)); }

void VString::SetFloat(float value) { ReplaceText(NumberFormatter::format(value)); }

void VString::SetFloat(float value, int precision) { ReplaceText(FixedText(value, precision)); }

void VString::SetInt(int value) { ReplaceText(NumberFormatter::format(value)); }

void VString::SetInt(unsigned int value) { ReplaceText(NumberFormatter::format(value)); }

void VString::SetInt(long value) { ReplaceText(NumberFormatter::format(value)); }

void VString::SetInt(unsigned long value) { ReplaceText(NumberFormatter::format(value)); }

void VString::SetInt(long long value) { ReplaceText(NumberFormatter::format(value)); }

void VString::SetInt64(int64_t value) { SetInt(static_cast<long long>(value)); }

std::string VString::FormatFourCC(uint32_t fourcc) const {
  return std::string{static_cast<char>(fourcc >> 24), static_cast<char>(fourcc >> 16),
                     static_cast<char>(fourcc >> 8), static_cast<char>(fourcc)};
}

void VString::SetVersion(uint32_t version) {
  std::string text = NumberFormatter::format(version >> 16);
  text.push_back('.');
  text += NumberFormatter::format((version >> 8) & 0xFF);
  text.push_back('.');
  text += NumberFormatter::format(version & 0xFF);
  ReplaceText(std::move(text));
}

void VString::SetHex(const unsigned char* bytes, size_t count) {
  std::string text;
  text.reserve(2 * count);
  for (size_t i = 0; i < count; ++i) AppendHexByte(bytes[i], text);
  ReplaceText(std::move(text));
}

void VString::SetHex(unsigned char b0, unsigned char b1, unsigned char b2, unsigned char b3) {
  const unsigned char bytes[] = {b0, b1, b2, b3};
  SetHex(bytes, sizeof(bytes));
}

void VString::SetHex(int value) { ReplaceText(NumberFormatter::formatHex(value)); }

void VString::SetInt(unsigned long long value) { ReplaceText(NumberFormatter::format(value)); }

void VString::SetPair(int packed) {
  const auto bits = static_cast<uint32_t>(packed);
  SetPair(static_cast<int16_t>(bits >> 16), static_cast<int16_t>(bits & 0xFFFF));
}

void VString::SetPair(int first, int second) {
  std::string text = NumberFormatter::format(first);
  text.push_back(kListSeparator);
  text += NumberFormatter::format(second);
  ReplaceText(std::move(text));
}

void VString::SetPair(unsigned long long packed) {
  SetPair(static_cast<int32_t>(static_cast<uint32_t>(packed >> 32)),
          static_cast<int32_t>(static_cast<uint32_t>(packed)));
}

// ---------------------------------------------------------------------------------------------
// Parsing

double VString::ToDouble() const {
  if (text_.empty()) return 0.0;
  double value = 0.0;
  if (NumberParser::tryParseFloat(text_, value, kDecimalPoint, kThousands)) return value;
  return NumberParser::parseFloat(text_, kDecimalPoint, kThousands);
}

float VString::ToFloat() const { return static_cast<float>(ToDouble()); }

int VString::ToInt() const { return text_.empty() ? 0 : NumberParser::parse(text_, kThousands); }

uint32_t VString::ToFourCC() const {
  if (text_.size() < 4) throw std::out_of_range("VString::ToFourCC: fewer than four bytes");
  const auto* b = reinterpret_cast<const unsigned char*>(text_.data());
  return (uint32_t{b[0]} << 24) | (uint32_t{b[1]} << 16) | (uint32_t{b[2]} << 8) | b[3];
}

long long VString::ToInt64() const {
  if (text_.empty()) return 0;
  Poco::Int64 value = 0;
  if (NumberParser::tryParse64(text_, value, kThousands)) return value;
  // A decimal integer that the parser refuses is one that does not fit.
  size_t i = (text_[0] == '-' || text_[0] == '+') ? 1 : 0;
  const bool decimal = i < text_.size() && std::isdigit(static_cast<unsigned char>(text_[i])) &&
                       text_.find_first_not_of("0123456789,", i) == std::string::npos;
  if (decimal) throw std::out_of_range("VString::ToInt64: " + text_ + " does not fit in 64 bits");
  return NumberParser::parse64(text_, kThousands);
}

uint32_t VString::ToHex() const { return text_.empty() ? 0 : NumberParser::parseHex(text_); }

unsigned char VString::ToHexByte(uint32_t index) const {
  const size_t position = 2 * size_t{index};
  if (position + 2 > text_.size())
    throw std::out_of_range("VString::ToHexByte: index beyond the text");
  const int high = HexDigitValue(text_[position]);
  const int low = HexDigitValue(text_[position + 1]);
  if (high < 0 || low < 0) ThrowSyntax(text_.substr(position, 2));
  return static_cast<unsigned char>(high << 4 | low);
}

uint32_t VString::GetHex(unsigned char* buffer, uint32_t size) const {
  if (text_.size() % 2 != 0) return 0xFFFFFFFEu;
  for (char c : text_) {
    if (HexDigitValue(c) < 0) return 0xFFFFFFFEu;
  }
  if (text_.size() / 2 > size) return 0xFFFFFFFFu;
  for (size_t i = 0; i < text_.size() / 2; ++i) {
    buffer[i] = static_cast<unsigned char>(HexDigitValue(text_[2 * i]) << 4 |
                                           HexDigitValue(text_[2 * i + 1]));
  }
  return 0;
}

uint64_t VString::ToUInt64() const {
  return text_.empty() ? 0 : NumberParser::parseUnsigned64(text_, kThousands);
}

bool VString::TryToDouble(double& value) const {
  if (text_.empty()) {
    value = 0.0;
    return true;
  }
  double parsed = 0.0;
  if (!NumberParser::tryParseFloat(text_, parsed, kDecimalPoint, kThousands)) return false;
  value = parsed;
  return true;
}

bool VString::TryToUInt64(uint64_t& value) const {
  if (text_.empty()) {
    value = 0;
    return true;
  }
  Poco::UInt64 parsed = 0;
  if (!NumberParser::tryParseUnsigned64(text_, parsed, kThousands)) return false;
  value = parsed;
  return true;
}

void VString::SetList(const float* values, uint8_t count) { ReplaceText(JoinList(values, count)); }

void VString::SetList(const uint16_t* values, uint8_t count) {
  ReplaceText(JoinList(values, count));
}

void VString::SetList(const int16_t* values, uint8_t count) {
  ReplaceText(JoinList(values, count));
}

void VString::SetList(const uint8_t* values, uint8_t count) {
  ReplaceText(JoinList(values, count));
}

size_t VString::ToList(float* values, size_t capacity) const {
  return ParseList(text_, values, capacity);
}

size_t VString::ToList(uint16_t* values, size_t capacity) const {
  return ParseList(text_, values, capacity);
}

size_t VString::ToList(uint8_t* values, size_t capacity) const {
  return ParseList(text_, values, capacity);
}

void VString::ToList(std::vector<int>& values) const {
  std::vector<int> parsed;
  for (const std::string& piece : SplitList(text_)) {
    parsed.push_back(NumberParser::parse(piece, kThousands));
  }
  values.swap(parsed);
}

VString VString::Format(const char* format, ...) const {
  va_list args;
  va_start(args, format);
  va_list measure;
  va_copy(measure, args);
  const int length = std::vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  std::string text;
  if (length > 0) {
    text.resize(static_cast<size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, args);
  }
  va_end(args);
  return VString(text);
}

uint32_t VString::ToUInt() const {
  return text_.empty() ? 0 : NumberParser::parseUnsigned(text_, kThousands);
}

unsigned long long VString::ToULongLong() const { return ToUInt64(); }

// ---------------------------------------------------------------------------------------------
// Base64

void VString::SetBase64(const void* data, unsigned int count) {
  ReplaceText(EncodeBase64Bytes(static_cast<const char*>(data), count));
}

void VString::EncodeBase64() { ReplaceText(EncodeBase64Bytes(text_.data(), text_.size())); }

bool VString::GetBase64(unsigned char* buffer, unsigned int& count) const {
  std::string decoded;
  if (!DecodeBase64Bytes(text_, decoded) || decoded.size() > count) return false;
  if (!decoded.empty()) std::memcpy(buffer, decoded.data(), decoded.size());
  count = static_cast<unsigned int>(decoded.size());
  return true;
}

void VString::DecodeBase64() {
  std::string decoded;
  if (!DecodeBase64Bytes(text_, decoded)) {
    throw Poco::DataFormatException("VString::DecodeBase64: the text is not Base64");
  }
  ReplaceText(std::move(decoded));
}
