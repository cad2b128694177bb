#!/usr/bin/env bash
# Runs every unit test program (chanlink_*_tests, the fuzz corpus replays
# included) once under valgrind's memcheck, in a Debug build without
# sanitizers. Any memory error, any definitely or indirectly lost block, or a
# failing test fails the run.
#
# Usage: scripts/valgrind-test.sh [PRESET]
#   PRESET: valgrind (default, build/valgrind) or another preset without
#   sanitizers, e.g. dev, to reuse a build that is already there (CI does).
#
# The Python module is built with the rest but not run here: valgrind would
# watch the interpreter, not the library (the asan suite runs its tests).
#
# Each program runs whole, not test by test as `ctest -T memcheck` would, so
# valgrind starts once per program instead of once per test case.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/require-packages.sh cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev valgrind \
    libcli11-dev nlohmann-json3-dev pybind11-dev python3-pybind11 python3-dev \
    libmosquitto-dev libssl-dev openssl

preset="${1:-valgrind}"
build="build/$preset"
jobs="$(nproc 2>/dev/null || echo 2)"
cmake --preset "$preset" >/dev/null
if grep -q '^CMAKE_CXX_FLAGS:.*-fsanitize' "$build/CMakeCache.txt"; then
    echo "preset $preset uses sanitizers, which do not run under valgrind" >&2
    exit 2
fi
cmake --build --preset "$preset" -j "$jobs"

mapfile -t programs < <(find "$build" -type f -name 'chanlink_*_tests' -perm -u+x | sort)
if [ ${#programs[@]} -eq 0 ]; then
    echo "no test programs found in $build" >&2
    exit 1
fi

logs="$build/memcheck"
rm -rf "$logs"
mkdir -p "$logs"

# Ten minutes per program bounds a hang; the whole suite needs far less.
run_one() {
    local program="$1" log="$logs/${1##*/}.log" start=$SECONDS
    if timeout --kill-after=10 600 valgrind --tool=memcheck --error-exitcode=1 \
        --leak-check=full --errors-for-leak-kinds=definite,indirect \
        --show-leak-kinds=definite,indirect --num-callers=30 \
        "$program" >"$log" 2>&1; then
        echo "ok     ${program##*/} ($((SECONDS - start)) s)"
    else
        echo "FAILED ${program##*/} ($((SECONDS - start)) s), log: $log"
        return 1
    fi
}

# As many programs at a time as there are cores.
failed=0
running=0
for program in "${programs[@]}"; do
    if [ "$running" -ge "$jobs" ]; then
        wait -n || failed=1
        running=$((running - 1))
    fi
    run_one "$program" &
    running=$((running + 1))
done
while [ "$running" -gt 0 ]; do
    wait -n || failed=1
    running=$((running - 1))
done

if [ "$failed" -ne 0 ]; then
    for log in "$logs"/*.log; do
        if grep -qE 'ERROR SUMMARY: [1-9]|FAILED|definitely lost: [1-9]|indirectly lost: [1-9]' "$log"; then
            echo "== $log"
            grep -E '^==[0-9]+==|\[  FAILED  \]' "$log" | tail -n 80
        fi
    done
    echo "valgrind found errors or leaks" >&2
    exit 1
fi
echo "valgrind: ${#programs[@]} test programs, no errors, no leaks"
