#!/usr/bin/env bash
# The whole test suite: format check, host build and tests, the same tests
# under AddressSanitizer + UndefinedBehaviorSanitizer and under
# ThreadSanitizer, the 32-bit ARM cross build with its tests under qemu-arm,
# the libFuzzer targets for a bounded time on their seed corpora, the
# benchmarks (built and run once, briefly) and the stripped release library.
# Fails as soon as any step fails.
#
#   bash scripts/test.sh            everything
#   MOX_STEPS="host asan" bash scripts/test.sh   only the named steps
#   MOX_FUZZ_SECONDS=60 bash scripts/test.sh     longer fuzzing (default 20 s per target)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
# shellcheck disable=SC2086
mox_require_packages $MOX_HOST_PACKAGES $MOX_ARM_PACKAGES $MOX_CLANG_PACKAGES

steps=${MOX_STEPS:-"format host asan tsan armhf fuzz bench release"}
fuzz_seconds=${MOX_FUZZ_SECONDS:-20}
jobs=$(nproc)

started=$(date +%s)
stamp() { echo "[$(($(date +%s) - started)) s] $*"; }

run_preset() {
  local preset=$1
  stamp "configure + build: $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  stamp "tests: $preset"
  ctest --preset "$preset" -j "$jobs"
}

step_format() {
  stamp "format check (clang-format)"
  git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run --Werror
}

step_fuzz() {
  stamp "configure + build: fuzz"
  cmake --preset fuzz >/dev/null
  cmake --build --preset fuzz -j "$jobs"
  local fuzzer name corpus work
  for fuzzer in build/fuzz/fuzz/*Fuzzer; do
    [ -x "$fuzzer" ] || continue
    name=$(basename "$fuzzer")
    corpus="fuzz/corpus/$name"
    work="build/fuzz/corpus-run/$name"
    rm -rf "$work" && mkdir -p "$work"
    if [ -d "$corpus" ]; then
      cp -r "$corpus"/. "$work"/
    fi
    stamp "fuzzing $name for ${fuzz_seconds} s"
    # A slow input (over 10 s) or a huge one (over 512 MB resident) is a
    # finding, not something to wait out. AddressSanitizer keeps up to 256 MB
    # of freed memory by default, which would count against that limit; a
    # quarantine of 64 MB still catches a use of any recently freed block.
    if ! ASAN_OPTIONS="quarantine_size_mb=64${ASAN_OPTIONS:+:$ASAN_OPTIONS}" \
      "$fuzzer" -max_total_time="$fuzz_seconds" -timeout=10 -rss_limit_mb=512 \
      -print_final_stats=1 "$work" >"$work.log" 2>&1; then
      tail -n 80 "$work.log"
      echo "fuzzer $name failed" >&2
      return 1
    fi
    tail -n 4 "$work.log"
  done
}

# Benchmarks are built and run once, briefly, so they keep working; their
# figures are read by people (docs/performance.md), never asserted.
step_bench() {
  stamp "configure + build: bench"
  cmake --preset bench >/dev/null
  cmake --build --preset bench -j "$jobs"
  local bench
  for bench in build/bench/bench/*Bench; do
    [ -x "$bench" ] || continue
    stamp "smoke run: $(basename "$bench")"
    "$bench" --benchmark_min_time=0.01
  done
}

step_release() {
  stamp "configure + build: release"
  cmake --preset release >/dev/null
  cmake --build --preset release -j "$jobs" --target mox
  ls -l build/release/src/libmox.so*
  # Only the public API may be exported: the facade, its one singleton
  # instantiation and the records.
  echo "exported by libmox.so:"
  nm -D --defined-only build/release/src/libmox.so | c++filt | awk '{ $1 = ""; $2 = ""; print }' | sort
  local foreign
  foreign=$(nm -D --defined-only build/release/src/libmox.so | c++filt | awk '{ $1 = ""; $2 = ""; print }' |
    grep -v -E '^ *(HbSMox|HbSMoxDef::|HbSingleton<HbSMox>::|(typeinfo (name )?|vtable )for (HbSMox|HbSingleton<HbSMox>)$)' || true)
  if [ -n "$foreign" ]; then
    echo "libmox.so exports more than its public API:" >&2
    echo "$foreign" >&2
    return 1
  fi
}

for step in $steps; do
  case "$step" in
    format) step_format ;;
    host) run_preset default ;;
    asan | tsan | armhf) run_preset "$step" ;;
    fuzz) step_fuzz ;;
    bench) step_bench ;;
    release) step_release ;;
    *) echo "unknown step: $step" >&2; exit 2 ;;
  esac
done
stamp "all steps passed: $steps"
