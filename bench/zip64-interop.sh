#!/usr/bin/env bash
# ZIP64 interoperability of VZipFile's archives: one of 70,000 entries, and one holding an
# entry of 4 GiB + 1 MiB (a sparse input, so the disk holds little; deflated, so the archive
# stays small) and a small entry. Each is checked by `unzip -t`, `bsdtar -t` and Python's zipfile
# (testzip reads every entry and checks its CRC), and listed by our own reader.
#   bench/zip64-interop.sh [BUILD_DIR]      # default: build (needs the vantu_zip_bench target)
# Takes a few minutes: the tools decompress the 4 GiB entry. Exits non-zero on any failure.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bench="${1:-$root/build}/bench/vantu_zip_bench"
work="$(mktemp -d "${TMPDIR:-/tmp}/vantu-zip64-XXXXXX")"
trap 'rm -rf "$work"' EXIT
python="$(command -v /usr/bin/python3 || command -v python3)"

check() {  # archive, expected entry count
  echo "== $(basename "$1"): $(stat -c %s "$1") bytes"
  echo "-- unzip -t"; unzip -t "$1" | tail -n 1
  echo "-- bsdtar -t"; echo "$(bsdtar -tf "$1" | wc -l) entries"
  echo "-- python zipfile"
  "$python" -c '
import sys, zipfile
z = zipfile.ZipFile(sys.argv[1])
assert z.testzip() is None
big = max(z.infolist(), key=lambda i: i.file_size)
print(len(z.namelist()), "entries; largest", big.filename, big.file_size, "bytes; CRCs good")
assert len(z.namelist()) == int(sys.argv[2])' "$1" "$2"
}

"$bench" --write "$work/many.zip" 70000
check "$work/many.zip" 70000

truncate -s 4G "$work/large.bin"
head -c 1M /dev/urandom >> "$work/large.bin"
echo "after the large entry" > "$work/after.txt"
"$bench" --write "$work/large.zip" 0 "$work/large.bin" "$work/after.txt"
check "$work/large.zip" 2
