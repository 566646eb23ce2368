#!/usr/bin/env bash
# Configures and builds one tree. Usage: scripts/build.sh BUILD_DIR [extra cmake args...]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="$1"
shift
jobs="$(nproc 2>/dev/null || echo 2)"
launcher=()
# Rebuilds of unchanged sources come from the compiler cache when one is installed.
if command -v ccache >/dev/null 2>&1; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi
cmake -S "$root" -B "$build_dir" -DCMAKE_BUILD_TYPE="${KIV_BUILD_TYPE:-Release}" "${launcher[@]}" "$@" >/dev/null
cmake --build "$build_dir" -j "$jobs"
