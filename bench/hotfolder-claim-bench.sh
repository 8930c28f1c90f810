#!/bin/sh
# vantu-hotfolder --claim over FILES files (default 10,000) written by four writers at once, each
# handled by a trivial command (/bin/true) and deleted. Times (a) spawning the same commands
# alone (xargs -n1), (b) one instance, (c) four instances on the one folder, from the first write
# to the last output record, and prints the ratios b/a (target: at most 2) and c/b (target: at
# most 1). Not run by CI.
#   bench/hotfolder-claim-bench.sh [TOOL [FILES]]    # TOOL defaults to build/vantu-hotfolder
set -eu
tool=$(realpath "${1:-build/vantu-hotfolder}")
files=${2:-10000}
work=$(mktemp -d)
trap 'kill $(cat "$work/pids" 2>/dev/null) 2>/dev/null || true; rm -rf "$work"' EXIT
cd "$work"
now() { date +%s.%N; }
since() { awk -v a="$1" -v b="$(now)" 'BEGIN { printf "%.2f", b - a }'; }
# Four writers of FILES/4 files each into $1, at once.
write() {
  : >writers
  for w in 1 2 3 4; do
    (i=0 && while [ $i -lt $((files / 4)) ]; do printf x >"$1/w$w-$i" && i=$((i + 1)); done) &
    echo $! >>writers
  done
  for p in $(cat writers); do wait "$p"; done
}
# $1 instances on one folder: seconds from the first write to the last record.
run() {
  mkdir "in$1"
  : >pids
  for i in $(seq 1 "$1"); do
    "$tool" --claim "in$1/.c$i" --exec /bin/true --delete "in$1" >"out$1.$i" 2>/dev/null &
    echo $! >>pids
  done
  sleep 2 # every instance is watching
  start=$(now)
  write "in$1"
  until [ "$(cat "out$1".* | wc -l)" -ge $((files / 4 * 4)) ]; do sleep 0.05; done
  since "$start"
  kill $(cat pids) && for p in $(cat pids); do wait "$p" 2>/dev/null || true; done
  : >pids
  left=$(find "in$1" -type f ! -name .lock ! -name .vantu-hotfolder-claim | wc -l)
  [ "$left" -eq 0 ] || echo " ($left files left!)" >&2
}

mkdir alone
write alone
start=$(now)
find alone -type f -print0 | xargs -0 -n1 /bin/true
a=$(since "$start")
b=$(run 1)
c=$(run 4)
echo "$((files / 4 * 4)) files, /bin/true each: (a) commands alone ${a} s, (b) one instance ${b} s," \
  "(c) four instances ${c} s"
awk -v a="$a" -v b="$b" -v c="$c" \
  'BEGIN { printf "b/a = %.2f (target <= 2), c/b = %.2f (target <= 1)\n", b / a, c / b }'
