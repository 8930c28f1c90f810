// Hexadecimal digits, shared by the classes that read hexadecimal text.
#ifndef VANTU_INTERNAL_HEX_H
#define VANTU_INTERNAL_HEX_H

namespace vantu::internal {

// The value of a hexadecimal digit (either case), or -1.
inline int HexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_HEX_H
