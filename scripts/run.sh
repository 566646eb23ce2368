#!/usr/bin/env bash
# The main job: install what is missing, build kiv with its file-type modules, and show the
# sample image at a glance and as its whole tree.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/install-deps.sh"
jobs="$(nproc 2>/dev/null || echo 2)"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE="${KIV_BUILD_TYPE:-Release}" >/dev/null
cmake --build "$root/build" -j "$jobs" --target kiv
cd "$root"
build/bin/kiv info samples/topography_128.flt
build/bin/kiv dump samples/topography_128.flt
