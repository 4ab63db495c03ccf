#!/usr/bin/env bash
# The main job: builds the module and its tools, then runs them on a sample
# response database (dump it, then search it for each disc it holds).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
# shellcheck disable=SC2086
mox_require_packages $MOX_HOST_PACKAGES

cmake --preset default >/dev/null
cmake --build --preset default --target mox_cli mox_sampledb

out=build/default/run
mkdir -p "$out"
db="$out/sample.dap3"
echo "== mox-sampledb: writing a sample response database to $db"
build/default/tools/dbwriter/mox-sampledb "$db" | tee "$out/sample-tocs.txt"
echo
echo "== mox dump $db"
build/default/tools/mox/mox dump "$db"
echo
while IFS=$'\t' read -r toc title; do
  [ -n "$toc" ] || continue
  echo "== mox search $db --toc $toc   ($title)"
  build/default/tools/mox/mox search "$db" --toc "$toc"
  echo
done < "$out/sample-tocs.txt"
