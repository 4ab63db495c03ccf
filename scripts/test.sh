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
fuzz_seconds=${MOX_FUZZ_SECONDS:-20}
jobs=$(nproc)

started=$(date +%s)
stamp() { echo "[$(($(date +%s) - started)) s] $*"; }

run_preset() {
  local preset=$1
  stamp "configure + build: $preset"
  cmake --preset "$preset"
  cmake --build --preset "$preset" -j "$jobs"
  stamp "tests: $preset"
  ctest --preset "$preset" -j "$jobs"
}

# The README's and docs/' runnable examples, against the host build (built
# here when the host step did not run before).
step_docs() {
  stamp "runnable examples of the README and docs/"
  cmake --preset default >/dev/null
  cmake --build --preset default --target mox_dist -j "$jobs"
  python3 scripts/check-docs.py --build-dir build/default
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

# valgrind memcheck over whole lookups (the example program, and `mox lookup`
# over each transport) on the host build.
step_valgrind() {
  stamp "configure + build: default (for valgrind)"
  cmake --preset default
  cmake --build --preset default -j "$jobs" --target mox_cli mox_phone mox_example
  stamp "valgrind memcheck"
  bash scripts/valgrind.sh build/default
}

# Link captures in Wireshark: one lookup per transport and one per fault of
# the simulator, each opened by tshark with tools/wireshark/moxlink.lua and
# checked field by field (tests/cli/MoxLinkCaptureTest.cpp), and a tcpdump
# of a tcp: lookup. The tests skip themselves without tshark or tcpdump;
# this step has installed them (and runs as root), so none may skip.
step_wireshark() {
  stamp "configure + build: default (for the capture tests)"
  cmake --preset default >/dev/null
  cmake --build --preset default -j "$jobs" --target MoxLinkCaptureTest
  command -v tshark >/dev/null || { echo "tshark is not installed" >&2; return 1; }
  stamp "link captures in tshark"
  local log
  log=$(mktemp)
  ctest --test-dir build/default -R '^(EveryTransportAndFault/)?MoxLink(Capture|Tcpdump)' -LE whole \
    -j "$jobs" --output-on-failure | tee "$log"
  if grep -q "Skipped" "$log"; then
    rm -f "$log"
    echo "capture tests were skipped although tshark is installed" >&2
    return 1
  fi
  rm -f "$log"
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
  build/bench/bench/MoxFootprint --link loopback
}

# The head unit's library: cross-built, optimised and stripped, it names the
# head unit's own result directory, byte for byte.
step_target() {
  stamp "configure + build: target"
  cmake --preset target >/dev/null
  cmake --build --preset target -j "$jobs" --target mox
  local lib=build/target/src/libmox.so
  readelf -h "$lib" | grep -q "Machine: *ARM$"
  if ! strings -a "$lib" | grep -qxF "/temp/Infotainment/HbSDK/MOX/"; then
    echo "$lib does not hold the result directory /temp/Infotainment/HbSDK/MOX/" >&2
    return 1
  fi
  echo "$lib (ARM, stripped) holds /temp/Infotainment/HbSDK/MOX/"
}

step_release() {
  stamp "configure + build: release"
  cmake --preset release >/dev/null
  cmake --build --preset release -j "$jobs" --target mox
  ls -l build/release/src/libmox.so*
  # Only what the linker version script (src/libmox.map) names may be exported:
  # its global C++ patterns, each a glob over a demangled name, are the list.
  echo "exported by libmox.so:"
  nm -D --defined-only build/release/src/libmox.so | c++filt | awk '{ $1 = ""; $2 = ""; print }' | sort
  local allowed foreign
  allowed=$(map_export_regex src/libmox.map)
  foreign=$(nm -D --defined-only build/release/src/libmox.so | c++filt | cut -d' ' -f3- |
    grep -v -x -E "$allowed" || true)
  if [ -n "$foreign" ]; then
    echo "libmox.so exports more than src/libmox.map allows:" >&2
    echo "$foreign" >&2
    return 1
  fi
}

# The global patterns of a version script's extern "C++" block, as one
# extended regular expression: quotes dropped, glob '*' and '?' translated,
# everything else literal.
map_export_regex() {
  sed -n '/global:/,/local:/p' "$1" | grep -E '^ *"?[A-Za-z_].*;$' | grep -v -E '^ *(global|local):' |
    sed -E 's/^ *"?//; s/"?;$//' |
    sed -E 's/[][\.^$+(){}|]/\\&/g; s/\*/.*/g; s/\?/./g' | paste -s -d'|'
}

# The cross build installs the library and the headers as the host build
# does, into a target sysroot (DESTDIR, prefix /usr); the example program is
# then cross-built against that sysroot alone, with find_package and with
# pkg-config's sysroot handling.
armhf_sysroot_check() {
  local build=$1
  local sysroot="$PWD/$build/sysroot"
  stamp "install into a sysroot: $build"
  rm -rf "$sysroot" "$build/sysroot-example"
  DESTDIR="$sysroot" cmake --install "$build" --prefix /usr >/dev/null
  readelf -h "$sysroot/usr/lib/libmox.so.0" | grep -q "Machine: *ARM$"
  readelf -d "$sysroot/usr/lib/libmox.so.0" | grep -q "Library soname: \[libmox.so.0\]"
  [ -f "$sysroot/usr/include/mox/HbSMox.h" ] && [ -f "$sysroot/usr/include/mox/host/HbFramework/HbSubject.h" ]
  grep -qx "prefix=/usr" "$sysroot/usr/lib/pkgconfig/mox.pc"
  cmake -S examples -B "$build/sysroot-example/find-package" -G Ninja -DMOX_EXAMPLE_WERROR=ON \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/arm-linux-gnueabihf.cmake" \
    -Dmox_DIR="$sysroot/usr/lib/cmake/mox" >/dev/null
  cmake --build "$build/sysroot-example/find-package" >/dev/null
  readelf -h "$build/sysroot-example/find-package/mox-example" | grep -q "Machine: *ARM$"
  local flags
  flags=$(PKG_CONFIG_SYSROOT_DIR="$sysroot" PKG_CONFIG_LIBDIR="$sysroot/usr/lib/pkgconfig" \
    pkg-config --cflags --libs mox)
  # shellcheck disable=SC2086
  arm-linux-gnueabihf-g++ -std=c++17 -Wall -Wextra -Werror examples/lookup.cpp $flags \
    -Wl,-rpath-link,"$sysroot/usr/lib" -o "$build/sysroot-example/mox-example-pkg-config"
  readelf -h "$build/sysroot-example/mox-example-pkg-config" | grep -q "Machine: *ARM$"
  echo "sysroot $sysroot: libmox.so.0 (ARM), headers, CMake package and mox.pc; the example links"
}

# The Debian packages as a user meets them: built (preset "package"),
# installed with apt-get (missing dependencies come from Debian's archive),
# used from the installed files alone, then purged with nothing left behind.
# It installs into the system, so it runs as root (as CI does).
package_names=""
package_work=""
package_purge() {
  if [ -n "$package_names" ]; then
    # shellcheck disable=SC2086
    DEBIAN_FRONTEND=noninteractive apt-get purge -y -qq $package_names >/dev/null || true
  fi
  if [ -n "$package_work" ]; then
    rm -rf "$package_work"
  fi
}

step_package() {
  if [ "$(id -u)" -ne 0 ]; then
    echo "the package step installs the packages into the system: run it as root" >&2
    return 1
  fi
  stamp "configure + build: package"
  cmake --preset package >/dev/null
  cmake --build --preset package -j "$jobs"
  rm -f build/package/*.deb
  cpack --preset package >/dev/null
  local deb version multiarch
  version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/package/CMakeCache.txt)
  multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
  package_names=""
  for deb in build/package/*.deb; do
    package_names="$package_names $(dpkg-deb -f "$deb" Package)"
  done
  package_work=$(mktemp -d)
  trap package_purge EXIT
  stamp "installing:$package_names"
  (cd build/package && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq ./*.deb)

  stamp "using the installed files"
  [ "$(command -v mox)" = /usr/bin/mox ]
  [ "$(mox --version)" = "mox $version" ]
  [ "$(mox-phone --version)" = "mox-phone $version" ]
  mox --version
  # (`mox lookup --help` alone proves nothing: mox answers --help for an
  # unknown subcommand too.)
  if mox --help | grep -q "^  lookup "; then
    mox lookup --toc 0000960046E6008D3600D386
  fi
  # The example program, built from the installed sources as an
  # application's project, with find_package and with pkg-config, looks the
  # disc up through the installed simulator.
  local examples=/usr/share/doc/mox/examples
  cmake -S "$examples" -B "$package_work/find-package" -G Ninja -DMOX_EXAMPLE_WERROR=ON >/dev/null
  cmake --build "$package_work/find-package" >/dev/null
  cmake -S "$examples" -B "$package_work/pkg-config" -G Ninja -DMOX_EXAMPLE_WERROR=ON \
    -DMOX_EXAMPLE_PKG_CONFIG=ON >/dev/null
  cmake --build "$package_work/pkg-config" >/dev/null
  local socket="$package_work/phone.sock" phone tries=0 build
  mox-phone --listen "unix:$socket" >"$package_work/phone.log" 2>&1 &
  phone=$!
  until grep -q "^mox-phone: listening on " "$package_work/phone.log"; do
    tries=$((tries + 1))
    if [ "$tries" -gt 300 ] || ! kill -0 "$phone" 2>/dev/null; then
      cat "$package_work/phone.log" >&2
      return 1
    fi
    sleep 0.1
  done
  grep -qx "mox-phone: catalogue /usr/share/mox/catalog/sample.json: 8 discs" "$package_work/phone.log"
  for build in find-package pkg-config; do
    OST_LINKAPP_ENDPOINT="unix:$socket" HB_TIMER_SCALE=0.1 \
      "$package_work/$build/mox-example" 0000960046E6008D3600D386 >"$package_work/albums.txt"
    diff -u - "$package_work/albums.txt" <<'EOF'
Northern Roads (92%, 3 tracks)
  The Harbor Lights - Open Highway
  The Harbor Lights - Cold Harbor
  The Harbor Lights - Last Exit
EOF
    echo "mox-example ($build): $(head -n 1 "$package_work/albums.txt")"
  done
  kill -TERM "$phone"
  wait "$phone"
  # Every lookup kept its answer in a private directory and removed it: no
  # package leaves a directory that other users share.
  if [ -e /tmp/Infotainment ] || [ -e /temp ]; then
    echo "a lookup left a shared result directory behind" >&2
    return 1
  fi

  stamp "checking the installed file lists"
  local lib="usr/lib/$multiarch"
  local usual="^/(\.|usr|usr/bin|usr/bin/mox[a-z-]*|usr/include|usr/include/mox(/.+)?|usr/lib|$lib"
  usual="$usual|$lib/lib[a-z]+\.so(\.[0-9]+)*|$lib/cmake|$lib/cmake/mox(/[^/]+)?|$lib/pkgconfig"
  usual="$usual|$lib/pkgconfig/mox[a-z-]*\.pc|usr/share|usr/share/doc|usr/share/doc/mox(/.+)?"
  # The Wireshark dissector, in Wireshark's global Lua plugin folder.
  usual="$usual|$lib/wireshark|$lib/wireshark/plugins|$lib/wireshark/plugins/moxlink\.lua"
  usual="$usual|usr/share/man|usr/share/man/man1|usr/share/man/man1/mox[a-z-]*\.1\.gz|usr/share/mox(/.+)?)$"
  # shellcheck disable=SC2086
  dpkg -L $package_names | sed "/^$/d" | sort -u >"$package_work/files.txt"
  if grep -v -E "$usual" "$package_work/files.txt"; then
    echo "the packages install the files above outside the usual locations" >&2
    return 1
  fi
  echo "$(wc -l <"$package_work/files.txt") paths, all in the usual locations"

  stamp "removing:$package_names"
  # shellcheck disable=SC2086
  DEBIAN_FRONTEND=noninteractive apt-get purge -y -qq $package_names
  local path left=""
  for deb in $package_names; do
    if dpkg-query -W "$deb" >/dev/null 2>&1; then
      left="$left package:$deb"
    fi
  done
  while IFS= read -r path; do
    if [ -d "$path" ] && [ ! -L "$path" ]; then
      if [[ $path =~ ^/usr/(include/mox|share/mox|share/doc/mox|lib/[^/]+/cmake/mox)(/|$) ]]; then
        left="$left $path"
      fi
    elif [ -e "$path" ] || [ -L "$path" ]; then
      left="$left $path"
    fi
  done <"$package_work/files.txt"
  if ldconfig -p | grep -q -E "lib(mox|hbframework|ostlinkapp)\.so"; then
    left="$left (the loader's cache)"
  fi
  if [ -n "$left" ]; then
    echo "left behind after the purge:$left" >&2
    return 1
  fi
  echo "nothing left behind"
  package_names=""
  package_purge
  trap - EXIT
}

for step in $steps; do
  case "$step" in
    format) step_format ;;
    host) run_preset default ;;
    docs) step_docs ;;
    asan | tsan) run_preset "$step" ;;
    valgrind) step_valgrind ;;
    armhf)
      run_preset armhf
      bash scripts/check-lib-size.sh build/armhf/src/libmox.so
      armhf_sysroot_check build/armhf
      ;;
    target) step_target ;;
    fuzz) step_fuzz ;;
    bench) step_bench ;;
    release) step_release ;;
    package) step_package ;;
    wireshark) step_wireshark ;;
    *) echo "unknown step: $step" >&2; exit 2 ;;
  esac
done
stamp "all steps passed: $steps"
