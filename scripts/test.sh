#!/usr/bin/env bash
# Builds libvantu and passes its tests, from a fresh Debian 12 machine:
#   1. installs the Debian packages it needs (scripts/install-deps.sh);
#   2. checks the formatting of the sources;
#   3. builds everything (library, tests, benchmarks, examples) and runs the tests;
#   4. builds again with AddressSanitizer + UndefinedBehaviorSanitizer and runs the tests;
#   5. builds the concurrency tests (log, timer, hot folder) with ThreadSanitizer and runs them;
#   6. installs the library into a staging prefix and builds and runs a consumer project
#      against it, once through find_package(Vantu) and once through pkg-config, with
#      -Wall -Wextra -Woverloaded-virtual -Werror and a C89 build of vantu.h, and builds the
#      README's tour both ways.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
jobs="${VANTU_JOBS:-$(nproc)}"

"$root/scripts/install-deps.sh"

echo "== formatting"
files=$(git ls-files '*.cpp' '*.h' '*.c' 2>/dev/null || find include Common tests bench fuzz examples tools -name '*.cpp' -o -name '*.h' -o -name '*.c')
clang-format --dry-run --Werror $files

run_suite() {  # name, extra cmake arguments...
  local name="$1"
  shift
  local dir="$root/build-$name"
  echo "== $name build"
  cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  echo "== $name tests"
  (cd "$dir" && ctest --output-on-failure -j "$jobs")
}

run_suite release -DCMAKE_INSTALL_PREFIX="$root/build-release/stage"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_suite asan -DVANTU_SANITIZE=address,undefined -DVANTU_BUILD_BENCHMARKS=OFF \
  -DVANTU_BUILD_EXAMPLES=OFF

# The tests that ThreadSanitizer runs: whole suites of threaded classes, and single cases.
tsan_suites=(VLog VLogMessage FlatLog LogLineFormatter VTimer VHotfolder VHotfolderConcurrency
  FlatHotFolder VMutex VEvent VThread VNotificationCenter FlatSync NamedObjectThreads
  VURLConcurrency VUUID VErrorHandler)
tsan_cases=(VXMLTest.ThreadsWriteOneDocumentAtOnce VZipFileTest.RoundTrips
  VUnzipFileTest.ReadsWhatOtherToolsWrite VUnzipFileTest.ExtractionStaysInside)
tsan_tests="^(($(IFS='|'; echo "${tsan_suites[*]}"))Test\.|$(IFS='|'; echo "${tsan_cases[*]//./\\.}"))"

echo "== tsan build (concurrency tests)"
cmake -S "$root" -B "$root/build-tsan" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVANTU_SANITIZE=thread \
  -DVANTU_BUILD_BENCHMARKS=OFF -DVANTU_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$root/build-tsan" -j "$jobs" --target vantu_log_tests vantu_hotfolder_tests \
  vantu_sync_tests vantu_net_tests vantu_zip_tests vantu_xml_tests
echo "== tsan tests"
(cd "$root/build-tsan" && TSAN_OPTIONS=halt_on_error=1 ctest --output-on-failure -j "$jobs" \
  -R "$tsan_tests")

echo "== install and consume"
stage="$root/build-release/stage"
rm -rf "$stage"
cmake --install "$root/build-release" >/dev/null
consumer="$root/build-release/consumer"
rm -rf "$consumer"
mkdir -p "$consumer"
# The README's tour, as the page shows it: the C++ block under "## A short tour".
tour="$consumer/tour.cpp"
awk '/^## A short tour/ { t = 1 } t && /^```cpp/ { f = 1; next } f && /^```/ { exit } f' \
  "$root/README.md" >"$tour"
grep -q 'int main' "$tour" || { echo "README.md: no tour program found"; exit 1; }
cmake -S "$root/tests/consumer" -B "$consumer" -DCMAKE_PREFIX_PATH="$stage" \
  -DVANTU_TOUR_SOURCE="$tour" >/dev/null
cmake --build "$consumer" -j "$jobs" >/dev/null
"$consumer/vantu_consumer"
"$consumer/vantu_consumer_c"
export PKG_CONFIG_PATH="$stage/lib/pkgconfig:$stage/lib/x86_64-linux-gnu/pkgconfig"
# The package's flags are include folders alone: no definition of a dependency leaks to users.
for flag in $(pkg-config --cflags vantu); do
  case "$flag" in -I*) ;; *) echo "vantu.pc: unexpected Cflags entry $flag"; exit 1 ;; esac
done
# A strict user's builds: every public header compiles without a warning, vantu.h as C89.
strict="-Wall -Wextra -Werror"
for program in "$root/tests/consumer/main.cpp" "$tour" "$root/tests/consumer/flat.c"; do
  case "$program" in
    */main.cpp) compile="c++ -std=c++17 $strict -Woverloaded-virtual" ;;
    *.c) compile="cc -std=c89 -pedantic $strict" ;;
    *) compile="c++ -std=c++17" ;;
  esac
  $compile "$program" $(pkg-config --cflags --libs vantu) -o "$consumer/$(basename "${program%.*}")_pc"
done
LD_LIBRARY_PATH="$stage/lib:$stage/lib/x86_64-linux-gnu" "$consumer/main_pc"
LD_LIBRARY_PATH="$stage/lib:$stage/lib/x86_64-linux-gnu" "$consumer/flat_pc"
echo "== all passed"
