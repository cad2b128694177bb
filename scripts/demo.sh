#!/usr/bin/env bash
# The library's main job: builds chanlink, its tools and examples (a release
# build without tests in build/demo, which `cmake --install build/demo`
# installs), starts chanlink-device on a free port, runs a narrated scenario
# against it and stops it.
set -euo pipefail
cd "$(dirname "$0")/.."

# CLI11 and nlohmann-json are for the tools only; the library needs neither.
scripts/require-packages.sh cmake ninja-build g++ libcli11-dev nlohmann-json3-dev

build=build/demo
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCHANLINK_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)"
exec scripts/run-demo.sh "$build/tools/chanlink-device/chanlink-device" "$build/examples/chanlink_demo"
