#!/usr/bin/env bash
# Export check of the module's library: only what the linker version script
# names may be exported. Its global C++ patterns, each a glob over a
# demangled name, are the list. Prints the library and what it exports; fails
# when it exports anything else.
#
#   bash scripts/check-exports.sh build/release/src/libmox.so src/libmox.map
#
#   NM  the nm program of the library's target (default nm)
set -euo pipefail

if [ $# -ne 2 ] || [ "$1" = "--help" ] || [ "$1" = "-h" ]; then
  echo "usage: [NM=...] bash scripts/check-exports.sh LIBRARY VERSION_SCRIPT" >&2
  exit 2
fi
library=$1
map=$2
nm=${NM:-nm}

# The global patterns of a version script's extern "C++" block, as one
# extended regular expression: quotes dropped, glob '*' and '?' translated,
# everything else literal.
map_export_regex() {
  sed -n '/global:/,/local:/p' "$1" | grep -E '^ *"?[A-Za-z_].*;$' | grep -v -E '^ *(global|local):' |
    sed -E 's/^ *"?//; s/"?;$//' |
    sed -E 's/[][\.^$+(){}|]/\\&/g; s/\*/.*/g; s/\?/./g' | paste -s -d'|'
}

ls -l "$library"*
echo "exported by $(basename "$library"):"
"$nm" -D --defined-only "$library" | c++filt | awk '{ $1 = ""; $2 = ""; print }' | sort
allowed=$(map_export_regex "$map")
foreign=$("$nm" -D --defined-only "$library" | c++filt | cut -d' ' -f3- |
  grep -v -x -E "$allowed" || true)
if [ -n "$foreign" ]; then
  echo "$(basename "$library") exports more than $map allows:" >&2
  echo "$foreign" >&2
  exit 1
fi
