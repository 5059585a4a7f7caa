#!/usr/bin/env bash
# Runs each libFuzzer target (fuzz_*) of a build for a bounded time on its own corpus folder.
set -uo pipefail
build=${1:-build/fuzz}
seconds=${2:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
status=0
for exe in $(find "$build/fuzz" -maxdepth 2 -type f -name 'fuzz_*' -perm -u+x | sort); do
  name=$(basename "$exe")
  corpus="$root/fuzz/corpus-$name"
  mkdir -p "$corpus"
  seeds=()
  [ -d "$root/fuzz/seeds/$name" ] && seeds=("$root/fuzz/seeds/$name")
  echo "== $name for ${seconds}s"
  if ! "$exe" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 "$corpus" "${seeds[@]}" 2>&1 | tail -5; then
    status=1
  fi
done
exit $status
