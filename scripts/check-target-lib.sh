#!/usr/bin/env bash
# The head unit's library: cross-built for 32-bit ARM, it names the head
# unit's own result directory, byte for byte.
#
#   bash scripts/check-target-lib.sh build/target/src/libmox.so
#
#   READELF  the readelf program (default readelf)
set -euo pipefail

if [ $# -ne 1 ] || [ "$1" = "--help" ] || [ "$1" = "-h" ]; then
  echo "usage: [READELF=...] bash scripts/check-target-lib.sh LIBRARY" >&2
  exit 2
fi
lib=$1
readelf=${READELF:-readelf}
result_dir=/temp/Infotainment/HbSDK/MOX/

if ! "$readelf" -h "$lib" | grep -q "Machine: *ARM$"; then
  echo "$lib is not a 32-bit ARM library" >&2
  exit 1
fi
if ! strings -a "$lib" | grep -qxF "$result_dir"; then
  echo "$lib does not hold the result directory $result_dir" >&2
  exit 1
fi
echo "$lib (ARM, stripped) holds $result_dir"
