// Calls every flat file function from C: the header must compile as C and the functions must
// behave as documented. Returns 0, or 1 with a message in `failure`.
#include <stdio.h>
#include <string.h>

#include <vantu/vantu.h>

#define CHECK(c)                                                                      \
  do {                                                                                \
    if (!(c)) return snprintf(failure, size, "%s:%d: %s", __FILE__, __LINE__, #c), 1; \
  } while (0)

int vantu_test_flat_files_from_c(const char* file, const char* missing, char* failure,
                                 size_t size) {
  unsigned int crc = 1;
  char name[128], exact[128], path[4096];
  size_t length;
  vantu_char16 wide[4096];
  static const vantu_char16 widePrefix[] = {'w', 't', 0};
  static const vantu_char16 wideA[] = {'a', 0};
  static const vantu_char16 decomposed[] = {'e', 0x0301, 0};

  CHECK((vantu_GetCRC("", &crc), crc == 0));
  CHECK((vantu_GetCRC("123456789", &crc), crc == 0xCBF43926u));
  CHECK((vantu_GetCRCEx("123456789xyz", 9, &crc), crc == 0xCBF43926u));
  // The caller's file holds "123456789".
  CHECK((vantu_GetFileInfo(file, &crc), crc == 0xCBF43926u));
  CHECK((vantu_GetFileInfo(missing, &crc), crc == 0));
  CHECK(vantu_IsFile(file) == 1 && vantu_IsFile(missing) == 0);
  CHECK(vantu_IsFileAvailable(file) == 1 && vantu_IsFileAvailable(missing) == 0);
  CHECK(strcmp(vantu_Path_CStr(file), file) == 0);

  CHECK((vantu_ToUTF16("a", wide, 0), wide[0] == 0xFFFE && wide[1] == 'a' && wide[2] == 0));
  vantu_ToUTF16("\xEF\xBB\xBF\xC3\xA9\xF0\x9F\x98\x80", wide, 1);
  CHECK(wide[0] == 0xE9 && wide[1] == 0xD83D && wide[2] == 0xDE00 && wide[3] == 0);
  CHECK((vantu_ToUTF8(wideA + 1, name, 1), name[0] == '\0'));
  CHECK((vantu_ToUTF8(wideA, name, 1), strcmp(name, "\xEF\xBB\xBF\x61") == 0));  // mark, "a"
  CHECK((vantu_ToUTF8(decomposed, name, 0), strcmp(name, "\xC3\xA9") == 0));     // UTF-8 is NFC

  CHECK(vantu_UniqueTempName(name, sizeof(name), "tmp") == 0);
  length = strlen(name);
  // 100-nanosecond units since 1582: about 1.4e17 today, 18 digits.
  CHECK(strncmp(name, "tmp", 3) == 0 && length == 3 + 18);
  // A buffer of exactly the name's length has no room for the terminator: left untouched.
  memset(exact, 'X', sizeof(exact));
  CHECK(vantu_UniqueTempName(exact, length, "tmp") == -1 && exact[0] == 'X');
  CHECK(vantu_UniqueTempName(exact, length + 1, "tmp") == 0 && strlen(exact) == length);
  CHECK(vantu_UniqueTempName(name, sizeof(name), NULL) == 0 && name[0] >= '1' && name[0] <= '9');
  CHECK(vantu_UniqueTempFile(path, 4096, "vt") == 0 && strstr(path, "/vt") && path[0] == '/');
  CHECK(vantu_UniqueTempFile(path, 2, "vt") == -1);
  CHECK(vantu_UniqueTempWFile(wide, 4096, widePrefix) == 0 && wide[0] == '/');
  CHECK(vantu_UniqueTempWFile(wide, 3, widePrefix) == -1);
  return 0;
}
