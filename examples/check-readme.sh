#!/usr/bin/env bash
# Checks that each excerpt README.md quotes from an example is still in that example: a ```cpp
# block after a mention of `examples/<file>` (within the same section) must appear there, line
# for line, except that a line "// ..." in the excerpt stands for lines left out.
#   examples/check-readme.sh README.md examples/
set -euo pipefail
readme="$1"
folder="$2"
file="" excerpt="" inside=0 checked=0 failed=0

check() {  # the excerpt's pieces, each contiguous in $file, in order
  local content rest piece
  content="$(cat "$folder/$file")"
  rest="$content"
  while IFS= read -r -d $'\x1e' piece; do
    piece="${piece#$'\n'}"
    piece="${piece%$'\n'}"
    [[ -z "$piece" ]] && continue
    if [[ "$rest" != *"$piece"* ]]; then
      echo "README.md quotes from examples/$file what it does not hold (in that order):"
      echo "$piece"
      failed=1
      return
    fi
    rest="${rest#*"$piece"}"
  done < <(printf '%s\x1e' "$(sed 's|^ *// \.\.\.$|\x1e|' <<<"$excerpt")")
  checked=$((checked + 1))
}

while IFS= read -r line; do
  if ((inside)); then
    if [[ "$line" == '```' ]]; then
      inside=0
      check
    else
      excerpt+="$line"$'\n'
    fi
  elif [[ "$line" == '```cpp' && -n "$file" ]]; then
    inside=1
    excerpt=""
  elif [[ "$line" =~ \`examples/([A-Za-z]+\.cpp)\` ]]; then
    file="${BASH_REMATCH[1]}"
  elif [[ "$line" == '#'* ]]; then
    file=""
  fi
done <"$readme"
echo "$checked excerpts checked"
((checked > 0 && !failed))
