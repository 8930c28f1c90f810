// VHexBinaryCodec: bytes to lower-case hexadecimal text and back (two digits per byte, no
// separators), as data containers store binary values.
//
// Decode accepts upper- and lower-case digits and throws VantuDataException when the text has
// an odd length or a character that is not a hexadecimal digit. Stateless; thread-safe.
//
//   std::string text = VHexBinaryCodec::Encode("\x01\xAB", 2);  // "01ab"
//   std::string bytes = VHexBinaryCodec::Decode("01AB");        // 01 AB
#ifndef VANTU_VHEXBINARYCODEC_H
#define VANTU_VHEXBINARYCODEC_H

#include <cstddef>
#include <string>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VException.h>

class VANTU_API VHexBinaryCodec : public VBaseObject {
 public:
  VHexBinaryCodec();
  ~VHexBinaryCodec() override;

  static std::string Encode(const void* bytes, size_t count);
  static std::string Encode(const std::string& bytes);
  static std::string Decode(const char* text, size_t length);
  static std::string Decode(const std::string& text);
};

#endif  // VANTU_VHEXBINARYCODEC_H
