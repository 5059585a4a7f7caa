#!/usr/bin/env bash
# Starts Kavot from a build folder.
set -euo pipefail
build=${1:-build/default}
exec "$build/src/app/kavot" "${@:2}"
