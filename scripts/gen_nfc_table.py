#!/usr/bin/env python3
"""Generates Common/internal/NfcTable.cpp from the Unicode Character Database of Debian's
unicode-data package (the Unicode version utf8proc is built for).

Three tables:
- the quick check: for every code point its canonical combining class, or 255 when its NFC
  quick check property is not "Yes" (No or Maybe);
- the composition data: for every code point its canonical combining class, whether it can be
  the second of a primary composite (NFC quick check Maybe), and its full canonical
  decomposition (an offset into one array of code points and a length); Hangul syllables
  decompose algorithmically and have none here;
- the primary composites: (first, second) -> composite for every canonical decomposition into
  two code points that is not a full composition exclusion (CompositionExclusions.txt,
  singletons and decompositions that start with a non-starter), in an open-addressing hash
  table with linear probing: key = first << 21 | second, slot = key * kNfcPairHashFactor >>
  (64 - kNfcPairBits), an empty slot has key 0.
The two-stage tables: the high bits (code point >> 8) pick a block of 256 entries; identical
blocks are stored once.

Usage: scripts/gen_nfc_table.py [/usr/share/unicode] > Common/internal/NfcTable.cpp
"""
import os
import sys

ucd = sys.argv[1] if len(sys.argv) > 1 else "/usr/share/unicode"
PAIR_BITS = 11
PAIR_FACTOR = 0x9E3779B97F4A7C15


def ranges(name, property_name, values=None):
    """Yields the code points of lines '<range> ; <property> [; <value>]' of a UCD file."""
    with open(os.path.join(ucd, name), encoding="utf-8") as data:
        for line in data:
            line = line.split("#")[0].strip()
            if not line:
                continue
            fields = [f.strip() for f in line.split(";")]
            if property_name is not None and (len(fields) < 2 or fields[1] != property_name):
                continue
            if values is not None and (len(fields) < 3 or fields[2] not in values):
                continue
            low, _, high = fields[0].partition("..")
            yield from range(int(low, 16), int(high or low, 16) + 1)


ccc = [0] * 0x110000
decomposition = {}
first = None
with open(os.path.join(ucd, "UnicodeData.txt"), encoding="utf-8") as data:
    for line in data:
        fields = line.split(";")
        cp = int(fields[0], 16)
        if fields[1].endswith(", First>"):
            first = cp
            continue
        if fields[1].endswith(", Last>"):
            for c in range(first, cp + 1):
                ccc[c] = int(fields[3])
            continue
        ccc[cp] = int(fields[3])
        if fields[5] and not fields[5].startswith("<"):
            decomposition[cp] = [int(x, 16) for x in fields[5].split()]


def full(cp):
    if cp not in decomposition:
        return [cp]
    return [c for part in decomposition[cp] for c in full(part)]


not_yes = set(ranges("DerivedNormalizationProps.txt", "NFC_QC", ("N", "M")))
maybe = set(ranges("DerivedNormalizationProps.txt", "NFC_QC", ("M",)))
excluded = set(ranges("CompositionExclusions.txt", None))
for cp, parts in decomposition.items():
    if len(parts) == 1 or ccc[cp] != 0 or ccc[parts[0]] != 0:
        excluded.add(cp)
assert excluded == set(ranges("DerivedNormalizationProps.txt", "Full_Composition_Exclusion"))

pairs = {}
for cp, parts in decomposition.items():
    if len(parts) == 2 and cp not in excluded:
        pairs[(parts[0], parts[1])] = cp
assert all(second in maybe for _, second in pairs)
# A boundary before every quick-check Yes starter: what it decomposes into starts with one too.
for cp in decomposition:
    if cp not in not_yes and ccc[cp] == 0:
        head = full(cp)[0]
        assert head not in not_yes and ccc[head] == 0, hex(cp)

quick = [255 if c in not_yes else ccc[c] for c in range(0x110000)]

# Lead bytes whose every well-formed sequence is a code point that the quick check calls Yes
# with class 0: the scan takes them without decoding. Leads with extra second-byte limits
# (E0, ED, F0, F4) are left out.
quiet_leads = [0] * 4
for lead in range(0xC2, 0xF4):
    if lead in (0xE0, 0xED, 0xF0):
        continue
    if lead < 0xE0:
        low, high = (lead & 0x1F) << 6, ((lead & 0x1F) << 6) + 0x3F
    elif lead < 0xF0:
        low, high = (lead & 0x0F) << 12, ((lead & 0x0F) << 12) + 0xFFF
    else:
        low, high = (lead & 0x07) << 18, ((lead & 0x07) << 18) + 0x3FFFF
    if all(quick[c] == 0 for c in range(low, high + 1)):
        quiet_leads[lead >> 6] |= 1 << (lead & 63)

expansions = [0]  # offset 0 is never used, so that a zero entry means "no decomposition"
data = [0] * 0x110000
for c in range(0x110000):
    value = ccc[c] | (0x100 if c in maybe else 0)
    if c in decomposition:
        parts = full(c)
        assert 1 <= len(parts) <= 7
        value |= len(parts) << 9 | len(expansions) << 12
        expansions.extend(parts)
    data[c] = value
assert len(expansions) < 1 << 20

slots = [(0, 0)] * (1 << PAIR_BITS)
for (a, b), composite in sorted(pairs.items()):
    key = a << 21 | b
    slot = (key * PAIR_FACTOR % (1 << 64)) >> (64 - PAIR_BITS)
    while slots[slot][0] != 0:
        slot = (slot + 1) % len(slots)
    slots[slot] = (key, composite)


def two_stage(values):
    blocks, index, stage1 = [], {}, []
    for b in range(0x1100):
        block = tuple(values[b * 256:(b + 1) * 256])
        if block not in index:
            index[block] = len(blocks)
            blocks.append(block)
        stage1.append(index[block])
    assert len(blocks) < 256
    return stage1, blocks


out = sys.stdout


def write_list(indent, values, per_line):
    for i in range(0, len(values), per_line):
        out.write(indent + ", ".join(str(v) for v in values[i:i + per_line]) + ",\n")


def write_two_stage(type_name, index_name, blocks_name, values, per_line):
    stage1, blocks = two_stage(values)
    out.write("const uint8_t %s[0x1100] = {\n" % index_name)
    write_list("    ", stage1, 32)
    out.write("};\n\n")
    out.write("const %s %s[%d][256] = {\n" % (type_name, blocks_name, len(blocks)))
    for block in blocks:
        out.write("    {\n")
        write_list("        ", block, per_line)
        out.write("    },\n")
    out.write("};\n\n")


out.write("// Generated by scripts/gen_nfc_table.py from the Unicode Character Database; do not edit.\n")
out.write("// clang-format off\n")
out.write('#include "internal/NfcTable.h"\n\nnamespace vantu::internal {\n\n')
write_two_stage("uint8_t", "kNfcBlockIndex", "kNfcBlocks", quick, 32)
write_two_stage("uint32_t", "kNfcDataIndex", "kNfcData", data, 16)
out.write("const uint64_t kNfcQuietLeads[4] = {%s};\n\n" % ", ".join("0x%016XULL" % q for q in quiet_leads))
out.write("const uint32_t kNfcExpansions[%d] = {\n" % len(expansions))
write_list("    ", expansions, 16)
out.write("};\n\n")
out.write("const uint64_t kNfcPairKeys[%d] = {\n" % len(slots))
write_list("    ", [k for k, _ in slots], 8)
out.write("};\n\n")
out.write("const uint32_t kNfcPairValues[%d] = {\n" % len(slots))
write_list("    ", [v for _, v in slots], 16)
out.write("};\n\n}  // namespace vantu::internal\n")
