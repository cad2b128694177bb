#!/usr/bin/env bash
# The library's main job: builds chanlink-device and the demo, starts the
# device on a free port, runs a narrated scenario against it and stops it.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/require-packages.sh cmake ninja-build g++

build=build/demo
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCHANLINK_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)" --target chanlink-device chanlink_demo
device="$(find "$build" -type f -name chanlink-device -perm -u+x | head -n 1)"
exec scripts/run-demo.sh "$device" "$build/examples/chanlink_demo"
