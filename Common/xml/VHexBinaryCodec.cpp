#include <vantu/VHexBinaryCodec.h>

#include <vantu/VException.h>

#include "internal/Hex.h"

using vantu::internal::HexDigitValue;

VHexBinaryCodec::VHexBinaryCodec() = default;
VHexBinaryCodec::~VHexBinaryCodec() = default;

std::string VHexBinaryCodec::Encode(const void* bytes, size_t count) {
  static const char kDigits[] = "0123456789abcdef";
  const auto* in = static_cast<const unsigned char*>(bytes);
  std::string text(2 * count, '\0');
  for (size_t i = 0; i < count; ++i) {
    text[2 * i] = kDigits[in[i] >> 4];
    text[2 * i + 1] = kDigits[in[i] & 15];
  }
  return text;
}

std::string VHexBinaryCodec::Encode(const std::string& bytes) {
  return Encode(bytes.data(), bytes.size());
}

std::string VHexBinaryCodec::Decode(const char* text, size_t length) {
  if (length % 2 != 0) {
    throw VantuDataException("Hexadecimal text of odd length " + std::to_string(length));
  }
  std::string bytes(length / 2, '\0');
  for (size_t i = 0; i < length; i += 2) {
    const int high = HexDigitValue(text[i]);
    const int low = HexDigitValue(text[i + 1]);
    if (high < 0 || low < 0) {
      throw VantuDataException("Not a hexadecimal digit at offset " +
                               std::to_string(high < 0 ? i : i + 1));
    }
    bytes[i / 2] = static_cast<char>(high << 4 | low);
  }
  return bytes;
}

std::string VHexBinaryCodec::Decode(const std::string& text) {
  return Decode(text.data(), text.size());
}
