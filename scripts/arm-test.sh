#!/usr/bin/env bash
# Cross-builds chanlink, its examples and its unit tests for 32-bit ARM Linux
# (arm-linux-gnueabihf) and runs the tests under qemu-arm. The packaging test
# is left out: it installs and builds consumers, which says nothing about ARM.
#
# Usage: scripts/arm-test.sh
#
# GoogleTest for the target is built once from Debian's googletest sources
# into build/arm-googletest/prefix, and again only when the sources or the
# cross compiler change.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/require-packages.sh cmake ninja-build g++-arm-linux-gnueabihf qemu-user googletest \
    libcli11-dev nlohmann-json3-dev

jobs="$(nproc 2>/dev/null || echo 2)"
toolchain="$PWD/cmake/toolchains/arm-linux-gnueabihf.cmake"
googletest=build/arm-googletest
stamp="$googletest/prefix/chanlink-stamp"
wanted="googletest $(dpkg-query -W -f='${Version}' googletest),"
wanted+=" $(arm-linux-gnueabihf-g++ -dumpfullversion), $(sha256sum "$toolchain" | cut -c1-16)"

if [ "$(cat "$stamp" 2>/dev/null)" != "$wanted" ]; then
    echo "== GoogleTest for arm-linux-gnueabihf ($wanted)"
    rm -rf "$googletest"
    cmake -S /usr/src/googletest -B "$googletest/build" -G Ninja --toolchain "$toolchain" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$PWD/$googletest/prefix" >/dev/null
    cmake --build "$googletest/build" -j "$jobs" >/dev/null
    cmake --install "$googletest/build" >/dev/null
    echo "$wanted" >"$stamp"
fi

# CLI11 and nlohmann-json (for the tools and their tests) are headers only,
# the same for every architecture, so the build machine's serve. The
# toolchain file keeps the build machine's /usr out of the search, so they
# are reached through a prefix that holds nothing else.
headers=build/arm-headers
rm -rf "$headers"
mkdir -p "$headers/include" "$headers/share/cmake"
ln -s /usr/include/CLI /usr/include/nlohmann "$headers/include/"
ln -s /usr/share/cmake/CLI11 /usr/share/cmake/nlohmann_json "$headers/share/cmake/"

echo "== chanlink for arm-linux-gnueabihf"
cmake --preset arm >/dev/null
cmake --build --preset arm -j "$jobs"
ctest --preset arm -j "$jobs"
