// VString: text bytes that know their encoding.
//
// A VString holds bytes in one of six encodings (StringEncoding) and converts between them on
// request. UTF-8 text put in by a constructor, a Set operation, SetRaw or ConvertTo is kept in
// Unicode normalisation form C. Text built from raw narrow bytes is checked for a byte-order
// mark: EF BB BF means UTF8 and FF FE means UTF16 (little-endian), whatever encoding the caller
// named; the mark is removed. UTF16 text is stored as little-endian byte pairs.
//
// The caller's duty with bare pointers: a `const char*` without a count (the constructors, Set,
// IsEqual, Assign, Append and the Compare families) is read up to its first NUL byte, except
// text that starts with the bytes FF FE, and any pointer given together with UTF16: those are
// read as 16-bit units up to the first 0x0000 unit (two zero bytes at an even distance from the
// first unit). The caller must make sure that unit is there; an ordinary C string ends with one
// zero byte, and reading would go on past it. Bytes of known length belong in the forms that
// take the length (std::string, length-prefixed, pointer and count), which never read beyond it.
//
// Operations that combine two strings (IsEqual, Append, the Compare families) first bring the
// other string into this string's encoding, so mixed encodings behave as text, not as bytes.
// Positions and counts are byte positions and byte counts. Conversions never throw for
// characters the target cannot hold: they become "?". Invalid input in any encoding never
// crashes, never reads past its buffer and never makes a conversion throw.
//
// Errors: Mid, Right and Replace throw std::out_of_range as std::string does; the number
// parsers throw what their comments say; allocation failures throw std::bad_alloc and leave the
// object valid. Nothing else throws.
//
// Standard text types, by name so that no new overload competes with the constructors above:
// FromUTF8/ToUTF8 (std::string_view in, std::string out), FromUTF16/ToUTF16 (std::u16string_view,
// std::u16string) and FromFilesystemPath/ToFilesystemPath (std::filesystem::path). A path's
// native bytes are kept exactly as UTF8 text, not normalised, also when they are not valid
// UTF-8 (Linux names are bytes): such a string converts to other encodings with "?" for the
// invalid bytes, but ToFilesystemPath and operator<< give the bytes back unchanged. operator<<
// writes the text as UTF-8. No std::string_view of the text is handed out: text in another
// encoding has no UTF-8 bytes to point at; GetString() is the view of a UTF8 string's own bytes.
//
// Thread safety: a VString is a value without locks. Several threads may read one at once
// unless one of them passes it as the argument of an operation on a string of another
// encoding: that fills its converted view, a cache inside the argument.
//
// The virtual operations are part of the library's binary interface: 116 slots, declared in
// slot order (slot numbers in the comments).
//
//   VString name("Gr\xC3\xBC\xC3\x9F" "e", UTF8);
//   name.ConvertTo(Latin1);        // bytes 47 72 FC DF 65
//   bool same = name.IsEqual(VString("Gr\xFC\xDF" "e", Latin1));  // true
#ifndef VANTU_VSTRING_H
#define VANTU_VSTRING_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

// The encoding of a VString's bytes. The numbers are part of the interface. SystemCodePage is
// the codeset of the calling thread's LC_CTYPE locale, or UTF-8 under the C/POSIX locale.
enum StringEncoding : int32_t {
  SystemCodePage = 0,
  ASCII = 1,
  Latin1 = 2,  // ISO 8859-1
  Latin9 = 3,  // ISO 8859-15
  UTF8 = 4,
  UTF16 = 5,  // little-endian
};

// Unicode normalisation forms, decomposed forms first.
enum NormalizationForm : int32_t {
  NFD = 0,
  NFKD = 1,
  NFC = 2,
  NFKC = 3,
};

namespace vantu::internal {
struct VStringAccess;  // the library's own access to the bytes (paths keep file-system bytes)
}  // namespace vantu::internal

class VANTU_API VString : public VBaseObject {
 public:
  // Empty, SystemCodePage.
  VString();
  // Empty, with the given encoding.
  explicit VString(StringEncoding encoding);
  // Copies text and encoding; the normalisation is reset to unknown.
  VString(const VString& other);
  VString(VString&& other) noexcept;
  // Raw narrow bytes: a byte-order mark wins and is removed; otherwise the given encoding,
  // SystemCodePage where none is given.
  VString(const std::string& text);  // NOLINT(google-explicit-constructor)
  VString(const std::string& text, StringEncoding encoding);
  // As for std::string, up to the first NUL byte, except that an FF FE mark makes the bytes
  // after it be read as little-endian UTF-16 up to the first 0x0000 unit (which the caller must
  // provide), converted to UTF8. A null pointer is empty text.
  VString(const char* text);  // NOLINT(google-explicit-constructor)
  // With UTF16 the pointer is read as little-endian UTF-16 up to the first 0x0000 unit (which
  // the caller must provide) and converted to UTF8; otherwise as VString(const char*) with the
  // given encoding as fallback.
  VString(const char* text, StringEncoding encoding);
  // Length-prefixed bytes: the first byte counts the bytes that follow (0 to 255).
  explicit VString(const unsigned char* pascal);
  VString(const unsigned char* pascal, StringEncoding encoding);
  // Wide text (UTF-32 on POSIX, UTF-16 on Windows) and UTF-16 text, stored as UTF8 as
  // converted (not normalised). Invalid code units become U+FFFD.
  VString(const std::wstring& text);    // NOLINT(google-explicit-constructor)
  VString(const wchar_t* text);         // NOLINT(google-explicit-constructor)
  VString(const std::u16string& text);  // NOLINT(google-explicit-constructor)
  VString(const char16_t* text);        // NOLINT(google-explicit-constructor)

  // Assign(other).
  VString& operator=(const VString& other);
  VString& operator=(VString&& other) noexcept;

  // Slot 1.
  ~VString() override;

  // Slots 3-6: true when the other text, in this string's encoding, has the same bytes.
  virtual bool IsEqual(const VString& other) const;
  virtual bool IsEqual(const std::string& other) const;
  virtual bool IsEqual(const unsigned char* pascal) const;
  virtual bool IsEqual(const char* other) const;

  // Slots 7-10: copy text and encoding; the normalisation marker is left as it was.
  virtual VString& Assign(const VString& other);
  virtual VString& Assign(const std::string& other);
  virtual VString& Assign(const unsigned char* pascal);
  virtual VString& Assign(const char* other);

  // Slots 11-15: append the other text, converted to this string's encoding. VPath hides them
  // on purpose with its own Append (see VPath.h); GCC reports the hiding at these lines, so a
  // user's -Woverloaded-virtual build is told here that it is intended.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
  virtual VString& Append(const VString& other);
  virtual VString& Append(const std::string& other);
  virtual VString& Append(const unsigned char* pascal);
  virtual VString& Append(const char* other);
  virtual VString& Append(char c);
#pragma GCC diagnostic pop

  // Slots 16-23: replace the content as the constructor with the same arguments would.
  virtual void Set(const unsigned char* pascal, StringEncoding encoding);
  virtual void Set(const char* text, StringEncoding encoding);
  virtual void Set(const std::string& text, StringEncoding encoding);
  virtual void Set(const unsigned char* pascal);
  virtual void Set(const wchar_t* text);
  virtual void Set(const char* text);
  virtual void Set(const std::wstring& text);
  virtual void Set(const std::string& text);
  // Slot 24: takes the bytes as they are (no mark detection); UTF8 is normalised to NFC.
  virtual void SetRaw(const char* bytes, size_t count, StringEncoding encoding);
  // Slot 25: count wide code units, converted to UTF8.
  virtual void Set(const wchar_t* text, size_t count);
  // Slot 26: count narrow bytes, with mark detection as VString(const std::string&); after an
  // FF FE mark the rest is kept as UTF16 bytes, up to the count and no further.
  virtual void Set(const char* text, size_t count);

  // Slot 27: converts the text to the target encoding; false (nothing changed) when either
  // encoding is not one of the six.
  virtual bool ConvertTo(StringEncoding target);
  // Slot 28: for UTF16 text, swaps the two bytes of every pair; otherwise does nothing.
  virtual void SwapByteOrder();
  // Slot 29: brings UTF8 text into the given form (with utf8proc, stable, up to the first NUL);
  // records the form for any encoding. Does nothing when the form is already recorded.
  virtual void Normalize(NormalizationForm form);
  // Slot 30: keeps only "+", "-", "." and the digits.
  virtual void KeepNumeric();
  // Slots 31-33: ASCII case mapping, byte by byte, up to the first zero byte. Capitalize
  // upper-cases the first byte and lower-cases the rest.
  virtual void ToUpper();
  virtual void ToLower();
  virtual void Capitalize();

  // Slots 34-36: remove the given byte from both ends, the start, or the end.
  virtual void Trim(char c);
  virtual void TrimLeft(char c);
  virtual void TrimRight(char c);

  // Slots 37-39: substrings as std::string::substr; Mid and Right throw std::out_of_range when
  // the start lies beyond the text (Right(count) starts at Length() - count, unsigned).
  virtual std::string Mid(size_t start, size_t count) const;
  virtual std::string Left(size_t count) const;
  virtual std::string Right(size_t count) const;

  // Slots 40-41: as std::string::find; std::string::npos when not found.
  virtual size_t Find(const char* needle, size_t start) const;
  virtual size_t Find(const std::string& needle, size_t start) const;
  // Slots 42-43: the last occurrence starting at or before Length() - 1 - distanceFromEnd
  // (unsigned, so a distance at or past the length searches everything); 0xFFFFFFFF when none.
  virtual uint32_t ReverseFind(const char* needle, size_t distanceFromEnd) const;
  virtual uint32_t ReverseFind(const std::string& needle, size_t distanceFromEnd) const;

  // Slots 44-45: std::string::replace; returns a copy of the whole new text.
  virtual std::string Replace(size_t position, size_t count, const char* replacement);
  virtual std::string Replace(size_t position, size_t count, const std::string& replacement);

  // Slots 46-48: replace every occurrence, left to right; inserted text is not searched again.
  // An empty search text inserts the replacement before every byte and at the end (with an
  // empty replacement too, nothing changes). The VString form uses both texts' bytes as they
  // are: pass texts in this string's encoding.
  virtual void ReplaceAll(const char* search, const char* replacement);
  virtual void ReplaceAll(const VString& search, const VString& replacement);
  virtual void ReplaceAll(const std::string& search, const std::string& replacement);

  // Slots 49-50: percent-encoding with POCO's URI codec; plus signs stay as they are. Decoding
  // text with a malformed escape leaves the text unchanged.
  virtual void URIEncode();
  virtual void URIDecode();

  // Slots 51-70: compare with another text brought into this string's encoding, as strcmp
  // (the N forms as strncmp, the NoCase forms ignoring the case of ASCII letters); both texts
  // end at their first zero byte. Narrow text is read as the matching constructor reads it.
  virtual int Compare(const char* other, StringEncoding encoding) const;
  virtual int Compare(const char* other) const;
  virtual int Compare(const std::string& other, StringEncoding encoding) const;
  virtual int Compare(const std::string& other) const;
  virtual int Compare(const VString& other) const;
  virtual int CompareN(const char* other, StringEncoding encoding, size_t count) const;
  virtual int CompareN(const char* other, size_t count) const;
  virtual int CompareN(const std::string& other, StringEncoding encoding, size_t count) const;
  virtual int CompareN(const std::string& other, size_t count) const;
  virtual int CompareN(const VString& other, size_t count) const;
  virtual int CompareNoCase(const char* other, StringEncoding encoding) const;
  virtual int CompareNoCase(const char* other) const;
  virtual int CompareNoCase(const std::string& other, StringEncoding encoding) const;
  virtual int CompareNoCase(const std::string& other) const;
  virtual int CompareNoCase(const VString& other) const;
  virtual int CompareNoCaseN(const char* other, StringEncoding encoding, size_t count) const;
  virtual int CompareNoCaseN(const char* other, size_t count) const;
  virtual int CompareNoCaseN(const std::string& other, StringEncoding encoding, size_t count) const;
  virtual int CompareNoCaseN(const std::string& other, size_t count) const;
  virtual int CompareNoCaseN(const VString& other, size_t count) const;

  // Slots 71-89: replace the text by a formatted number; the encoding stays as it is.
  // Slot 71: POCO's default rendering of a double ("1.5", "1e+20"); 72: fixed text with
  // `precision` decimals (a precision below 0 counts as 0) for every finite value, rounded half
  // away from zero ("2.50" for 2.5 with 2, "3" with 0; "-0.00" for -0.001); "inf", "-inf" and
  // "nan" for the others. A precision past a double's 1074 decimals pads with zeros; text too
  // long for memory throws std::bad_alloc. Slots 73-74 the same for float.
  virtual void SetDouble(double value);
  virtual void SetDouble(double value, int precision);
  virtual void SetFloat(float value);
  virtual void SetFloat(float value, int precision);
  // Slots 75-80: decimal. SetInt64 is SetInt(long long) under another name.
  virtual void SetInt(int value);
  virtual void SetInt(unsigned int value);
  virtual void SetInt(long value);
  virtual void SetInt(unsigned long value);
  virtual void SetInt(long long value);
  virtual void SetInt64(int64_t value);
  // Slot 81: the four bytes of a four-character code, most significant first (the inverse of
  // ToFourCC); returns them and leaves this string unchanged.
  virtual std::string FormatFourCC(uint32_t fourcc) const;
  // Slot 82: "major.minor.patch" from v >> 16, (v >> 8) & 255 and v & 255.
  virtual void SetVersion(uint32_t version);
  // Slots 83-85: upper-case hexadecimal. Bytes give two digits each, without separators; an int
  // gives its 32-bit two's complement without leading zeros ("FFFFFFFF" for -1).
  virtual void SetHex(const unsigned char* bytes, size_t count);
  virtual void SetHex(unsigned char b0, unsigned char b1, unsigned char b2, unsigned char b3);
  virtual void SetHex(int value);
  // Slot 86: decimal.
  virtual void SetInt(unsigned long long value);
  // Slots 87-89: "first,second" in decimal. From one int: its upper and lower 16-bit halves,
  // each signed ("1,-1" for 0x0001FFFF); from two ints: both; from a 64-bit value: its upper and
  // lower 32-bit halves, each read as a signed 32-bit number.
  virtual void SetPair(int packed);
  virtual void SetPair(int first, int second);
  virtual void SetPair(unsigned long long packed);

  // Slots 90-111: parse the text, which is left unchanged. Empty text gives 0. Decimal point
  // ".", thousands separator ",". Unless stated otherwise, text that is not a number of the
  // required form throws Poco::SyntaxException (from <Poco/Exception.h>; a
  // Poco::DataException and a std::exception).
  virtual double ToDouble() const;
  // Narrowed to float.
  virtual float ToFloat() const;
  // Slot 92: a signed 32-bit decimal integer.
  virtual int ToInt() const;
  // Slot 93: the first four bytes b0 b1 b2 b3 as b0 << 24 | b1 << 16 | b2 << 8 | b3. Throws
  // std::out_of_range when the text has fewer than four bytes.
  virtual uint32_t ToFourCC() const;
  // Slot 94: a signed 64-bit decimal integer. Throws std::out_of_range when the number does not
  // fit in 64 bits, Poco::SyntaxException when the text is not a decimal integer.
  virtual long long ToInt64() const;
  // Slot 95: the whole text as hexadecimal (POCO's parser: digits, optional "0x" prefix).
  virtual uint32_t ToHex() const;
  // Slot 96: the byte written by SetHex(bytes, count) at `index`: the two hexadecimal digits at
  // byte positions 2 * index and 2 * index + 1. Throws std::out_of_range when they lie beyond
  // the text, Poco::SyntaxException when they are not hexadecimal digits.
  virtual unsigned char ToHexByte(uint32_t index) const;
  // Slot 97: decodes the whole text as pairs of hexadecimal digits (the inverse of
  // SetHex(bytes, count)) into buffer. Returns 0 on success, 0xFFFFFFFF when the buffer holds
  // fewer than Length() / 2 bytes, 0xFFFFFFFE when the text is not pairs of hexadecimal digits;
  // on failure nothing is written. Never throws.
  virtual uint32_t GetHex(unsigned char* buffer, uint32_t size) const;
  // Slot 98: unsigned 64-bit decimal.
  virtual uint64_t ToUInt64() const;
  // Slots 99-100: as ToDouble and ToUInt64, but they report failure by returning false (value
  // untouched) instead of throwing.
  virtual bool TryToDouble(double& value) const;
  virtual bool TryToUInt64(uint64_t& value) const;

  // Slots 101-104: the values joined by ",", each rendered as SetFloat(value) or in decimal.
  // A count of 0 gives empty text.
  virtual void SetList(const float* values, uint8_t count);
  virtual void SetList(const uint16_t* values, uint8_t count);
  virtual void SetList(const int16_t* values, uint8_t count);
  virtual void SetList(const uint8_t* values, uint8_t count);
  // Slots 105-108: split the text at every "," and parse each piece: as a float, or as a
  // decimal integer of the element type (a value out of the type's range is not of the
  // required form). The array forms store at most `capacity` values and return how many they
  // stored; the vector form replaces the vector's content. Empty text gives no values; an empty
  // piece is not a number and throws.
  virtual size_t ToList(float* values, size_t capacity) const;
  virtual size_t ToList(uint16_t* values, size_t capacity) const;
  virtual size_t ToList(uint8_t* values, size_t capacity) const;
  virtual void ToList(std::vector<int>& values) const;

  // Slot 109: printf-style formatting into a new VString, built from the bytes as
  // VString(const std::string&) builds it (a leading byte-order mark decides the encoding,
  // else SystemCodePage). This string is not changed.
  virtual VString Format(const char* format, ...) const __attribute__((format(printf, 2, 3)));

  // Slot 110: unsigned 32-bit decimal.
  virtual uint32_t ToUInt() const;
  // Slot 111: ToUInt64 under another name.
  virtual unsigned long long ToULongLong() const;

  // Slots 112-115: Base64 with POCO's codec (standard alphabet, padding, lines of 72 characters
  // ended by CR LF). The encoding value is left as it is.
  virtual void SetBase64(const void* data, unsigned int count);
  // Replaces the text by the Base64 encoding of its own bytes.
  virtual void EncodeBase64();
  // Decodes the text into buffer; `count` is the buffer's size on entry and the number of bytes
  // decoded on return. Returns false, writing nothing, when the buffer is too small or the text
  // is not Base64. The text is unchanged.
  virtual bool GetBase64(unsigned char* buffer, unsigned int& count) const;
  // Replaces the text by the decoding of its Base64 content. Throws Poco::DataFormatException
  // (a Poco::DataException) when the text is not Base64, leaving it unchanged.
  virtual void DecodeBase64();

  // UTF-16 forms of the wide Set operations (not virtual).
  void Set(const char16_t* text);
  void Set(const std::u16string& text);
  void Set(const char16_t* text, size_t count);

  // UTF-8 text, whole (embedded NULs kept), no byte-order-mark detection: UTF8, normalised to
  // NFC (each run between NULs on its own, which gives the same text as normalising the whole).
  static VString FromUTF8(std::string_view text);
  // UTF-16 text, whole, stored as UTF8 as converted (not normalised), as VString(const
  // std::u16string&); unpaired surrogates become U+FFFD.
  static VString FromUTF16(std::u16string_view text);
  // A file-system path's native bytes as they are, as UTF8 that is not normalised (normalisation
  // unknown), valid UTF-8 or not: ToFilesystemPath gives the same path back.
  static VString FromFilesystemPath(const std::filesystem::path& path);
  // The text converted to UTF-8 or UTF-16 as ConvertTo converts it ("?" for what the target
  // cannot hold), but whole and without normalising; UTF8 text comes back byte for byte. An odd
  // last byte of UTF16 text is left out of ToUTF16. This string is not changed.
  std::string ToUTF8() const;
  std::u16string ToUTF16() const;
  // The path of the bytes this text names in the file system: UTF8 text (and system-code-page
  // text on a UTF-8 system) byte for byte, other encodings converted to UTF-8, as VPath and
  // VFile use them.
  std::filesystem::path ToFilesystemPath() const;
  // Writes the text as UTF-8 (ToUTF8; UTF8 text byte for byte). Found for VString and VPath
  // arguments only.
  friend VANTU_API std::ostream& operator<<(std::ostream& out, const VString& text);

  // The bytes, in the string's encoding.
  const std::string& GetString() const noexcept { return text_; }
  const char* c_str() const noexcept { return text_.c_str(); }
  // Byte count.
  size_t Length() const noexcept { return text_.size(); }
  StringEncoding GetEncoding() const noexcept { return encoding_; }
  // The recorded NormalizationForm, or -1 when unknown.
  int GetNormalization() const noexcept { return normalization_; }

 private:
  friend struct vantu::internal::VStringAccess;

  // Fills text and encoding from raw narrow bytes with byte-order-mark detection.
  void SetBytes(const char* data, size_t size, StringEncoding fallback);
  // Fills text from NUL-terminated little-endian UTF-16 bytes, as UTF8.
  void SetUtf16Bytes(const char* data);
  // Marks the text as replaced: converted view emptied, normalisation unknown.
  void TextReplaced() noexcept;
  // Replaces the bytes, keeping the encoding.
  void ReplaceText(std::string text) noexcept;
  // The other string's text in this string's encoding (its converted view when they differ).
  const std::string& ViewOf(const VString& other) const;

  std::string text_;
  // The converted view: scratch space for another encoding, filled when this string is the
  // argument of an operation on a string of another encoding.
  mutable std::string converted_;
  StringEncoding encoding_ = SystemCodePage;
  int32_t normalization_ = -1;
};

#endif  // VANTU_VSTRING_H
