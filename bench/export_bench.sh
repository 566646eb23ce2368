#!/usr/bin/env bash
# Times kiv export against cp of the same files, in the same run, and prints each ratio with its
# target. Usage: bench/export_bench.sh BUILD_DIR (a Release tree with kiv and
# kiv_bench_export_files built). A missed target is reported, not an error.
set -euo pipefail
build_dir="$1"
kiv="$build_dir/bin/kiv"
rounds="${KIV_EXPORT_BENCH_ROUNDS:-5}"
small_count="${KIV_EXPORT_BENCH_FILES:-2000}"
work="$(mktemp -d "${TMPDIR:-/tmp}/kiv-export-bench.XXXXXX")"
trap 'rm -rf "$work"' EXIT

mkdir -p "$work/in" "$work/small"
"$build_dir/bin/kiv_bench_export_files" "$work/in" large
"$build_dir/bin/kiv_bench_export_files" "$work/small" small "$small_count"
# The inputs just written are still being written back; timed during that, whichever side runs
# first pays for it.
sync

now() { date +%s.%N; }
calc() { awk "BEGIN { print $1 }"; }

# Seconds of one run of the command, with its outputs removed beforehand so that each round
# writes new files as the first did.
time_once() {
    local out="$1"
    shift
    rm -rf "$out"
    mkdir -p "$out"
    local start
    start="$(now)"
    "$@" >/dev/null
    awk -v end="$(now)" -v start="$start" 'BEGIN { print end - start }'
}

median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# Runs baseline and candidate alternately for the rounds and prints the medians.
paired() {
    local baseline="$1" candidate="$2"
    local base_times="" cand_times=""
    for _ in $(seq "$rounds"); do
        base_times+="$(eval "$baseline")"$'\n'
        cand_times+="$(eval "$candidate")"$'\n'
    done
    printf '%s %s\n' "$(printf '%s' "$base_times" | median)" "$(printf '%s' "$cand_times" | median)"
}

report() {
    local name="$1" ratio="$2" target="$3" met="$4"
    printf '%-44s ratio %6.2f  target %-10s %s\n' "$name" "$ratio" "$target" \
        "$([ "$met" = 1 ] && echo met || echo missed)"
}

echo "== kiv export against cp (medians of $rounds rounds) =="
for format in gsf npy tiff; do
    read -r cp_s kiv_s < <(paired \
        "time_once '$work/out' cp '$work/in/large.flt' '$work/out/large.flt'" \
        "time_once '$work/out' '$kiv' export '$work/in/large.flt' --to $format -d '$work/out'")
    ratio="$(calc "$kiv_s / $cp_s")"
    report "4096 x 4096 image to $format (time / cp)" "$ratio" "<= 2" \
        "$(calc "($ratio <= 2)")"
    printf '    cp %.3f s, kiv export %.3f s\n' "$cp_s" "$kiv_s"
done

# What any reader pays that cp does not: cp copies inside the kernel, a reader takes the samples
# into fresh memory of its own, and on small pages each page of that memory faults on first use.
read -r _ dd_s < <(paired "echo 0" \
    "time_once '$work/out' dd if='$work/in/large.flt' of=/dev/null bs=80M status=none")
printf '    for scale: one read of the 4096 x 4096 file into fresh memory (dd bs=80M) %.3f s\n' "$dd_s"

read -r cp_s kiv_s < <(paired \
    "time_once '$work/out' cp -t '$work/out' '$work/small'/*.flt" \
    "time_once '$work/out' '$kiv' export '$work/small'/*.flt --to npy -j 2 -d '$work/out'")
ratio="$(calc "$cp_s / $kiv_s")"
report "$small_count files of 256 x 256 to npy, -j 2 (files/s / cp)" "$ratio" ">= 0.5" \
    "$(calc "($ratio >= 0.5)")"
printf '    cp %.0f files/s, kiv export %.0f files/s\n' "$(calc "$small_count / $cp_s")" \
    "$(calc "$small_count / $kiv_s")"
