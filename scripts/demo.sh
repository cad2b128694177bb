#!/usr/bin/env bash
# The library's main job: builds the examples and runs the framing demo.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/require-packages.sh cmake ninja-build g++

build=build/demo
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCHANLINK_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)" --target frame_roundtrip
"$build/examples/frame_roundtrip"
