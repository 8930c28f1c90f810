/* Uses the installed library's flat functions from a C89 program; exits non-zero on a fault. */
#include <stdio.h>
#include <vantu/vantu.h>

static int Delivered(void* handle, const char* path, int length, void* userData) {
  (void)handle;
  (void)path;
  (void)length;
  (void)userData;
  return 0;
}

int main(void) {
  unsigned int crc = 0;
  vantu_HotFolderHandleCallback callback = Delivered;
  vantu_SetHotFolderHandleCallback(NULL, callback, NULL); /* a NULL handle: nothing */
  vantu_GetCRC("123456789", &crc);
  if (crc != 0xCBF43926u) {
    puts("crc failed");
    return 1;
  }
  puts("c consumer ok");
  return 0;
}
