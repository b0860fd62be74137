#!/usr/bin/env bash
# Sets everything up and builds the program, its plug-ins, tools and tests into build/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
BUILD_DIR="${BRIVON_BUILD_DIR:-build}"
# Let ccache share results between checkouts in different folders.
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$PWD}" CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-1}"
cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE="${BRIVON_BUILD_TYPE:-RelWithDebInfo}" >/dev/null
cmake --build "$BUILD_DIR" --parallel "$(nproc)"
