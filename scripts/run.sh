#!/usr/bin/env bash
# Builds libvantu and runs its main job on a fresh Debian 12 machine. Until the hot-folder tool
# exists, the main job is the text demo, which shows the string type at work.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/build-run" -DCMAKE_BUILD_TYPE=Release -DVANTU_BUILD_TESTS=OFF \
  -DVANTU_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$root/build-run" -j "$(nproc)" --target vantu-text-demo >/dev/null
exec "$root/build-run/vantu-text-demo" "$@"
