#!/usr/bin/env bash
# Runs every benchmark executable (bench_*) of a build and collects their BENCH lines at the end.
set -uo pipefail
build=${1:-build/default}
out=$(mktemp)
status=0
for exe in $(find "$build/bench" -maxdepth 2 -type f -name 'bench_*' -perm -u+x | sort); do
  echo "== $(basename "$exe")"
  if ! QT_QPA_PLATFORM=offscreen "$exe" | tee -a "$out"; then status=1; fi
done
echo "== summary"
grep '^BENCH ' "$out" || echo "no benchmark printed a BENCH line"
rm -f "$out"
exit $status
