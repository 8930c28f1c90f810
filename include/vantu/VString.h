// VString: text bytes that know their encoding.
//
// A VString holds bytes in one of six encodings (StringEncoding) and converts between them on
// request. UTF-8 text put in by a constructor, a Set operation, SetRaw or ConvertTo is kept in
// Unicode normalisation form C. Text built from raw narrow bytes is checked for a byte-order
// mark: EF BB BF means UTF8 and FF FE means UTF16 (little-endian), whatever encoding the caller
// named; the mark is removed. UTF16 text is stored as little-endian byte pairs.
//
// Operations that combine two strings (IsEqual, Append, the Compare families) first bring the
// other string into this string's encoding, so mixed encodings behave as text, not as bytes.
// Positions and counts are byte positions and byte counts. Conversions never throw for
// characters the target cannot hold: they become "?". Invalid input in any encoding never
// crashes, never reads past its buffer and never makes a conversion throw.
//
// Errors: Mid, Right and Replace throw std::out_of_range as std::string does; allocation
// failures throw std::bad_alloc and leave the object valid. Nothing else throws.
//
// Thread safety: a VString is a value without locks. Several threads may read one at once
// unless one of them passes it as the argument of an operation on a string of another
// encoding: that fills its converted view, a cache inside the argument.
//
// The virtual operations are part of the library's binary interface; they are declared in slot
// order (slot numbers in the comments) and further slots are only ever appended.
//
//   VString name("Gr\xC3\xBC\xC3\x9F" "e", UTF8);
//   name.ConvertTo(Latin1);        // bytes 47 72 FC DF 65
//   bool same = name.IsEqual(VString("Gr\xFC\xDF" "e", Latin1));  // true
#ifndef VANTU_VSTRING_H
#define VANTU_VSTRING_H

#include <cstddef>
#include <cstdint>
#include <string>

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
  // after it be read as NUL-terminated UTF-16, converted to UTF8. A null pointer is empty text.
  VString(const char* text);  // NOLINT(google-explicit-constructor)
  // With UTF16 the pointer is read as NUL-terminated little-endian UTF-16 and converted to UTF8;
  // otherwise as VString(const char*) with the given encoding as fallback.
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

  // Slots 11-15: append the other text, converted to this string's encoding.
  virtual VString& Append(const VString& other);
  virtual VString& Append(const std::string& other);
  virtual VString& Append(const unsigned char* pascal);
  virtual VString& Append(const char* other);
  virtual VString& Append(char c);

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
  // Slot 26: count narrow bytes, with mark detection as VString(const std::string&).
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

  // UTF-16 forms of the wide Set operations (not virtual).
  void Set(const char16_t* text);
  void Set(const std::u16string& text);
  void Set(const char16_t* text, size_t count);

  // The bytes, in the string's encoding.
  const std::string& GetString() const noexcept { return text_; }
  const char* c_str() const noexcept { return text_.c_str(); }
  // Byte count.
  size_t Length() const noexcept { return text_.size(); }
  StringEncoding GetEncoding() const noexcept { return encoding_; }
  // The recorded NormalizationForm, or -1 when unknown.
  int GetNormalization() const noexcept { return normalization_; }

 private:
  // Fills text and encoding from raw narrow bytes with byte-order-mark detection.
  void SetBytes(const char* data, size_t size, StringEncoding fallback);
  // Fills text from NUL-terminated little-endian UTF-16 bytes, as UTF8.
  void SetUtf16Bytes(const char* data);
  // Marks the text as replaced: converted view emptied, normalisation unknown.
  void TextReplaced() noexcept;
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
