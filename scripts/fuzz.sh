#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each for SECONDS (default 600), all
# at once, from the seeds in tests/fuzz/seeds (seeds-capture for the capture
# reader) plus what earlier runs found (build-fuzz/tests/fuzz/corpus_*). Inputs that crash land
# in build-fuzz/artifacts/. Prints each target's executions and findings.
#   scripts/fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-600}
scripts/install-deps.sh
CC=clang CXX=clang++ scripts/build.sh build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVX_WITH_QT=ON -DVX_WITH_GUI=OFF -DVX_FUZZ=ON -DVX_BUILD_BENCH=OFF
mkdir -p build-fuzz/artifacts
pids=()
targets=(fuzz_receive fuzz_decode fuzz_capture)
for target in "${targets[@]}"; do
    corpus=build-fuzz/tests/fuzz/corpus_$target
    seeds=tests/fuzz/seeds
    [ "$target" = fuzz_capture ] && seeds=tests/fuzz/seeds-capture
    mkdir -p "$corpus"
    build-fuzz/bin/$target -max_total_time="$seconds" -max_len=70000 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix=build-fuzz/artifacts/$target- \
        "$corpus" "$seeds" >"build-fuzz/$target.log" 2>&1 &
    pids+=($!)
done
status=0
for pid in "${pids[@]}"; do
    wait "$pid" || status=1
done
for target in "${targets[@]}"; do
    echo "== $target"
    grep -E '^stat::(number_of_executed_units|new_units_added|peak_rss_mb)|ERROR|SUMMARY' \
        "build-fuzz/$target.log" || true
done
ls build-fuzz/artifacts
exit $status
