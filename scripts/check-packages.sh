#!/usr/bin/env bash
# The Debian packages as a user meets them: built (workflow preset "package":
# configure, build, cpack), installed with apt-get (missing dependencies come
# from Debian's archive), used from the installed files alone, then purged
# with nothing left behind. It installs into the system, so it runs as root
# (as CI does).
#
#   bash scripts/check-packages.sh
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/phone.sh

package_names=""
package_work=""
package_purge() {
  if [ -n "$mox_phone_pid" ]; then
    kill "$mox_phone_pid" 2>/dev/null || true
    wait "$mox_phone_pid" 2>/dev/null || true
  fi
  if [ -n "$package_names" ]; then
    # shellcheck disable=SC2086
    DEBIAN_FRONTEND=noninteractive apt-get purge -y -qq $package_names >/dev/null || true
  fi
  if [ -n "$package_work" ]; then
    rm -rf "$package_work"
  fi
}

if [ "$(id -u)" -ne 0 ]; then
  echo "the package step installs the packages into the system: run it as root" >&2
  exit 1
fi
rm -f build/package/*.deb
cmake --workflow --preset package
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/package/CMakeCache.txt)
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
package_names=""
for deb in build/package/*.deb; do
  package_names="$package_names $(dpkg-deb -f "$deb" Package)"
done
package_work=$(mktemp -d)
trap package_purge EXIT
echo "installing:$package_names"
(cd build/package && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq ./*.deb)

echo "using the installed files"
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
examples=/usr/share/doc/mox/examples
cmake -S "$examples" -B "$package_work/find-package" -G Ninja -DMOX_EXAMPLE_WERROR=ON >/dev/null
cmake --build "$package_work/find-package" >/dev/null
cmake -S "$examples" -B "$package_work/pkg-config" -G Ninja -DMOX_EXAMPLE_WERROR=ON \
  -DMOX_EXAMPLE_PKG_CONFIG=ON >/dev/null
cmake --build "$package_work/pkg-config" >/dev/null
socket="$package_work/phone.sock"
mox_start_phone mox-phone "unix:$socket" "$package_work/phone.log"
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
kill -TERM "$mox_phone_pid"
wait "$mox_phone_pid"
mox_phone_pid=""
# Every lookup kept its answer in a private directory and removed it: no
# package leaves a directory that other users share.
if [ -e /tmp/Infotainment ] || [ -e /temp ]; then
  echo "a lookup left a shared result directory behind" >&2
  exit 1
fi

echo "checking the installed file lists"
lib="usr/lib/$multiarch"
usual="^/(\.|usr|usr/bin|usr/bin/mox[a-z-]*|usr/include|usr/include/mox(/.+)?|usr/lib|$lib"
usual="$usual|$lib/lib[a-z]+\.so(\.[0-9]+)*|$lib/cmake|$lib/cmake/mox(/[^/]+)?|$lib/pkgconfig"
usual="$usual|$lib/pkgconfig/mox[a-z-]*\.pc|usr/share|usr/share/doc|usr/share/doc/mox(/.+)?"
# The Wireshark dissector, in Wireshark's global Lua plugin folder.
usual="$usual|$lib/wireshark|$lib/wireshark/plugins|$lib/wireshark/plugins/moxlink\.lua"
usual="$usual|usr/share/man|usr/share/man/man1|usr/share/man/man1/mox[a-z-]*\.1\.gz|usr/share/mox(/.+)?)$"
# shellcheck disable=SC2086
dpkg -L $package_names | sed "/^$/d" | sort -u >"$package_work/files.txt"
if grep -v -E "$usual" "$package_work/files.txt"; then
  echo "the packages install the files above outside the usual locations" >&2
  exit 1
fi
echo "$(wc -l <"$package_work/files.txt") paths, all in the usual locations"

echo "removing:$package_names"
# shellcheck disable=SC2086
DEBIAN_FRONTEND=noninteractive apt-get purge -y -qq $package_names
left=""
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
  exit 1
fi
echo "nothing left behind"
package_names=""
package_purge
trap - EXIT
