/* Export control for libvantu.
 *
 * The library is built with hidden visibility: only declarations marked VANTU_API are exported
 * from libvantu.so. On Windows the same macro selects dllexport while the library itself is
 * built (VANTU_BUILDING defined) and dllimport for its users. C comments only: vantu.h, which
 * includes this header, compiles as C89. */
#ifndef VANTU_EXPORT_H
#define VANTU_EXPORT_H

#if defined(_WIN32)
#if defined(VANTU_BUILDING)
#define VANTU_API __declspec(dllexport)
#else
#define VANTU_API __declspec(dllimport)
#endif
#elif defined(__GNUC__) || defined(__clang__)
#define VANTU_API __attribute__((visibility("default")))
#else
#define VANTU_API
#endif

#endif /* VANTU_EXPORT_H */
