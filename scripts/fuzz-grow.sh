#!/usr/bin/env bash
# Grows the committed fuzz corpora: runs every fuzz target (or the ones named) for the given number
# of seconds over its corpus, merges what it found into fuzz/corpus/<name> in minimized form
# (libFuzzer's -merge=1 keeps only inputs that add coverage), and reports per target the executions,
# the coverage before and after, and the corpus size.
#   bash scripts/fuzz-grow.sh <seconds per target> [target names...]
# Commit fuzz/corpus afterwards. A crash stops the script with the input under build-fuzz/artifacts.
set -euo pipefail
cd "$(dirname "$0")/.."

SECONDS_PER_TARGET="${1:?usage: fuzz-grow.sh <seconds per target> [targets...]}"
shift
bash scripts/setup.sh
FUZZ_DIR="${BRIVON_FUZZ_BUILD_DIR:-build-fuzz}"
CXX=clang++-14 cmake -S . -B "$FUZZ_DIR" -DBRIVON_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$FUZZ_DIR" --parallel "$(nproc)"

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    for corpus in fuzz/corpus/*/; do targets+=("$(basename "$corpus")"); done
fi

# The last "cov:" figure libFuzzer printed in a log.
coverage() { grep -o 'cov: [0-9]*' "$1" | tail -1 | grep -o '[0-9]*' || echo 0; }

printf '%-16s %12s %10s %10s %8s %8s\n' target executions cov-before cov-after files bytes
for name in "${targets[@]}"; do
    target="$FUZZ_DIR/bin/fuzz_$name"
    corpus="fuzz/corpus/$name"
    [ -x "$target" ] || { echo "error: no fuzz target fuzz_$name" >&2; exit 1; }
    mkdir -p "$corpus" "$FUZZ_DIR/artifacts"
    work="$FUZZ_DIR/grow/$name"
    rm -rf "$work" "$work.merged"
    mkdir -p "$work" "$work.merged"
    export QT_QPA_PLATFORM=offscreen
    common=(-max_len=65536 -timeout=10 -rss_limit_mb=2048 -artifact_prefix="$FUZZ_DIR/artifacts/$name-")

    # Coverage of the committed corpus alone, then the run, which writes new inputs into $work.
    "$target" "${common[@]}" -runs=0 "$corpus" >"$FUZZ_DIR/grow-$name-before.log" 2>&1
    "$target" "${common[@]}" -max_total_time="$SECONDS_PER_TARGET" -print_final_stats=1 \
        "$work" "$corpus" >"$FUZZ_DIR/grow-$name.log" 2>&1 || { tail -50 "$FUZZ_DIR/grow-$name.log"; exit 1; }
    executions=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$FUZZ_DIR/grow-$name.log" | grep -o '[0-9]*$' || echo 0)

    # Minimized union of the old corpus and the new finds, named by content hash as libFuzzer does.
    "$target" "${common[@]}" -merge=1 "$work.merged" "$corpus" "$work" >"$FUZZ_DIR/grow-$name-merge.log" 2>&1
    rm -rf "${corpus:?}"/*
    cp "$work.merged"/* "$corpus"/
    "$target" "${common[@]}" -runs=0 "$corpus" >"$FUZZ_DIR/grow-$name-after.log" 2>&1
    printf '%-16s %12s %10s %10s %8s %8s\n' "$name" "$executions" \
        "$(coverage "$FUZZ_DIR/grow-$name-before.log")" "$(coverage "$FUZZ_DIR/grow-$name-after.log")" \
        "$(find "$corpus" -type f | wc -l)" "$(du -sb "$corpus" | cut -f1)"
done
