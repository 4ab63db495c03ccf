#!/usr/bin/env bash
# valgrind memcheck over whole lookups: the example program against mox-phone
# on a Unix socket, and `mox lookup` once per transport (the built-in phone,
# a Unix socket, TCP on the loopback address). Any memcheck error, or any
# block definitely or indirectly lost, fails the run; the one search request
# that the unit abandons on purpose is suppressed by name
# (tests/valgrind.supp).
#
#   bash scripts/valgrind.sh [BUILD_DIR]     (default build/default, already built)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/phone.sh
build=${1:-build/default}
mox="$build/tools/mox/mox"
phone_program="$build/tools/phone/mox-phone"
example="$build/examples/mox-example"
toc=0000960046E6008D3600D386
work=$(mktemp -d)

cleanup() {
  if [ -n "$mox_phone_pid" ]; then
    kill "$mox_phone_pid" 2>/dev/null || true
    wait "$mox_phone_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT

memcheck() {
  local name=$1
  shift
  echo "valgrind: $name"
  if ! valgrind --quiet --error-exitcode=99 --leak-check=full \
    --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite,indirect \
    --suppressions=tests/valgrind.supp --log-file="$work/$name.valgrind" \
    "$@" >"$work/$name.out" 2>&1; then
    cat "$work/$name.out" "$work/$name.valgrind" >&2
    echo "valgrind: $name failed" >&2
    return 1
  fi
  if [ -s "$work/$name.valgrind" ]; then
    cat "$work/$name.valgrind" >&2
    echo "valgrind: $name reported something" >&2
    return 1
  fi
  tail -n 3 "$work/$name.out"
}

# Starts mox-phone on ENDPOINT and waits until it says it listens.
start_phone() {
  mox_start_phone "$phone_program" "$1" "$work/phone.log"
}

stop_phone() {
  kill "$mox_phone_pid"
  wait "$mox_phone_pid" 2>/dev/null || true
  mox_phone_pid=""
}

memcheck lookup-builtin "$mox" lookup --toc "$toc"

start_phone "unix:$work/phone.sock"
memcheck lookup-unix "$mox" lookup --phone "unix:$work/phone.sock" --toc "$toc"
OST_LINKAPP_ENDPOINT="unix:$work/phone.sock" memcheck example "$example" "$toc"
stop_phone

# A free loopback port, asked of the kernel.
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
start_phone "tcp:127.0.0.1:$port"
memcheck lookup-tcp "$mox" lookup --phone "tcp:127.0.0.1:$port" --toc "$toc"
stop_phone

echo "valgrind: no errors, nothing definitely or indirectly lost"
