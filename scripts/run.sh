#!/usr/bin/env bash
# Builds libvantu and runs its main job on a fresh Debian 12 machine: the hot-folder tool,
# watching ./inbox (created if missing) and printing each complete file that arrives there.
# Extra arguments go to the tool (try --help); Ctrl-C stops it.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/build-run" -DCMAKE_BUILD_TYPE=Release -DVANTU_BUILD_TESTS=OFF \
  -DVANTU_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$root/build-run" -j "$(nproc)" --target vantu-hotfolder >/dev/null
exec "$root/build-run/vantu-hotfolder" "$@"
