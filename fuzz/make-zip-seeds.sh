#!/usr/bin/env bash
# Writes small zip archives of every method the reader knows into DIR, as seeds for
# vantu_zip_fuzz: Python's stored, deflated, bzip2 and LZMA entries, a symbolic link, a folder,
# and xz and zstd entries.
set -euo pipefail
dir="$1"
mkdir -p "$dir"
python3 - "$dir" <<'PY'
import lzma, os, struct, subprocess, sys, zipfile, zlib
d = sys.argv[1]
text = b"hello zip fuzz " * 20
for m in ("STORED", "DEFLATED", "BZIP2", "LZMA"):
    with zipfile.ZipFile(os.path.join(d, m.lower() + ".zip"), "w", getattr(zipfile, "ZIP_" + m)) as z:
        z.writestr("dir/", b"")
        z.writestr("dir/a.txt", text)
        link = zipfile.ZipInfo("dir/link")
        link.external_attr = 0o120777 << 16
        z.writestr(link, b"a.txt")
def raw(name, method, data):
    crc = zlib.crc32(text)
    local = struct.pack("<IHHHIIIIHH", 0x04034B50, 63, 0x800, method, 0, crc, len(data), len(text), len(name), 0)
    central = struct.pack("<IHHHHIIIIHHHHHII", 0x02014B50, 0x33F, 63, 0x800, method, 0, crc, len(data), len(text), len(name), 0, 0, 0, 0, 0, 0)
    body = local + name + data
    end = struct.pack("<IHHHHIIH", 0x06054B50, 0, 0, 1, 1, len(central) + len(name), len(body), 0)
    return body + central + name + end
zstd = subprocess.run(["zstd", "-q", "-c"], input=text, capture_output=True, check=True).stdout
open(os.path.join(d, "zstd.zip"), "wb").write(raw(b"z.txt", 93, zstd))
open(os.path.join(d, "xz.zip"), "wb").write(raw(b"x.txt", 95, lzma.compress(text)))
PY
