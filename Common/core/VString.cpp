#include <vantu/VString.h>

#include <Poco/Exception.h>
#include <Poco/URI.h>

#include <cstring>
#include <cwchar>
#include <ostream>
#include <utility>

#include "internal/Nfc.h"
#include "internal/PathText.h"
#include "internal/TextConversion.h"
#include "internal/Utf.h"

namespace {

bool IsValidEncoding(StringEncoding encoding) {
  return encoding >= SystemCodePage && encoding <= UTF16;
}

char AsciiUpper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }
char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// strcmp/strncmp over NUL-terminated texts, optionally ignoring the case of ASCII letters.
int CompareBytes(const char* a, const char* b, size_t limit, bool ignoreCase) {
  for (size_t i = 0; i < limit; ++i) {
    unsigned char ca = static_cast<unsigned char>(a[i]);
    unsigned char cb = static_cast<unsigned char>(b[i]);
    if (ignoreCase) {
      ca = static_cast<unsigned char>(AsciiLower(static_cast<char>(ca)));
      cb = static_cast<unsigned char>(AsciiLower(static_cast<char>(cb)));
    }
    if (ca != cb) return static_cast<int>(ca) - static_cast<int>(cb);
    if (ca == 0) return 0;
  }
  return 0;
}

// The count of the N forms is narrowed to 32 bits.
size_t NarrowCount(size_t count) { return static_cast<uint32_t>(count); }

constexpr size_t kNoLimit = static_cast<size_t>(-1);

}  // namespace

// ---------------------------------------------------------------------------------------------
// Construction

VString::VString() = default;

VString::VString(StringEncoding encoding) : encoding_(encoding) {}

// Copies and moves take the recorded normalisation with the text, so that a copy of NFC text is
// not normalised again.
VString::VString(const VString& other)
    : text_(other.text_), encoding_(other.encoding_), normalization_(other.normalization_) {}

VString::VString(VString&& other) noexcept
    : text_(std::move(other.text_)),
      encoding_(other.encoding_),
      normalization_(other.normalization_) {
  other.text_.clear();
  other.converted_.clear();
}

VString::VString(const std::string& text) { SetBytes(text.data(), text.size(), SystemCodePage); }

VString::VString(const std::string& text, StringEncoding encoding) {
  SetBytes(text.data(), text.size(), encoding);
}

VString::VString(const char* text) { Set(text); }

VString::VString(const char* text, StringEncoding encoding) { Set(text, encoding); }

VString::VString(const unsigned char* pascal) { Set(pascal); }

VString::VString(const unsigned char* pascal, StringEncoding encoding) { Set(pascal, encoding); }

VString::VString(const std::wstring& text) { Set(text); }

VString::VString(const wchar_t* text) { Set(text); }

VString::VString(const std::u16string& text) { Set(text); }

VString::VString(const char16_t* text) { Set(text); }

VString& VString::operator=(const VString& other) { return Assign(other); }

VString& VString::operator=(VString&& other) noexcept {
  if (this != &other) {
    text_.swap(other.text_);
    encoding_ = other.encoding_;
    normalization_ = other.normalization_;
    converted_.clear();
    other.text_.clear();
    other.converted_.clear();
  }
  return *this;
}

VString::~VString() = default;

void VString::TextReplaced() noexcept {
  converted_.clear();
  normalization_ = -1;
}

void VString::SetBytes(const char* data, size_t size, StringEncoding fallback) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(data);
  StringEncoding encoding = fallback;
  size_t skip = 0;
  if (size >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) {
    encoding = UTF8;
    skip = 3;
  } else if (size >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE) {
    encoding = UTF16;
    skip = 2;
  }
  std::string text(data + skip, size - skip);
  text_.swap(text);
  encoding_ = encoding;
  TextReplaced();
  if (encoding_ == UTF8) Normalize(NFC);
}

void VString::SetUtf16Bytes(const char* data) {
  std::string text;
  vantu::internal::AppendUtf8FromUtf16LE(data, vantu::internal::Utf16LEUnitLength(data), text);
  text_.swap(text);
  encoding_ = UTF8;
  TextReplaced();
}

// ---------------------------------------------------------------------------------------------
// Equality, assignment, appending

const std::string& VString::ViewOf(const VString& other) const {
  if (other.encoding_ == encoding_) return other.text_;
  VString copy(other);
  copy.ConvertTo(encoding_);
  other.converted_.swap(copy.text_);
  return other.converted_;
}

bool VString::IsEqual(const VString& other) const { return text_ == ViewOf(other); }

bool VString::IsEqual(const std::string& other) const { return IsEqual(VString(other)); }

bool VString::IsEqual(const unsigned char* pascal) const { return IsEqual(VString(pascal)); }

bool VString::IsEqual(const char* other) const { return IsEqual(VString(other)); }

VString& VString::Assign(const VString& other) {
  if (this != &other) {
    text_ = other.text_;
    encoding_ = other.encoding_;
    normalization_ = other.normalization_;
    converted_.clear();
  }
  return *this;
}

VString& VString::Assign(const std::string& other) { return Assign(VString(other)); }

VString& VString::Assign(const unsigned char* pascal) { return Assign(VString(pascal)); }

VString& VString::Assign(const char* other) { return Assign(VString(other)); }

VString& VString::Append(const VString& other) {
  if (other.encoding_ == encoding_) {
    text_.append(other.text_);
  } else {
    VString copy(other);
    copy.ConvertTo(encoding_);
    text_.append(copy.text_);
  }
  TextReplaced();
  return *this;
}

VString& VString::Append(const std::string& other) { return Append(VString(other)); }

VString& VString::Append(const unsigned char* pascal) { return Append(VString(pascal)); }

VString& VString::Append(const char* other) { return Append(VString(other)); }

VString& VString::Append(char c) {
  const char text[2] = {c, '\0'};
  return Append(text);
}

// ---------------------------------------------------------------------------------------------
// Set

void VString::Set(const unsigned char* pascal, StringEncoding encoding) {
  SetBytes(reinterpret_cast<const char*>(pascal + 1), pascal[0], encoding);
}

void VString::Set(const char* text, StringEncoding encoding) {
  if (encoding == UTF16 && text != nullptr) {
    SetUtf16Bytes(text);
    return;
  }
  if (text != nullptr && static_cast<unsigned char>(text[0]) == 0xFF &&
      static_cast<unsigned char>(text[1]) == 0xFE) {
    SetUtf16Bytes(text + 2);
    return;
  }
  SetBytes(text, text ? std::strlen(text) : 0, encoding);
}

void VString::Set(const std::string& text, StringEncoding encoding) {
  SetBytes(text.data(), text.size(), encoding);
}

void VString::Set(const unsigned char* pascal) { Set(pascal, SystemCodePage); }

void VString::Set(const wchar_t* text) { Set(text, std::wcslen(text)); }

void VString::Set(const char* text) { Set(text, SystemCodePage); }

void VString::Set(const std::wstring& text) { Set(text.data(), text.size()); }

void VString::Set(const std::string& text) { SetBytes(text.data(), text.size(), SystemCodePage); }

void VString::SetRaw(const char* bytes, size_t count, StringEncoding encoding) {
  std::string text(bytes, count);
  text_.swap(text);
  encoding_ = encoding;
  TextReplaced();
  if (encoding_ == UTF8) Normalize(NFC);
}

void VString::Set(const wchar_t* text, size_t count) {
  std::string utf8;
  vantu::internal::AppendUtf8FromUtf32(text, count, utf8);
  text_.swap(utf8);
  encoding_ = UTF8;
  TextReplaced();
}

void VString::Set(const char* text, size_t count) { SetBytes(text, count, SystemCodePage); }

void VString::Set(const char16_t* text) { Set(text, std::char_traits<char16_t>::length(text)); }

void VString::Set(const std::u16string& text) { Set(text.data(), text.size()); }

void VString::Set(const char16_t* text, size_t count) {
  std::string utf8;
  vantu::internal::AppendUtf8FromUtf16(text, count, utf8);
  text_.swap(utf8);
  encoding_ = UTF8;
  TextReplaced();
}

// ---------------------------------------------------------------------------------------------
// Standard text types

VString VString::FromUTF8(std::string_view text) {
  VString result(UTF8);
  // NFC never reaches across a NUL, a starter that combines with nothing.
  for (size_t start = 0;;) {
    const size_t nul = text.find('\0', start);
    std::string run(text.substr(start, nul == std::string_view::npos ? nul : nul - start));
    vantu::internal::NormalizeUtf8(run, NFC);
    result.text_.append(run);
    if (nul == std::string_view::npos) break;
    result.text_.push_back('\0');
    start = nul + 1;
  }
  result.normalization_ = NFC;
  return result;
}

VString VString::FromUTF16(std::u16string_view text) {
  VString result;
  result.Set(text.data(), text.size());
  return result;
}

VString VString::FromFilesystemPath(const std::filesystem::path& path) {
  VString result;
  vantu::internal::SetPathBytes(result, path.native(), UTF8);
  return result;
}

std::string VString::ToUTF8() const {
  if (!IsValidEncoding(encoding_)) return text_;  // no known encoding: the bytes as they are
  std::string utf8;
  vantu::internal::ConvertText(encoding_, UTF8, text_, utf8);
  return utf8;
}

std::u16string VString::ToUTF16() const {
  std::string bytes;
  vantu::internal::ConvertText(IsValidEncoding(encoding_) ? encoding_ : UTF8, UTF16, text_, bytes);
  std::u16string utf16(bytes.size() / 2, u'\0');
  for (size_t i = 0; i < utf16.size(); ++i) {
    utf16[i] = static_cast<char16_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                     static_cast<unsigned char>(bytes[2 * i + 1]) << 8);
  }
  return utf16;
}

std::filesystem::path VString::ToFilesystemPath() const {
  return std::filesystem::path(vantu::internal::PathBytes(*this));
}

std::ostream& operator<<(std::ostream& out, const VString& text) {
  if (text.encoding_ == UTF8) return out << text.text_;
  return out << text.ToUTF8();
}

// ---------------------------------------------------------------------------------------------
// Encodings and normalisation

bool VString::ConvertTo(StringEncoding target) {
  if (!IsValidEncoding(encoding_) || !IsValidEncoding(target)) return false;
  if (encoding_ == UTF8) Normalize(NFC);
  if (encoding_ == target) return true;
  std::string converted;
  bool knownNfc = false;
  vantu::internal::ConvertText(encoding_, target, text_, converted, &knownNfc);
  text_.swap(converted);
  encoding_ = target;
  TextReplaced();
  if (encoding_ == UTF8) {
    if (knownNfc) {
      normalization_ = NFC;  // the conversion proved that normalising would change nothing
    } else {
      Normalize(NFC);
    }
  }
  return true;
}

void VString::SwapByteOrder() {
  if (encoding_ != UTF16) return;
  for (size_t i = 0; i + 1 < text_.size(); i += 2) std::swap(text_[i], text_[i + 1]);
  converted_.clear();
}

void VString::Normalize(NormalizationForm form) {
  if (form == normalization_) return;
  if (encoding_ == UTF8 && form >= NFD && form <= NFKC) {
    vantu::internal::NormalizeUtf8(text_, form);
    converted_.clear();
  }
  normalization_ = form;
}

void VString::KeepNumeric() {
  size_t kept = 0;
  for (char c : text_) {
    if ((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.') text_[kept++] = c;
  }
  if (kept != text_.size()) {
    text_.resize(kept);
    TextReplaced();
  }
}

void VString::ToUpper() {
  for (char& c : text_) {
    if (c == '\0') break;
    c = AsciiUpper(c);
  }
  TextReplaced();
}

void VString::ToLower() {
  for (char& c : text_) {
    if (c == '\0') break;
    c = AsciiLower(c);
  }
  TextReplaced();
}

void VString::Capitalize() {
  if (!text_.empty() && text_[0] != '\0') {
    text_[0] = AsciiUpper(text_[0]);
    for (size_t i = 1; i < text_.size() && text_[i] != '\0'; ++i) text_[i] = AsciiLower(text_[i]);
  }
  TextReplaced();
}

// ---------------------------------------------------------------------------------------------
// Trimming, substrings, searching, replacing

void VString::Trim(char c) {
  TrimLeft(c);
  TrimRight(c);
}

void VString::TrimLeft(char c) {
  const size_t first = text_.find_first_not_of(c);
  if (first == 0) return;
  text_.erase(0, first);  // npos: every byte equals c
  TextReplaced();
}

void VString::TrimRight(char c) {
  const size_t last = text_.find_last_not_of(c);
  const size_t keep = (last == std::string::npos) ? 0 : last + 1;
  if (keep == text_.size()) return;
  text_.resize(keep);
  TextReplaced();
}

std::string VString::Mid(size_t start, size_t count) const { return text_.substr(start, count); }

std::string VString::Left(size_t count) const { return Mid(0, count); }

std::string VString::Right(size_t count) const { return Mid(text_.size() - count, count); }

size_t VString::Find(const char* needle, size_t start) const { return text_.find(needle, start); }

size_t VString::Find(const std::string& needle, size_t start) const {
  return text_.find(needle, start);
}

uint32_t VString::ReverseFind(const char* needle, size_t distanceFromEnd) const {
  return ReverseFind(std::string(needle), distanceFromEnd);
}

uint32_t VString::ReverseFind(const std::string& needle, size_t distanceFromEnd) const {
  const size_t start = text_.size() - 1 - distanceFromEnd;
  return static_cast<uint32_t>(text_.rfind(needle, start));
}

std::string VString::Replace(size_t position, size_t count, const char* replacement) {
  return Replace(position, count, std::string(replacement));
}

std::string VString::Replace(size_t position, size_t count, const std::string& replacement) {
  text_.replace(position, count, replacement);
  normalization_ = -1;
  return text_;
}

void VString::ReplaceAll(const char* search, const char* replacement) {
  ReplaceAll(std::string(search), std::string(replacement));
}

void VString::ReplaceAll(const VString& search, const VString& replacement) {
  ReplaceAll(search.text_, replacement.text_);
}

void VString::ReplaceAll(const std::string& search, const std::string& replacement) {
  if (search.empty()) {
    if (replacement.empty()) return;
    // Before every byte and at the end.
    std::string result;
    result.reserve(text_.size() * (replacement.size() + 1) + replacement.size());
    for (char c : text_) {
      result.append(replacement);
      result.push_back(c);
    }
    result.append(replacement);
    text_.swap(result);
    TextReplaced();
    return;
  }
  size_t position = text_.find(search);
  if (position == std::string::npos) return;
  // Build the result in one pass; the text after each replacement is searched from there on,
  // never the replacement itself.
  std::string result;
  size_t copied = 0;
  while (position != std::string::npos) {
    result.append(text_, copied, position - copied);
    result.append(replacement);
    copied = position + search.size();
    position = text_.find(search, copied);
  }
  result.append(text_, copied, std::string::npos);
  text_.swap(result);
  TextReplaced();
}

void VString::URIEncode() {
  std::string encoded;
  Poco::URI::encode(text_, "", encoded);
  text_.swap(encoded);
  TextReplaced();
}

void VString::URIDecode() {
  std::string decoded;
  try {
    Poco::URI::decode(text_, decoded, false);
  } catch (const Poco::Exception&) {
    return;  // malformed escape: the text stays as it was
  }
  text_.swap(decoded);
  TextReplaced();
}

// ---------------------------------------------------------------------------------------------
// Comparisons

int VString::Compare(const char* other, StringEncoding encoding) const {
  return Compare(VString(other, encoding));
}
int VString::Compare(const char* other) const { return Compare(VString(other)); }
int VString::Compare(const std::string& other, StringEncoding encoding) const {
  return Compare(VString(other, encoding));
}
int VString::Compare(const std::string& other) const { return Compare(VString(other)); }
int VString::Compare(const VString& other) const {
  return CompareBytes(text_.c_str(), ViewOf(other).c_str(), kNoLimit, false);
}

int VString::CompareN(const char* other, StringEncoding encoding, size_t count) const {
  return CompareN(VString(other, encoding), count);
}
int VString::CompareN(const char* other, size_t count) const {
  return CompareN(VString(other), count);
}
int VString::CompareN(const std::string& other, StringEncoding encoding, size_t count) const {
  return CompareN(VString(other, encoding), count);
}
int VString::CompareN(const std::string& other, size_t count) const {
  return CompareN(VString(other), count);
}
int VString::CompareN(const VString& other, size_t count) const {
  return CompareBytes(text_.c_str(), ViewOf(other).c_str(), NarrowCount(count), false);
}

int VString::CompareNoCase(const char* other, StringEncoding encoding) const {
  return CompareNoCase(VString(other, encoding));
}
int VString::CompareNoCase(const char* other) const { return CompareNoCase(VString(other)); }
int VString::CompareNoCase(const std::string& other, StringEncoding encoding) const {
  return CompareNoCase(VString(other, encoding));
}
int VString::CompareNoCase(const std::string& other) const { return CompareNoCase(VString(other)); }
int VString::CompareNoCase(const VString& other) const {
  return CompareBytes(text_.c_str(), ViewOf(other).c_str(), kNoLimit, true);
}

int VString::CompareNoCaseN(const char* other, StringEncoding encoding, size_t count) const {
  return CompareNoCaseN(VString(other, encoding), count);
}
int VString::CompareNoCaseN(const char* other, size_t count) const {
  return CompareNoCaseN(VString(other), count);
}
int VString::CompareNoCaseN(const std::string& other, StringEncoding encoding, size_t count) const {
  return CompareNoCaseN(VString(other, encoding), count);
}
int VString::CompareNoCaseN(const std::string& other, size_t count) const {
  return CompareNoCaseN(VString(other), count);
}
int VString::CompareNoCaseN(const VString& other, size_t count) const {
  return CompareBytes(text_.c_str(), ViewOf(other).c_str(), NarrowCount(count), true);
}
