#!/usr/bin/env bash
# One libFuzzer target for a bounded time on a copy of its seed corpus (the
# new inputs it finds stay in the copy, beside its log).
#
#   bash scripts/fuzz-smoke.sh build/fuzz/fuzz/MoxSearchFuzzer fuzz/corpus/MoxSearchFuzzer build/fuzz/corpus-run
#
#   MOX_FUZZ_SECONDS  how long it fuzzes (default 20 s)
set -euo pipefail

if [ $# -ne 3 ] || [ "$1" = "--help" ] || [ "$1" = "-h" ]; then
  echo "usage: [MOX_FUZZ_SECONDS=20] bash scripts/fuzz-smoke.sh FUZZER CORPUS WORK_DIR" >&2
  exit 2
fi
fuzzer=$1
corpus=$2
name=$(basename "$fuzzer")
work="$3/$name"
seconds=${MOX_FUZZ_SECONDS:-20}

rm -rf "$work" && mkdir -p "$work"
if [ -d "$corpus" ]; then
  cp -r "$corpus"/. "$work"/
fi
echo "fuzzing $name for $seconds s"
# A slow input (over 10 s) or a huge one (over 512 MB resident) is a
# finding, not something to wait out. AddressSanitizer keeps up to 256 MB
# of freed memory by default, which would count against that limit; a
# quarantine of 64 MB still catches a use of any recently freed block.
if ! ASAN_OPTIONS="quarantine_size_mb=64${ASAN_OPTIONS:+:$ASAN_OPTIONS}" \
  "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=512 \
  -print_final_stats=1 "$work" >"$work.log" 2>&1; then
  tail -n 80 "$work.log"
  echo "fuzzer $name failed" >&2
  exit 1
fi
tail -n 4 "$work.log"
