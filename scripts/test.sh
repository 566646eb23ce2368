#!/usr/bin/env bash
# Install what is missing, then build and run every test twice: a normal build and one
# with AddressSanitizer and UndefinedBehaviorSanitizer that stops at the first report.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/install-deps.sh"
jobs="$(nproc 2>/dev/null || echo 2)"

echo "== normal build =="
"$root/scripts/build.sh" "$root/build"
ctest --test-dir "$root/build" --output-on-failure -j "$jobs"

echo "== sanitizer build (address, undefined) =="
KIV_BUILD_TYPE=Debug "$root/scripts/build.sh" "$root/build-sanitize" -DKIV_SANITIZE=ON -DKIV_BUILD_BENCHMARKS=OFF
export ASAN_OPTIONS="halt_on_error=1:abort_on_error=1:detect_leaks=1"
# Leak detection stays on; only the leaks of other libraries listed there, by name, are let pass.
export LSAN_OPTIONS="suppressions=$root/tests/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
ctest --test-dir "$root/build-sanitize" --output-on-failure -j "$jobs"
