#!/usr/bin/env bash
# Sets everything up and builds the program, its plug-ins, tools and tests into build/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
BUILD_DIR="${BRIVON_BUILD_DIR:-build}"
# Let ccache share results between checkouts in different folders.
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$PWD}" CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-1}"
# BRIVON_CMAKE_ARGS: further configure options, such as -DBRIVON_SANITIZE=ON.
# shellcheck disable=SC2086
cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE="${BRIVON_BUILD_TYPE:-RelWithDebInfo}" ${BRIVON_CMAKE_ARGS:-} >/dev/null
cmake --build "$BUILD_DIR" --parallel "$(nproc)"
