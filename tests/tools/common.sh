# Shared by the tool's test scripts, sourced with $name set: $tool (the first argument), a scratch
# folder that becomes the current one and is removed at exit with every process whose pid is in
# one of its *.pid files, fail, and await.
tool="$1"
work=$(cd "$(mktemp -d)" && pwd -P)
cleanup() {
  for p in $(cat "$work"/*.pid 2>/dev/null); do kill -KILL "$p" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
cd "$work"
fail() {
  echo "$name: $*" >&2
  exit 1
}
# Polls a condition (the remaining arguments) for up to $1 seconds.
await() {
  end=$(($(date +%s) + $1))
  shift
  until "$@"; do
    [ "$(date +%s)" -lt $end ] || return 1
    sleep 0.05
  done
}
