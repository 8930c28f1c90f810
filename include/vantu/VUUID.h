// VUUID: a 128-bit universally unique identifier (RFC 9562).
//
// NewV4() is random (122 bits from the kernel's cryptographic generator, drawn in blocks);
// NewV7() starts with the Unix time in milliseconds, so ids sort by creation time. The v7 ids
// made in one process are strictly increasing, also within one millisecond and from several
// threads: the 12 bits after the version and the 30 bits after the variant form a counter that
// starts at a random value each millisecond and counts up; if the counter runs out, or the
// clock steps back, the id carries on from the last one's time. A default-constructed VUUID is
// the null id (all zero bits).
//
// Text is the canonical 36-character form, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx", written in
// lower case. Parse accepts hexadecimal digits in either case and nothing else: braces, "urn:",
// missing or extra hyphens, spaces or any other length throw VantuSyntaxException. Comparison
// orders ids by their bytes (for v7 ids: by time); std::hash<VUUID> is provided, so an id can
// key unordered containers.
//
// Thread safety: a value type without locks; NewV4 and NewV7 may be called from any thread.
// NewV4/NewV7 throw VantuRuntimeException when the kernel gives no random bytes.
//
//   VUUID id = VUUID::NewV7();
//   VString text = id.ToString();  // "01890a5d-ac96-774b-bcce-b302099a8057"
//   bool same = VUUID::Parse(text) == id;
#ifndef VANTU_VUUID_H
#define VANTU_VUUID_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VString.h>

class VANTU_API VUUID : public VBaseObject {
 public:
  // The null id.
  VUUID();
  // From 16 bytes in network order (as the text reads them).
  explicit VUUID(const uint8_t bytes[16]);
  VUUID(const VUUID& other);
  VUUID& operator=(const VUUID& other);
  // Slot 1.
  ~VUUID() override;
  // Slot 2: copies another VUUID's value; does nothing for another class.
  void Clone(const VBaseObject& other) override;

  static VUUID NewV4();
  static VUUID NewV7();
  static VUUID Null();

  // The canonical form; anything else throws VantuSyntaxException.
  static VUUID Parse(const VString& text);
  static VUUID Parse(const std::string& text);
  static VUUID Parse(const char* text);
  static VUUID Parse(const char* text, StringEncoding encoding);

  // 36 characters, lower case, UTF8.
  VString ToString() const;
  // The version field (4 for NewV4, 7 for NewV7, 0 for the null id).
  int Version() const { return bytes_[6] >> 4; }
  bool IsNull() const;
  const uint8_t* Bytes() const { return bytes_; }

  int Compare(const VUUID& other) const;
  bool operator==(const VUUID& other) const { return Compare(other) == 0; }
  bool operator!=(const VUUID& other) const { return Compare(other) != 0; }
  bool operator<(const VUUID& other) const { return Compare(other) < 0; }
  bool operator<=(const VUUID& other) const { return Compare(other) <= 0; }
  bool operator>(const VUUID& other) const { return Compare(other) > 0; }
  bool operator>=(const VUUID& other) const { return Compare(other) >= 0; }

  size_t Hash() const;

 private:
  uint8_t bytes_[16];
};

template <>
struct std::hash<VUUID> {
  size_t operator()(const VUUID& id) const noexcept { return id.Hash(); }
};

#endif  // VANTU_VUUID_H
