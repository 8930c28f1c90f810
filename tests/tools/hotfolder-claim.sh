#!/bin/sh
# The hot-folder tool's --claim: four instances on one folder handle each of 2,000 files once; an
# instance killed half way and restarted loses nothing; a claim folder serves one instance; same
# names never overwrite each other.
set -eu
name="hotfolder claim"
. "$(dirname "$0")/common.sh"
recorded() { [ "$(wc -l <record)" -ge "$1" ]; }
# The files in $1 and at the top of its claim folders, none in done/ or failed/.
left() { find "$1" -type f ! -name .lock ! -path '*/done/*' ! -path '*/failed/*'; }
# Stops the background tools listed in $1 and waits for them.
stop() {
  for p in $(cat "$1"); do kill -TERM "$p" 2>/dev/null || true; done
  for p in $(cat "$1"); do wait "$p" 2>/dev/null || true; done
  rm "$1"
}
# The command appends the claimed file's name to ./record in one O_APPEND write; the file named
# "stall" makes the first command that takes it sleep.
cat >record.sh <<EOF
#!/bin/sh
name=\${1##*/}
printf '%s\n' "\$name" >>'$work/record'
if [ "\$name" = stall ] && [ ! -e '$work/stalled' ]; then
  echo \$\$ >'$work/command.pid'
  : >'$work/stalled'
  exec sleep 60
fi
EOF
chmod +x record.sh
: >record

# Four instances, one folder, 2,000 files: 1,960 written at once, 20 in three chunks through one
# descriptor, 20 held open for a second before close. Each is handled once by one instance.
mkdir in
for i in 1 2 3 4; do
  "$tool" --period 300 --claim in/.claim$i --exec "$work/record.sh" in >out$i 2>/dev/null &
  echo $! >>tools.pid
done
for i in $(seq 1 20); do
  { printf a && sleep 0.2 && printf b && sleep 0.2 && printf c; } >in/slow$i &
  echo $! >>writers
  { printf held && sleep 1; } >in/held$i &
  echo $! >>writers
done
for i in $(seq 1 1960); do printf "x$i" >in/f$i; done
for p in $(cat writers); do wait "$p"; done
{ seq -f 'f%g' 1 1960 && seq -f 'slow%g' 1 20 && seq -f 'held%g' 1 20; } | sort >want
await 120 recorded 2000 || fail "$(wc -l <record) of 2000 files handled"
await 20 test -z "$(left in)" || fail "files left behind: $(left in | head -3)"
stop tools.pid
sort record | cmp -s - want || fail "not each file once: $(sort record | uniq -d | head -3)"
[ "$(cat out? | wc -l)" -eq 2000 ] || fail "$(cat out? | wc -l) records: $(grep -v 'exit 0' out?)"
[ "$(find in -path '*/done/*' -type f | wc -l)" -eq 2000 ] || fail "not all in done/"
echo "hotfolder claim, files per instance: $(wc -l out? | head -4 | awk '{print $1}' | paste -sd' ')"

# Killed while a command runs half way: the claimed file waits in the claim folder and the
# restarted instance handles it first, the rest after; none is lost. A second instance on the
# same claim folder is refused meanwhile.
: >record
mkdir kin
for i in $(seq 1 15); do printf x >kin/k$i; done
"$tool" --period 300 --claim kin/.c --exec "$work/record.sh" kin >kout 2>/dev/null &
echo $! >tool.pid
await 30 recorded 15 || fail "the first files not handled"
printf x >kin/stall
await 30 test -e stalled || fail "stall not handled"
for i in $(seq 16 30); do printf x >kin/k$i; done
rc=0
"$tool" --once --claim kin/.c kin >/dev/null 2>err || rc=$?
[ $rc -eq 2 ] && grep -q 'in use by another instance' err || fail "second instance: $rc $(cat err)"
sleep 1 # the new files reach the stalled instance's queue
kill -KILL "$(cat tool.pid)" "$(cat command.pid)"
test -e kin/.c/stall || fail "stall not left in the claim folder"
"$tool" --period 300 --claim kin/.c --exec "$work/record.sh" kin >>kout 2>/dev/null &
echo $! >tool.pid
await 30 recorded 32 || fail "after the restart: $(wc -l <record) of 32 records"
stop tool.pid
{ seq -f 'k%g' 1 30 && echo stall && echo stall; } | sort >want
sort record | cmp -s - want || fail "after the restart: $(sort record | paste -sd' ')"
test -z "$(left kin)" || fail "left after the restart: $(left kin)"

# Same names from two sub-folders and one left in the claim folder: three files in done/, the
# leftover first; a failed command's file goes to failed/.
mkdir -p same/a same/b same/.c
printf 0 >same/.c/x.txt
printf 1 >same/a/x.txt
printf 2 >same/b/x.txt
printf 3 >same/bad
rc=0
"$tool" --once --recursive --claim same/.c --exec 'grep -q [0-2]' same >out || rc=$?
[ $rc -eq 1 ] || fail "status $rc with a failed command"
[ "$(cat same/.c/done/x.txt)" = 0 ] && cat same/.c/done/x~[12].txt | grep -qx '12\|21' ||
  fail "same names: $(ls same/.c/done)"
head -1 out | grep -q "^	$work/same/.c/x.txt	exit 0	moved to" || fail "leftover not first: $(cat out)"
test -e same/.c/failed/bad || fail "failed file not in failed/"
echo "hotfolder claim: ok"
