// CHECK for fuzz targets: aborts with the failed condition's text, so that libFuzzer keeps the
// input that broke an invariant.
#ifndef VANTU_FUZZ_FUZZCHECK_H
#define VANTU_FUZZ_FUZZCHECK_H

#include <cstdio>
#include <cstdlib>

#define CHECK(condition)                                      \
  do {                                                        \
    if (!(condition)) {                                       \
      std::fprintf(stderr, "check failed: %s\n", #condition); \
      std::abort();                                           \
    }                                                         \
  } while (false)

#endif  // VANTU_FUZZ_FUZZCHECK_H
