#!/usr/bin/env bash
# The cross build installs the library and the headers as the host build
# does, into a target sysroot (DESTDIR, prefix /usr); the example program is
# then cross-built against that sysroot alone, with find_package and with
# pkg-config's sysroot handling.
#
#   bash scripts/check-sysroot.sh build/armhf     (a built 32-bit ARM cross build)
set -euo pipefail

if [ $# -ne 1 ] || [ "$1" = "--help" ] || [ "$1" = "-h" ]; then
  echo "usage: bash scripts/check-sysroot.sh BUILD_DIR" >&2
  exit 2
fi
build=$(cd "$1" && pwd)
cd "$(dirname "$0")/.."
sysroot="$build/sysroot"
example="$build/sysroot-example"

echo "install into a sysroot: $build"
rm -rf "$sysroot" "$example"
DESTDIR="$sysroot" cmake --install "$build" --prefix /usr >/dev/null
readelf -h "$sysroot/usr/lib/libmox.so.0" | grep -q "Machine: *ARM$"
readelf -d "$sysroot/usr/lib/libmox.so.0" | grep -q "Library soname: \[libmox.so.0\]"
[ -f "$sysroot/usr/include/mox/HbSMox.h" ] && [ -f "$sysroot/usr/include/mox/host/HbFramework/HbSubject.h" ]
grep -qx "prefix=/usr" "$sysroot/usr/lib/pkgconfig/mox.pc"
cmake -S examples -B "$example/find-package" -G Ninja -DMOX_EXAMPLE_WERROR=ON \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/arm-linux-gnueabihf.cmake" \
  -Dmox_DIR="$sysroot/usr/lib/cmake/mox" >/dev/null
cmake --build "$example/find-package" >/dev/null
readelf -h "$example/find-package/mox-example" | grep -q "Machine: *ARM$"
flags=$(PKG_CONFIG_SYSROOT_DIR="$sysroot" PKG_CONFIG_LIBDIR="$sysroot/usr/lib/pkgconfig" \
  pkg-config --cflags --libs mox)
# shellcheck disable=SC2086
arm-linux-gnueabihf-g++ -std=c++17 -Wall -Wextra -Werror examples/lookup.cpp $flags \
  -Wl,-rpath-link,"$sysroot/usr/lib" -o "$example/mox-example-pkg-config"
readelf -h "$example/mox-example-pkg-config" | grep -q "Machine: *ARM$"
echo "sysroot $sysroot: libmox.so.0 (ARM), headers, CMake package and mox.pc; the example links"
