#!/bin/sh
# The hot-folder tool end to end: deliveries, commands and deletes, what it skips (links that
# lead out among them), refused options, exit statuses, odd names in JSON and NUL output, the
# commands' signal state, and stopping on signals.
set -eu
name="hotfolder tool"
. "$(dirname "$0")/common.sh"
# Waits for the background tool $pid, killed after 10 s; sets rc.
reap() {
  (sleep 10 && kill -KILL "$pid") >/dev/null 2>&1 &
  dog=$!
  rc=0
  wait "$pid" 2>/dev/null || rc=$?
  kill "$dog" 2>/dev/null || true
  wait "$dog" 2>/dev/null || true
}

# One scan delivers the complete file, runs the command, deletes it; the empty file waits;
# dot-files and ignored names are skipped and kept.
"$tool" --once >/dev/null # creates ./inbox
test -d inbox
printf 'payload' >inbox/ready.txt
: >inbox/empty.txt
printf 'x' >inbox/.hidden
printf 'x' >inbox/old.gz
out=$("$tool" --once --json --verbose --ignore '*.gz' --exec 'wc -c {}' --delete)
printf "%s\n" "$out" | grep -q '"waiting": ".*/inbox/empty.txt: waiting, empty"' || fail "no waiting note"
printf "%s\n" "$out" | grep -q '"path": ".*/inbox/ready.txt".*"status": 0, "deleted": true' ||
  fail "ready.txt not handled"
if printf "%s\n" "$out" | grep -q 'hidden\|old.gz'; then fail "skipped names delivered: $out"; fi
test ! -e inbox/ready.txt && test -e inbox/empty.txt && test -e inbox/.hidden && test -e inbox/old.gz

# Links that lead out of the folder are skipped (--verbose says so), neither run nor deleted; with
# --follow-links the link itself is deleted or claimed, never its target, and a file reached
# through a linked folder is not deleted. A watched folder below a dot-directory works.
mkdir -p .d/links out/sub
printf s >out/secret
printf s >out/sub/f
printf x >.d/links/plain
ln -s ../../out/secret .d/links/flink
ln -s ../../out/sub .d/links/dlink
out=$("$tool" --once --recursive --verbose --exec true --delete .d/links 2>&1)
[ "$(printf '%s\n' "$out" | grep -c ': skipped, a link that leads out')" -eq 2 ] &&
  [ "$(printf '%s\n' "$out" | grep -c exit)" -eq 1 ] &&
  printf '%s\n' "$out" | grep -q 'links/plain	exit 0	deleted' || fail "links out: $out"
out=$("$tool" --once --recursive --follow-links --exec true --delete .d/links) || true
test ! -L .d/links/flink && test -e out/secret && test -e out/sub/f || fail "--follow-links: $out"
ln -s ../../out/secret .d/links/flink
"$tool" --once --follow-links --claim .d/links/.c .d/links >/dev/null
test -L .d/links/.c/done/flink && test -e out/secret || fail "--follow-links --claim"

# A watched path through a link: each file once, under the resolved path.
mkdir real
ln -s real alias
printf x >real/f
ln -s f real/l
out=$("$tool" --once --exec true --delete alias) || true
[ "$out" = "$work/real/f	exit 0	deleted" ] || fail "through a link: $out"

# The README's example: the .gz files that gzip leaves in the folder are not compressed again.
mkdir gz
printf 'report' >gz/report.txt
printf 'x' | gzip >gz/earlier.txt.gz
out=$("$tool" --once --ignore '*.gz' --exec 'gzip {}' gz)
[ "$out" = "$work/gz/report.txt	exit 0" ] || fail "gzip example: $out"
[ "$(gzip -dc gz/report.txt.gz)" = report ] && [ "$(gzip -dc gz/earlier.txt.gz)" = x ]

# Refused with a message and status 2.
: >afile
for args in "--no-such-option" "--delete" "--exec ''" "--exec \"'cat\"" "--log afile/log" \
  "--log-level loud --log log" "--log-level 3" "--null --json"; do
  eval "set -- $args"
  rc=0
  "$tool" --once "$@" inbox >/dev/null 2>err || rc=$?
  [ $rc -eq 2 ] && [ -s err ] || fail "not refused with a message: $args ($rc)"
done

# A failed command, one that cannot start, and a failed delete each give status 1; "deleted"
# only when the delete happened. --log-level warning keeps the failures, not the trace.
mkdir fails
for case in "false|exit 1" "no-such-command-x|not run: cannot run no-such-command-x: " \
  "rm {}|exit 0	not deleted: "; do
  printf 'x' >fails/f
  rc=0
  out=$("$tool" --once --delete --exec "${case%%|*}" --log log --log-level warning fails) ||
    rc=$?
  [ $rc -eq 1 ] || fail "status $rc for ${case%%|*}"
  case "$out" in "$work/fails/f	${case#*|}"*) ;; *) fail "output for ${case%%|*}: $out" ;; esac
done
grep -q "The command for $work/fails/f ended with status 1" log/vantu-hotfolder.log ||
  fail "no failure in the log"
if grep -q 'Adding' log/vantu-hotfolder.log; then fail "trace written at warning level"; fi

# Names that are not UTF-8 survive --json as \udcXX; --null gives every name back unchanged.
mkdir odd
latin=$(printf 'caf\351')
utf8=$(printf 'caf\303\251')
control=$(printf 'a\nb\tc')
for n in "$latin" "$utf8" "$control"; do printf 'x' >"odd/$n"; done
out=$("$tool" --once --json odd)
for escaped in 'caf\\udce9' "$utf8\"" 'a\\nb\\tc'; do
  printf "%s\n" "$out" | grep -q "$escaped" || fail "$escaped not in $out"
done
"$tool" --once --null odd >got
printf "$work/odd/%s\0" "$latin" "$utf8" "$control" | LC_ALL=C sort -z >want
LC_ALL=C sort -z got | cmp -s - want || fail "--null output differs"
"$tool" --once --null --exec true --delete odd >got
[ "$(tr '\0' '\n' <got | grep -cx deleted)" -eq 3 ] || fail "--null results not NUL-separated"

# An unreadable watched folder is refused (as an unprivileged user: root reads it).
mkdir locked && chmod 0 locked && chmod 711 "$work"
rc=0
"$(dirname "$0")/../support/as-non-root.sh" "$tool" --once locked 2>err || rc=$?
chmod 700 locked
[ $rc -eq 77 ] || { [ $rc -eq 2 ] && grep -q 'Permission denied' err; } || fail "unreadable: $rc"

# Commands start with no signal blocked and SIGINT, SIGTERM, SIGPIPE at their default action,
# even when the tool's own caller ignores SIGINT and SIGPIPE.
mkdir sigs
printf 'x' >sigs/f
out=$(trap '' INT PIPE && "$tool" --once --exec "grep -hE '^Sig(Blk|Ign)' /proc/self/status" sigs)
blocked=$(printf "%s\n" "$out" | sed -n 's/^SigBlk:\t*//p')
ignored=$(printf "%s\n" "$out" | sed -n 's/^SigIgn:\t*//p')
[ $((0x$blocked)) -eq 0 ] && [ $((0x$ignored & 0x5002)) -eq 0 ] || fail "signal state: $out"

# Output that cannot be written stops the tool before the next command.
if [ -w /dev/full ]; then
  mkdir full
  printf 'x' >full/a
  printf 'x' >full/b
  rc=0
  "$tool" --once --exec true --delete full >/dev/full 2>/dev/null || rc=$?
  [ $rc -eq 1 ] && [ "$(ls full | wc -l)" -eq 1 ] || fail "went on after an output failure"
fi

# SIGTERM in --once: the running command receives it, the next one never starts, and the tool
# ends by SIGTERM. A command that outlives it keeps the tool until a second SIGTERM.
cat >slow.sh <<EOF
#!/bin/sh
trap 'echo term >>"$work/started"; [ "\$(cat "\$1")" = stubborn ] || exit 3' TERM
echo \$\$ >>'$work/commands.pid'
echo "\$1" >>'$work/started'
while :; do sleep 0.05; done
EOF
chmod +x slow.sh
for mode in gentle stubborn; do
  rm -rf slow started
  mkdir slow
  printf '%s' "$mode" >slow/a
  printf '%s' "$mode" >slow/b
  "$tool" --once --exec "$work/slow.sh" slow >"$mode.out" 2>&1 &
  pid=$!
  echo $pid >tool.pid
  await 10 test -s started || fail "$mode: no command started"
  kill -TERM $pid
  await 10 grep -q term started || fail "$mode: the command did not receive SIGTERM"
  [ $mode = gentle ] || kill -TERM $pid
  reap
  [ $rc -eq 143 ] || fail "$mode: status $rc"
  [ "$(grep -c slow/ started)" -eq 1 ] || fail "$mode: a command started after the signal"
done
grep -q 'slow/.	exit 3' gentle.out || fail "the stopped command not reported"

# A watching tool stops on SIGTERM and writes its log: by default deliveries and results, no trace.
rm log/vantu-hotfolder.log
"$tool" --period 100 --exec true --log "$work/log" inbox >delivered 2>/dev/null &
pid=$!
echo $pid >tool.pid
printf 'late' >inbox/late.txt
await 10 grep -q late.txt delivered || fail "late.txt not delivered"
kill -TERM $pid
reap
[ $rc -eq 143 ] || fail "watching: status $rc"
grep -q "Delivered $work/inbox/late.txt" log/vantu-hotfolder.log &&
  grep -q "command for $work/inbox/late.txt succeeded" log/vantu-hotfolder.log || fail "no log"
if grep -q 'Checking file' log/vantu-hotfolder.log; then fail "trace logged by default"; fi
echo "hotfolder tool: ok"
