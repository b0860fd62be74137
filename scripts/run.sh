#!/usr/bin/env bash
# Sets everything up, builds, and starts the program.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/build.sh
BUILD_DIR="${BRIVON_BUILD_DIR:-build}"
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ] && [ -z "${QT_QPA_PLATFORM:-}" ]; then
    echo "No display found: starting under the offscreen platform (nothing will appear on screen)."
    export QT_QPA_PLATFORM=offscreen
fi
exec "$BUILD_DIR/bin/beamcrafter" "$@"
