#!/usr/bin/env bash
# Installs what is missing, builds, and starts the demo: the scanner simulator
# streaming to 127.0.0.1:6101 and the viewer showing it. Closing the viewer
# stops the simulator.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
# VX_BUILD_DIR picks another build folder (default: build).
build=${VX_BUILD_DIR:-build}
scripts/build.sh "$build"
bin=$build/bin
"$bin/vxscanner-sim" --host 127.0.0.1 --port 6101 "$@" &
sim=$!
trap 'kill "$sim" 2>/dev/null || true; wait "$sim" 2>/dev/null || true' EXIT
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
    echo "No display: running the viewer on a virtual X server (xvfb-run)." >&2
    xvfb-run -a -s "-screen 0 1280x1024x24" "$bin/vxlindral"
else
    "$bin/vxlindral"
fi
