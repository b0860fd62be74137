#!/usr/bin/env bash
# Builds the libFuzzer targets with clang into build-fuzz/ and runs each for the given number of
# seconds (default 60) over a copy of its committed corpus. Fails when a fuzzer finds a crash.
set -euo pipefail
cd "$(dirname "$0")/.."

SECONDS_PER_TARGET="${1:-60}"
bash scripts/setup.sh
FUZZ_DIR="${BRIVON_FUZZ_BUILD_DIR:-build-fuzz}"
CXX=clang++-14 cmake -S . -B "$FUZZ_DIR" -DBRIVON_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$FUZZ_DIR" --parallel "$(nproc)"

for corpus in fuzz/corpus/*/; do
    name="$(basename "$corpus")"
    target="$FUZZ_DIR/bin/fuzz_$name"
    [ -x "$target" ] || { echo "error: no fuzz target for corpus $name" >&2; exit 1; }
    work="$FUZZ_DIR/corpus-work/$name"
    mkdir -p "$work" "$FUZZ_DIR/artifacts"
    cp -r "$corpus"/. "$work"/
    echo "Fuzzing $name for ${SECONDS_PER_TARGET}s"
    QT_QPA_PLATFORM=offscreen "$target" -max_total_time="$SECONDS_PER_TARGET" -max_len=65536 -timeout=10 \
        -rss_limit_mb=2048 -artifact_prefix="$FUZZ_DIR/artifacts/$name-" -print_final_stats=1 "$work" \
        2>"$FUZZ_DIR/fuzz-$name.log" || { tail -50 "$FUZZ_DIR/fuzz-$name.log"; exit 1; }
    grep -E 'stat::number_of_executed_units|Done' "$FUZZ_DIR/fuzz-$name.log" || true
done
