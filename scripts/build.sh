#!/usr/bin/env bash
# Configures and builds one variant: scripts/build.sh <dir> [cmake options...]
# With VX_TARGET set, only that target and what it needs are built.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=$1; shift
launcher=()
if command -v ccache >/dev/null 2>&1; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi
cmake -S . -B "$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null
targets=()
if [ -n "${VX_TARGET:-}" ]; then
    targets=(--target "$VX_TARGET")
fi
cmake --build "$dir" -j "$(nproc)" "${targets[@]}"
