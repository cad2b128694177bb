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
ctest --preset "$preset" -j "$jobs"
