#!/usr/bin/env bash
# Builds a Release tree and runs the Pelrix benchmarks and the peak-memory check, printing
# each ratio and MB/s against its target. Usage: scripts/bench.sh [BUILD_DIR]
# (default: build). Extra Google Benchmark flags can be given in KIV_BENCH_ARGS, for example
# KIV_BENCH_ARGS=--benchmark_filter=Force. Exits non-zero when a benchmark fails or the
# peak memory exceeds its limit; a missed speed target is only reported.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${1:-$root/build}"

KIV_BUILD_TYPE=Release "$root/scripts/build.sh" "$build_dir" -DKIV_BUILD_BENCHMARKS=ON

status=0
echo "== benchmarks (reading and saving Pelrix files) =="
# shellcheck disable=SC2086 # the extra flags are meant to split into words
"$build_dir/bin/kiv_bench_pelrix" ${KIV_BENCH_ARGS:-} || status=1

echo
echo "== peak memory of opening an image =="
"$build_dir/bin/kiv_peak_memory" || status=1

# ---- Python module (kiv.open(p).image and the Dask batch example) ----
echo
echo "== Python module: image read and batch conversion =="
PYTHONPATH="$build_dir/python" /usr/bin/python3 "$root/bench/python_bench.py" || status=1
# ---- end of the Python module section ----
exit "$status"
