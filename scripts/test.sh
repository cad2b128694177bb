#!/usr/bin/env bash
# Builds chanlink and runs its whole test suite.
# Usage: scripts/test.sh [PRESET]   (dev by default; asan, release)
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-dev}"

packages=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libcli11-dev nlohmann-json3-dev tshark)
# The Python module and its tests (the ctest test "python").
packages+=(pybind11-dev python3-pybind11 python3-dev python3-pytest)
# chanlink_tls (certificates made by the openssl command in its tests);
# chanlink-bridge and its integration test with a real broker.
packages+=(libmosquitto-dev libssl-dev openssl mosquitto mosquitto-clients)
[ "$preset" = release ] && packages+=(libbenchmark-dev)
scripts/require-packages.sh "${packages[@]}"

jobs="$(nproc 2>/dev/null || echo 2)"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$jobs"

# The packages above make every optional part buildable, so each one's tests
# must be in the run. One left out (a build directory configured before a
# package was installed, a find_package that failed) would otherwise make
# the run pass without them.
listed="$(ctest --test-dir "build/$preset" -N)"
absent=()
for expected in python tools.bridge 'tools.capture.*' 'tls.*' tools.cli.tls; do
    pattern="${expected//./\\.}"
    pattern="${pattern/\*/.*}"
    grep -Eq "Test +#[0-9]+: ${pattern}\$" <<<"$listed" || absent+=("$expected")
done
if [ ${#absent[@]} -ne 0 ]; then
    echo "test.sh: these tests are not registered in build/$preset although their" \
        "packages are installed: ${absent[*]}" >&2
    echo "test.sh: see why in the output of 'cmake --preset $preset', or start over" \
        "with 'rm -rf build/$preset'" >&2
    exit 1
fi
ctest --preset "$preset" -j "$jobs"
