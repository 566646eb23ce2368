#!/usr/bin/env bash
# Configures and builds one tree. Usage: scripts/build.sh BUILD_DIR [extra cmake args...]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="$1"
shift
jobs="$(nproc 2>/dev/null || echo 2)"
cmake -S "$root" -B "$build_dir" -DCMAKE_BUILD_TYPE="${KIV_BUILD_TYPE:-Release}" "$@" >/dev/null
cmake --build "$build_dir" -j "$jobs"
