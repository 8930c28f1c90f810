#!/bin/sh
# Runs a test program as an unprivileged user: permission faults (unreadable files and
# directories, denied access) cannot be shown to root, which CI runs as. Exits 77 (skipped) when
# the unprivileged user cannot reach the program, as under a private home directory.
if [ "$(id -u)" -eq 0 ]; then
  run="setpriv --reuid=65534 --regid=65534 --clear-groups env TMPDIR=/tmp"
  if ! $run test -x "$1"; then
    echo "skipped: user 65534 cannot run $1"
    exit 77
  fi
  exec $run "$@"
fi
exec "$@"
