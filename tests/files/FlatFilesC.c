/* Calls every flat file function from C: the header must compile as C and the functions must
 * behave as documented. Returns 0, or 1 with a message in `failure`. */
#include <stdio.h>
#include <string.h>

#include <vantu/vantu.h>

#define CHECK(condition)                                                    \
  do {                                                                      \
    if (!(condition)) {                                                     \
      snprintf(failure, size, "%s:%d: %s", __FILE__, __LINE__, #condition); \
      return 1;                                                             \
    }                                                                       \
  } while (0)

int vantu_test_flat_files_from_c(const char* file, const char* missing, char* failure,
                                 size_t size) {
  unsigned int crc = 1;
  char name[128];
  char path[4096];
  vantu_char16 wide[64];
  vantu_char16 widePath[4096];
  static const vantu_char16 widePrefix[] = {'w', 't', 0};
  static const vantu_char16 wideA[] = {'a', 0};
  static const vantu_char16 wideEmpty[] = {0};

  vantu_GetCRC("", &crc);
  CHECK(crc == 0);
  vantu_GetCRC("123456789", &crc);
  CHECK(crc == 0xCBF43926u);
  vantu_GetCRCEx("123456789xyz", 9, &crc);
  CHECK(crc == 0xCBF43926u);

  /* The caller's file holds "123456789". */
  vantu_GetFileInfo(file, &crc);
  CHECK(crc == 0xCBF43926u);
  vantu_GetFileInfo(missing, &crc);
  CHECK(crc == 0);
  CHECK(vantu_IsFile(file) == 1);
  CHECK(vantu_IsFile(missing) == 0);
  CHECK(vantu_IsFileAvailable(file) == 1);
  CHECK(vantu_IsFileAvailable(missing) == 0);
  CHECK(strcmp(vantu_Path_CStr(file), file) == 0);

  vantu_ToUTF16("a", wide, 0);
  CHECK(wide[0] == 0xFFFE && wide[1] == 'a' && wide[2] == 0);
  vantu_ToUTF16("a", wide, 1);
  CHECK(wide[0] == 'a' && wide[1] == 0);
  vantu_ToUTF8(wideEmpty, name, 1);
  CHECK(name[0] == '\0');
  vantu_ToUTF8(wideA, name, 1);
  CHECK(strcmp(name,
               "\xEF\xBB\xBF"
               "a") == 0);
  vantu_ToUTF8(wideA, name, 0);
  CHECK(strcmp(name, "a") == 0);

  CHECK(vantu_UniqueTempName(name, sizeof(name), "tmp") == 0);
  CHECK(strncmp(name, "tmp", 3) == 0 && strlen(name) >= 3 + 18);
  CHECK(vantu_UniqueTempName(name, sizeof(name), NULL) == 0);
  CHECK(name[0] >= '1' && name[0] <= '9');
  CHECK(vantu_UniqueTempName(name, 4, "tmp") == -1);
  CHECK(vantu_UniqueTempFile(path, sizeof(path), "vt") == 0);
  CHECK(strstr(path, "/vt") != NULL && path[0] == '/');
  CHECK(vantu_UniqueTempFile(path, 2, "vt") == -1);
  CHECK(vantu_UniqueTempWFile(widePath, sizeof(widePath) / sizeof(widePath[0]), widePrefix) == 0);
  CHECK(widePath[0] == '/');
  CHECK(vantu_UniqueTempWFile(widePath, 3, widePrefix) == -1);
  return 0;
}
