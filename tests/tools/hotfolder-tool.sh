#!/bin/sh
# The hot-folder tool end to end: one scan delivers the complete file, runs the command on it,
# deletes it after success, explains why the empty file waits, and a bad option is refused.
set -eu
tool="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
"$tool" --once >/dev/null            # creates ./inbox
test -d inbox
printf 'payload' > inbox/ready.txt
: > inbox/empty.txt
out=$("$tool" --once --json --verbose --exec 'wc -c {}' --delete)
echo "$out" | grep -q '"waiting": ".*/inbox/empty.txt: waiting, empty"'
echo "$out" | grep -q '"path": ".*/inbox/ready.txt".*"status": 0, "deleted": true'
test ! -e inbox/ready.txt
test -e inbox/empty.txt
if "$tool" --no-such-option 2>/dev/null; then exit 1; fi
# A running tool stops cleanly on SIGTERM and writes its log.
"$tool" --period 100 --log "$work/log" inbox > "$work/delivered" &
pid=$!
printf 'late' > inbox/late.txt
i=0
while ! grep -q late.txt "$work/delivered" 2>/dev/null; do
  i=$((i + 1)); [ $i -lt 300 ] || exit 1; sleep 0.1
done
kill -TERM $pid
wait $pid
grep -q 'Adding .*/inbox/late.txt to the list' "$work/log/vantu-hotfolder.log"
echo "hotfolder tool: ok"
