#!/bin/sh
# The hot-folder tool's --claim: four instances on one folder handle each of 2,000 files once; an
# instance killed half way and restarted loses nothing; a claim folder serves one instance; same
# names never overwrite each other; a folder it did not make is not taken; a replaced watched
# folder is opened again.
set -eu
name="hotfolder claim"
. "$(dirname "$0")/common.sh"
recorded() { [ "$(wc -l <record)" -ge "$1" ]; }
# The files in $1 and at the top of its claim folders, none in done/ or failed/.
left() { find "$1" -type f ! -name .lock ! -name .vantu-hotfolder-claim ! -path '*/done/*' ! -path '*/failed/*'; }
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
# same claim folder waits 10 s for it, then is refused (meanwhile the new files reach the stalled
# instance's queue); one started before the kill, as a supervisor's restart, waits and takes over.
: >record
mkdir kin
for i in $(seq 1 15); do printf x >kin/k$i; done
"$tool" --period 300 --claim kin/.c --exec "$work/record.sh" kin >kout 2>/dev/null &
first=$!
echo $first >tool.pid
await 30 recorded 15 || fail "the first files not handled"
printf x >kin/stall
await 30 test -e stalled || fail "stall not handled"
for i in $(seq 16 30); do printf x >kin/k$i; done
rc=0
"$tool" --once --claim kin/.c kin >/dev/null 2>err || rc=$?
[ $rc -eq 2 ] && grep -q 'in use by another instance' err || fail "second instance: $rc $(cat err)"
"$tool" --period 300 --claim kin/.c --exec "$work/record.sh" kin >>kout 2>err &
echo $! >>tool.pid
await 30 grep -q 'waiting up to 10 s' err || fail "the restart does not wait: $(cat err)"
kill -KILL $first "$(cat command.pid)"
wait $first || true
await 30 recorded 32 || fail "after the restart: $(wc -l <record) of 32 records"
stop tool.pid
{ seq -f 'k%g' 1 30 && echo stall && echo stall; } | sort >want
sort record | cmp -s - want || fail "after the restart: $(sort record | paste -sd' ')"
test -z "$(left kin)" || fail "left after the restart: $(left kin)"

# Same names from two sub-folders and one left in the claim folder: three files in done/, the
# leftover first; a failed command's file goes to failed/; a same name of 255 bytes is shortened.
mkdir -p same/a same/b same/.c
: >same/.c/.vantu-hotfolder-claim
printf 0 >same/.c/x.txt
printf 1 >same/a/x.txt
printf 2 >same/b/x.txt
printf 3 >same/bad
long=$(printf '%0251d' 0 | tr 0 y).txt
printf 4 >"same/a/$long"
printf 5 >"same/b/$long"
rc=0
"$tool" --once --recursive --claim same/.c --exec 'grep -q [0-2]' same >out || rc=$?
[ $rc -eq 1 ] || fail "status $rc with a failed command"
[ "$(cat same/.c/done/x.txt)" = 0 ] && cat same/.c/done/x~[12].txt | grep -qx '12\|21' ||
  fail "same names: $(ls same/.c/done)"
head -1 out | grep -q "^	$work/same/.c/x.txt	exit 0	moved to" || fail "leftover not first: $(cat out)"
test -e same/.c/failed/bad || fail "failed file not in failed/"
[ "$(ls same/.c/failed | grep -c '^yyy.*txt$')" -eq 2 ] || fail "long names: $(cat out)"

# A claim folder that the tool did not make and that holds entries is refused, nothing touched;
# one on another file system is refused before it is made.
mkdir -p srv/inbox
printf x >srv/config.ini
printf x >srv/inbox/f
rc=0
"$tool" --once --claim srv --exec true --delete srv/inbox >/dev/null 2>err || rc=$?
[ $rc -eq 2 ] && grep -q 'not made by' err && test -e srv/config.ini && test -e srv/inbox/f ||
  fail "a folder of others taken: $rc $(cat err)"
shm=/dev/shm/$(basename "$work")
if [ -d /dev/shm ] && [ "$(stat -c %d /dev/shm)" != "$(stat -c %d .)" ]; then
  rc=0
  "$tool" --once --claim "$shm/c" srv/inbox >/dev/null 2>&1 || rc=$?
  made=$(ls -d "$shm" 2>/dev/null || true) && rm -rf "$shm"
  [ $rc -eq 2 ] && [ -z "$made" ] || fail "another file system: $rc, made $made"
fi

# The watched folder deleted and made again: the instance claims from the new one.
: >record
mkdir re
printf x >re/a
"$tool" --period 300 --claim re/.c --exec "$work/record.sh" re >rout 2>/dev/null &
echo $! >tool.pid
await 30 recorded 1 || fail "re/a not handled"
rm -rf re && mkdir re && printf x >re/b
await 30 recorded 2 || fail "after the folder was made again: $(cat rout)"
stop tool.pid
echo "hotfolder claim: ok"
