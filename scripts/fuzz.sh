#!/usr/bin/env bash
# Builds the fuzz targets in fuzz/ for libFuzzer with AddressSanitizer and
# UndefinedBehaviorSanitizer (clang 14) and runs each for a bounded time.
# Any crash, sanitizer report, leak, timeout or broken invariant fails.
#
# Usage: scripts/fuzz.sh [SECONDS_PER_TARGET]   (45 by default)
#
# Each run starts from the committed seeds in fuzz/corpus/<target>/ plus what
# earlier runs found (build/fuzz/corpus/<target>/, not committed). A crash
# input lands in build/fuzz/artifacts/<target>/; docs/RELIABILITY.md says how
# to turn it into a regression test.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-45}"
case "$seconds" in
    '' | *[!0-9]* | 0)
        echo "usage: $0 [SECONDS_PER_TARGET]" >&2
        exit 2
        ;;
esac

scripts/require-packages.sh cmake ninja-build clang-14 libclang-rt-14-dev libssl-dev

build=build/fuzz
jobs="$(nproc 2>/dev/null || echo 2)"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$jobs"

mapfile -t fuzzers < <(find "$build/fuzzers" -maxdepth 1 -type f -name 'chanlink_fuzz_*' \
    -perm -u+x 2>/dev/null | sort)
if [ ${#fuzzers[@]} -eq 0 ]; then
    echo "no fuzz targets were built" >&2
    exit 1
fi

export ASAN_OPTIONS="halt_on_error=1:abort_on_error=1:detect_leaks=1:strict_string_checks=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"

failed=()
for fuzzer in "${fuzzers[@]}"; do
    name="${fuzzer##*/chanlink_fuzz_}"
    seeds="fuzz/corpus/$name"
    corpus="$build/corpus/$name"
    artifacts="$build/artifacts/$name"
    mkdir -p "$corpus" "$artifacts"
    echo "== fuzz $name for ${seconds}s"
    # -timeout: one input taking over 10 s is a hang; the outer timeout
    # bounds the whole run even if libFuzzer itself stops responding.
    if ! timeout --kill-after=10 $((seconds + 120)) "$fuzzer" "$corpus" "$seeds" \
        -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=4096 \
        -artifact_prefix="$artifacts/" -print_final_stats=1 >"$build/$name.log" 2>&1; then
        tail -n 60 "$build/$name.log"
        echo "fuzz $name FAILED; full log: $build/$name.log; input(s):" >&2
        ls "$artifacts" >&2
        failed+=("$name")
        continue
    fi
    grep -E '^stat::(number_of_executed_units|new_units_added|peak_rss_mb)|^Done' \
        "$build/$name.log" || true
    echo "corpus: $(find "$corpus" -type f | wc -l) inputs in $corpus"
done

if [ ${#failed[@]} -gt 0 ]; then
    echo "fuzz targets failed: ${failed[*]}" >&2
    echo "Copy each input from $build/artifacts/<target>/ into fuzz/corpus/<target>/" \
        "to keep it as a regression test (see docs/RELIABILITY.md)." >&2
    exit 1
fi
