#!/usr/bin/env bash
# The main job: builds everything that the README and docs/ then use (the
# module and its platform libraries, every tool, the example program and the
# manual pages: the target mox_dist, so that `cmake --install build/default`
# works right after), then looks up every disc of the bundled sample
# catalogue through the module and the built-in simulator (one `mox lookup`
# each), and one disc that the phone does not know.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
# shellcheck disable=SC2086
mox_require_packages $MOX_HOST_PACKAGES

cmake --preset default >/dev/null
cmake --build --preset default --target mox_dist

mox=build/default/tools/mox/mox
catalog=tools/phone/catalog/sample.json

# "TOC<TAB>what the catalogue says of it", one line per disc.
discs=$(/usr/bin/python3 - "$catalog" <<'PY'
import json, sys
catalog = json.load(open(sys.argv[1], encoding="utf-8"))
for disc in catalog["discs"]:
    print(disc["toc"] + "\t" + str(len(disc.get("candidates", []))) + " candidate(s) in the catalogue")
PY
)

while IFS=$'\t' read -r toc note; do
  echo "== mox lookup --toc $toc   ($note)"
  "$mox" lookup --toc "$toc"
  echo
done <<< "$discs"

unknown=000096001234
echo "== mox lookup --toc $unknown   (a disc the phone does not know: exit status 1)"
status=0
"$mox" lookup --toc "$unknown" || status=$?
if [ "$status" -ne 1 ]; then
  echo "expected exit status 1 for an unknown disc, got $status" >&2
  exit 1
fi
