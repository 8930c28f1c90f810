/* Uses the installed library's flat functions from a C89 program; exits non-zero on a fault. */
#include <stdio.h>
#include <vantu/vantu.h>

int main(void) {
  unsigned int crc = 0;
  vantu_GetCRC("123456789", &crc);
  if (crc != 0xCBF43926u) {
    puts("crc failed");
    return 1;
  }
  puts("c consumer ok");
  return 0;
}
