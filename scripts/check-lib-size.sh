#!/usr/bin/env bash
# Size gate of the module's library: strips a copy of LIBRARY (the original
# keeps its debug information), prints the stripped size and fails when it
# is larger than LIMIT bytes.
#
#   bash scripts/check-lib-size.sh build/armhf/src/libmox.so
#   STRIP=strip LIMIT=153600 bash scripts/check-lib-size.sh build/default/src/libmox.so
#
#   STRIP  the strip program of the library's target (default arm-linux-gnueabihf-strip)
#   LIMIT  largest stripped size in bytes (default 153600, 150 KiB)
set -euo pipefail

if [ $# -ne 1 ] || [ "$1" = "--help" ] || [ "$1" = "-h" ]; then
  echo "usage: [STRIP=...] [LIMIT=bytes] bash scripts/check-lib-size.sh LIBRARY" >&2
  exit 2
fi
library=$1
strip=${STRIP:-arm-linux-gnueabihf-strip}
limit=${LIMIT:-153600}
if [ ! -f "$library" ]; then
  echo "check-lib-size: no such file: $library" >&2
  exit 2
fi

copy=$(mktemp)
trap 'rm -f "$copy"' EXIT
"$strip" --strip-all -o "$copy" "$library"
size=$(stat -L -c %s "$copy")
echo "stripped $(basename "$library"): $size bytes ($((size / 1024)) KiB), limit $limit bytes"
if [ "$size" -gt "$limit" ]; then
  echo "check-lib-size: the stripped $(basename "$library") is $size bytes, over the limit of $limit" >&2
  exit 1
fi
