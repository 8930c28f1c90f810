#!/bin/sh
# Runs a test program as an unprivileged user: permission faults (unreadable files and
# directories, denied access) cannot be shown to root, which CI runs as.
if [ "$(id -u)" -eq 0 ]; then
  exec setpriv --reuid=65534 --regid=65534 --clear-groups env TMPDIR=/tmp "$@"
fi
exec "$@"
