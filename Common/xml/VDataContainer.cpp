#include <vantu/VDataContainer.h>

#include <charconv>
#include <cstring>
#include <istream>
#include <ostream>
#include <sstream>

#include "xml/internal/StringAppender.h"

namespace {

// The value's text without surrounding ASCII white space.
std::string_view Trimmed(const std::string& text) {
  const auto space = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  size_t first = 0;
  size_t end = text.size();
  while (first < end && space(text[first])) ++first;
  while (end > first && space(text[end - 1])) --end;
  return std::string_view(text).substr(first, end - first);
}

// Parses the whole trimmed text as a number (a leading "+" allowed); false when it is not one.
template <typename Number>
bool ParseNumber(const std::string& text, Number& value) {
  std::string_view digits = Trimmed(text);
  if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') digits.remove_prefix(1);
  const char* end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, value);
  return result.ec == std::errc() && result.ptr == end && !digits.empty();
}

template <typename Number>
Number GetNumber(const VDataContainer& container, VDataNode node, Number defaultValue) {
  std::string text;
  Number value;
  if (node == nullptr || !container.GetValue(node, text) || !ParseNumber(text, value)) {
    return defaultValue;
  }
  return value;
}

template <typename Number>
bool SetNumber(VDataContainer& container, VDataNode node, Number value) {
  char text[32];
  const auto result = std::to_chars(text, text + sizeof(text), value);
  return container.SetValue(node, text, static_cast<size_t>(result.ptr - text));
}

}  // namespace

VDataContainer::VDataContainer() : encoding_(UTF8) {}
VDataContainer::VDataContainer(const VDataContainer& other)
    : VBaseObject(other), encoding_(other.encoding_) {}
VDataContainer::~VDataContainer() = default;

bool VDataContainer::SetValue(VDataNode node, const VString& value) {
  VString converted(value);
  converted.ConvertTo(static_cast<StringEncoding>(encoding_));
  return SetValue(node, converted.c_str(), converted.Length());
}

bool VDataContainer::SetValue(VDataNode node, const char* value) {
  const VString text(value);
  return SetValue(node, text.c_str(), text.Length());
}

VDataContainer& VDataContainer::operator=(const VDataContainer& other) {
  if (this != &other) Copy(other, 0);
  return *this;
}

bool VDataContainer::IsEmpty() const { return true; }

void VDataContainer::Clear() {}

bool VDataContainer::GetValue(VDataNode node, VString& value) const {
  std::string bytes;
  if (!GetValue(node, bytes)) return false;
  value.SetRaw(bytes.data(), bytes.size(), static_cast<StringEncoding>(encoding_));
  return true;
}

std::string VDataContainer::ToString(unsigned int flags) {
  std::string text;
  vantu::internal::StringAppender buffer(text);
  std::ostream out(&buffer);
  if (!Save(out, flags)) text.clear();
  return text;
}

bool VDataContainer::FromString(const std::string& text) {
  try {
    std::istringstream in(text);
    return Load(in);
  } catch (...) {
    return false;
  }
}

int VDataContainer::GetInt(VDataNode node, int defaultValue) const {
  return GetNumber(*this, node, defaultValue);
}

long long VDataContainer::GetInt64(VDataNode node, long long defaultValue) const {
  return GetNumber(*this, node, defaultValue);
}

double VDataContainer::GetDouble(VDataNode node, double defaultValue) const {
  return GetNumber(*this, node, defaultValue);
}

bool VDataContainer::GetBool(VDataNode node, bool defaultValue) const {
  std::string text;
  if (node == nullptr || !GetValue(node, text)) return defaultValue;
  const std::string_view word = Trimmed(text);
  if (word == "true" || word == "1") return true;
  if (word == "false" || word == "0") return false;
  return defaultValue;
}

bool VDataContainer::SetInt(VDataNode node, int value) { return SetNumber(*this, node, value); }

bool VDataContainer::SetInt64(VDataNode node, long long value) {
  return SetNumber(*this, node, value);
}

bool VDataContainer::SetDouble(VDataNode node, double value) {
  return SetNumber(*this, node, value);
}

bool VDataContainer::SetBool(VDataNode node, bool value) {
  return value ? SetValue(node, "true", 4) : SetValue(node, "false", 5);
}
