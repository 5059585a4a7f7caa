#!/usr/bin/env bash
# Starts Kavot on the demo project, making the demo recording and project on the first run.
# Usage: run-demo.sh BUILD_DIR [more kavot arguments]
set -euo pipefail
build=${1:-build/default}
shift || true
here=$(cd "$(dirname "$0")" && pwd)
data=${XDG_DATA_HOME:-$HOME/.local/share}/Kavot
demo="$data/demo"
mkdir -p "$demo"

if [ ! -s "$demo/demo.mp4" ]; then
  echo "run-demo: making the demo recording (once)..."
  "$here/make-demo-video.sh" "$demo/demo.mp4.part.mp4" 60
  mv "$demo/demo.mp4.part.mp4" "$demo/demo.mp4"
fi
if [ ! -s "$demo/demo.kvpr" ]; then
  "$build/src/cli/kavot-cli" new --video "$demo/demo.mp4" --owner "${USER:-$(id -un)}" \
    --title "Kavot demo" "$demo/demo.kvpr" >/dev/null
fi

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "run-demo: no display found; set DISPLAY, or run it under xvfb-run to try it headless." >&2
  exit 1
fi
echo "run-demo: starting Kavot on $demo/demo.kvpr"
exec "$build/src/app/kavot" "$demo/demo.kvpr" "$@"
