#!/usr/bin/env bash
# Sets everything up, builds, and runs the whole test suite. Under CI (CI=true) the fuzz targets
# are also built with clang and run for a short while over their corpora.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/build.sh
BUILD_DIR="${BRIVON_BUILD_DIR:-build}"
ctest --test-dir "$BUILD_DIR" --output-on-failure --timeout 300 "$@"
# Every source compiled for Windows too (syntax only, mingw-w64).
bash scripts/check-windows.sh "$BUILD_DIR"

if [ "${CI:-}" = "true" ] || [ -n "${BRIVON_FUZZ_SECONDS:-}" ]; then
    bash scripts/fuzz.sh "${BRIVON_FUZZ_SECONDS:-60}"
fi
