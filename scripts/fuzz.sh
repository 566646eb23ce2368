#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer, UndefinedBehaviorSanitizer, leak
# detection on) into their own tree and runs each for a while, side by side.
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]      targets: reader, save (default: both; 60 s)
#
# KIV_FUZZ_DIR      where new inputs and findings are kept (default: ~/.cache/kiv-fuzz); never
#                   inside the repository, whose corpora the fuzzers only read
# KIV_FUZZ_BUILD    the build tree (default: build-fuzz beside the sources)
# KIV_FUZZ_RUNS     stop a target after this many inputs instead of at the time limit
#
# Per target it prints the inputs run, inputs/s, coverage, peak memory and the findings, and
# exits non-zero when any target found something. A finding is an input file in
# KIV_FUZZ_DIR/TARGET/findings; the README says how to make it a case of the corpus.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
seconds="${1:-60}"
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(reader save)
case "$seconds" in
'' | *[!0-9]*)
    echo "fuzz.sh: SECONDS must be a whole number, not \"$seconds\"" >&2
    exit 2
    ;;
esac
work="${KIV_FUZZ_DIR:-$HOME/.cache/kiv-fuzz}"
build="${KIV_FUZZ_BUILD:-$root/build-fuzz}"

# binary, checked-in corpus, longest input, and the rss limit in MB for each target: the
# reader's allocation limit is 64 MiB, the save holds a file, its copy and two trees of it.
declare -A binary=([reader]=pelrix_fuzzer [save]=save_fuzzer)
declare -A corpus=([reader]="$root/tests/PelrixDataFile/corpus" [save]="$root/tests/fuzz/save-corpus")
declare -A max_len=([reader]=65536 [save]=16384)
declare -A rss_limit=([reader]=1024 [save]=1536)
for target in "${targets[@]}"; do
    if [ -z "${binary[$target]:-}" ]; then
        echo "fuzz.sh: no fuzz target \"$target\" (there are: reader, save)" >&2
        exit 2
    fi
done

command -v clang++ >/dev/null || {
    echo "fuzz.sh: clang++ is needed (Debian package clang)" >&2
    exit 1
}
"$root/scripts/install-deps.sh"
echo "== building the fuzz targets in $build ==" >&2
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DKIV_BUILD_FUZZER=ON -DKIV_SANITIZE=ON -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link \
    -DKIV_BUILD_TESTS=OFF -DKIV_BUILD_BENCHMARKS=OFF >/dev/null
names=()
for target in "${targets[@]}"; do
    names+=("${binary[$target]}")
done
cmake --build "$build" -j "$(nproc)" --target "${names[@]}" >&2

# Leaks are findings; only the unit library's own, by function name, are not ours.
# A quarantine of 64 MiB rather than 256 keeps freed blocks poisoned for thousands of inputs
# while the fuzzers' memory stays flat instead of climbing towards the rss limit.
export ASAN_OPTIONS="detect_leaks=1:quarantine_size_mb=64:allocator_may_return_null=0"
export LSAN_OPTIONS="suppressions=$root/tests/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"

pids=()
for target in "${targets[@]}"; do
    mkdir -p "$work/$target/corpus" "$work/$target/findings"
    runs=()
    [ -z "${KIV_FUZZ_RUNS:-}" ] || runs=("-runs=$KIV_FUZZ_RUNS")
    echo "== $target: ${KIV_FUZZ_RUNS:+$KIV_FUZZ_RUNS inputs or }$seconds s, new inputs in $work/$target ==" >&2
    (cd "$work/$target" && exec "$build/bin/${binary[$target]}" \
        -max_total_time="$seconds" "${runs[@]}" -max_len="${max_len[$target]}" \
        -rss_limit_mb="${rss_limit[$target]}" -timeout=120 -print_final_stats=1 \
        -artifact_prefix="$work/$target/findings/" \
        "$work/$target/corpus" "${corpus[$target]}" >"$work/$target/log" 2>&1) &
    pids+=($!)
done
status=0
for pid in "${pids[@]}"; do
    wait "$pid" || status=1
    # An interrupted save target leaves its scratch folder (named after its process) behind.
    rm -rf "/dev/shm/kiv-save-fuzz-$pid" "${TMPDIR:-/tmp}/kiv-save-fuzz-$pid"
done

printf '\n%-8s %12s %10s %8s %8s %10s  %s\n' target inputs inputs/s cov features "peak MB" findings
for target in "${targets[@]}"; do
    log="$work/$target/log"
    # The final statistics: stat::number_of_executed_units, stat::average_exec_per_sec and
    # stat::peak_rss_mb; the coverage is on the last status line ("cov: N ft: M").
    final_stat() { awk -v k="stat::$1:" '$1 == k { print $2 }' "$log" | tail -n 1; }
    last="$(grep -E '^#[0-9]+' "$log" | tail -n 1 || true)"
    cov="$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")"
    ft="$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")"
    # A crash, leak, timeout or memory excess is a finding; a unit slower than 10 s but within
    # the timeout is only listed.
    findings="$(find "$work/$target/findings" -type f ! -name 'slow-unit-*' | wc -l)"
    slow="$(find "$work/$target/findings" -type f -name 'slow-unit-*' | wc -l)"
    printf '%-8s %12s %10s %8s %8s %10s  %s\n' "$target" "$(final_stat number_of_executed_units)" \
        "$(final_stat average_exec_per_sec)" "${cov:-?}" "${ft:-?}" "$(final_stat peak_rss_mb)" "$findings"
    if [ "$findings" -gt 0 ]; then
        status=1
        find "$work/$target/findings" -type f ! -name 'slow-unit-*' | sed 's/^/           /'
        grep -m 3 -E 'ERROR|finding|SUMMARY' "$log" | sed 's/^/           /' || true
    fi
    if [ "$slow" -gt 0 ]; then
        echo "           $slow slow inputs (not findings): $work/$target/findings/slow-unit-*"
    fi
done
exit "$status"
