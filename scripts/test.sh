#!/usr/bin/env bash
# Sets everything up, builds, and runs the whole test suite, then compiles every source for Windows.
#   BRIVON_SANITIZE=1   build into build-asan/ with AddressSanitizer and UndefinedBehaviorSanitizer
#                       and run every suite there instead (leak checks on for suites without windows).
# Under CI (CI=true) the sanitized suites run after the plain ones, and the fuzz targets are also built
# with clang and run for a short while over their corpora.
set -euo pipefail
cd "$(dirname "$0")/.."

run_plain() {
    bash scripts/build.sh
    local build_dir="${BRIVON_BUILD_DIR:-build}"
    ctest --test-dir "$build_dir" --output-on-failure --timeout 300 "$@"
    # Every source compiled for Windows too (syntax only, mingw-w64).
    bash scripts/check-windows.sh "$build_dir"
}

run_sanitized() {
    # Sanitized code runs slower: the suites get more time, one at a time, so that the timing of the
    # end-to-end suites (a bridge's rate limit, reconnection pauses) is not also squeezed by a second
    # suite on the same cores. Benchmarks are left out.
    BRIVON_BUILD_DIR="${BRIVON_SANITIZE_BUILD_DIR:-build-asan}" BRIVON_BUILD_TYPE=Debug \
        BRIVON_CMAKE_ARGS="-DBRIVON_SANITIZE=ON -DBRIVON_BUILD_BENCH=OFF" bash scripts/build.sh
    ctest --test-dir "${BRIVON_SANITIZE_BUILD_DIR:-build-asan}" --output-on-failure --timeout 600 "$@"
}

if [ -n "${BRIVON_SANITIZE:-}" ] && [ "${BRIVON_SANITIZE}" != 0 ]; then
    run_sanitized "$@"
else
    run_plain "$@"
    # CI holds every submission to the sanitizers as well.
    if [ "${CI:-}" = "true" ]; then
        run_sanitized "$@"
    fi
fi

if [ "${CI:-}" = "true" ] || [ -n "${BRIVON_FUZZ_SECONDS:-}" ]; then
    bash scripts/fuzz.sh "${BRIVON_FUZZ_SECONDS:-60}"
fi
