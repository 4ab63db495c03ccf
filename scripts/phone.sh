#!/usr/bin/env bash
# Starts the phone simulator for a script and waits until it listens.
#   source scripts/phone.sh; mox_start_phone PROGRAM ENDPOINT LOG
# PROGRAM (mox-phone) listens on ENDPOINT with its output in LOG; its process
# id is then in mox_phone_pid. Fails, with the log, when it has not said
# "listening" within 30 s or has ended.
mox_phone_pid=""

mox_start_phone() {
  local program=$1 endpoint=$2 log=$3 tries=0
  "$program" --listen "$endpoint" >"$log" 2>&1 &
  mox_phone_pid=$!
  until grep -q "^mox-phone: listening on " "$log"; do
    tries=$((tries + 1))
    if [ "$tries" -gt 300 ] || ! kill -0 "$mox_phone_pid" 2>/dev/null; then
      cat "$log" >&2
      echo "mox-phone did not start on $endpoint" >&2
      return 1
    fi
    sleep 0.1
  done
}
