#!/usr/bin/env bash
# The whole test suite: format check, host build and tests, the runnable
# examples of the README and docs/ (scripts/check-docs.py), the same tests
# under AddressSanitizer + UndefinedBehaviorSanitizer and under
# ThreadSanitizer, valgrind memcheck over whole lookups, the 32-bit ARM
# cross build with its tests under qemu-arm,
# the libFuzzer targets for a bounded time on their seed corpora, the
# benchmarks (built and run once, briefly), the stripped release library and
# the Debian packages (built, installed, used and removed: needs root), and
# the link captures opened by tshark with the Wireshark dissector.
# Fails as soon as any step fails.
#
#   bash scripts/test.sh            everything
#   MOX_STEPS="host asan" bash scripts/test.sh   only the named steps
#   MOX_FUZZ_SECONDS=60 bash scripts/test.sh     longer fuzzing (default 20 s per target)
#
# Each step runs alone too: `cmake --workflow --preset asan`, or
# `ctest --preset armhf -L size` for one check (CMakePresets.json).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

steps=${MOX_STEPS:-"format host docs wireshark asan tsan valgrind armhf target fuzz bench release package"}

# The Debian packages that one step needs.
step_packages() {
  case $1 in
    format) echo "git $MOX_FORMAT_PACKAGES" ;;
    # The DLT test of the debug output runs in the host and asan steps.
    host | asan) echo "$MOX_HOST_PACKAGES $MOX_DLT_PACKAGES" ;;
    tsan | bench | release) echo "$MOX_HOST_PACKAGES" ;;
    docs) echo "$MOX_HOST_PACKAGES $MOX_DOCS_PACKAGES" ;;
    valgrind) echo "$MOX_HOST_PACKAGES $MOX_VALGRIND_PACKAGES" ;;
    armhf | target) echo "$MOX_HOST_PACKAGES $MOX_ARM_PACKAGES" ;;
    fuzz) echo "$MOX_HOST_PACKAGES $MOX_CLANG_PACKAGES" ;;
    package) echo "$MOX_HOST_PACKAGES $MOX_PACKAGE_PACKAGES" ;;
    wireshark) echo "$MOX_HOST_PACKAGES $MOX_WIRESHARK_PACKAGES" ;;
    *)
      echo "unknown step '$1' (steps: format host docs wireshark asan tsan valgrind armhf target fuzz bench release package)" >&2
      return 1
      ;;
  esac
}

# Only what the requested steps need is installed.
needed_packages=""
for step in $steps; do
  needed_packages="$needed_packages $(step_packages "$step")"
done
# shellcheck disable=SC2086
mox_require_packages $(echo $needed_packages | tr ' ' '\n' | sort -u)
# As many build jobs as the machine has cores (the presets leave it open).
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc)}

started=$(date +%s)
stamp() { echo "[$(($(date +%s) - started)) s] $*"; }

# Each step is a workflow preset (configure, build, test: the checks of the
# library, the fuzz and the benchmark smoke runs are labelled CTest tests of
# their presets) or a short command on the host build.
run_step() {
  case $1 in
    format) git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run --Werror ;;
    host) cmake --workflow --preset default ;;
    asan | tsan | armhf | target | fuzz | bench | release) cmake --workflow --preset "$1" ;;
    # The README's and docs/' runnable examples, against the host build.
    docs)
      cmake --preset default >/dev/null
      cmake --build --preset docs
      python3 scripts/check-docs.py --build-dir build/default
      ;;
    # valgrind memcheck over whole lookups on the host build.
    valgrind)
      cmake --preset default
      cmake --build --preset valgrind
      bash scripts/valgrind.sh build/default
      ;;
    # Link captures opened by tshark with the Wireshark dissector (label
    # capture); tshark is installed here, so none may skip.
    wireshark)
      cmake --preset default >/dev/null
      cmake --build --preset wireshark
      ctest --preset wireshark
      ;;
    package) bash scripts/check-packages.sh ;;
    *)
      echo "unknown step: $1" >&2
      exit 2
      ;;
  esac
}

for step in $steps; do
  stamp "step: $step"
  run_step "$step"
done
stamp "all steps passed: $steps"
