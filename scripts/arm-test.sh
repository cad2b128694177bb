#!/usr/bin/env bash
# Cross-builds chanlink, its examples and its unit tests for 32-bit ARM Linux
# (arm-linux-gnueabihf), chanlink_tls included, and runs the tests under
# qemu-arm. The packaging test is left out: it installs and builds
# consumers, which says nothing about ARM.
#
# Usage: scripts/arm-test.sh
#
# GoogleTest for the target is built once from Debian's googletest sources
# into build/arm-googletest/prefix, and again only when the sources or the
# cross compiler change.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/require-packages.sh cmake ninja-build g++-arm-linux-gnueabihf qemu-user googletest \
    libcli11-dev nlohmann-json3-dev openssl

# chanlink_tls for the target needs Debian's armhf OpenSSL, installed beside
# the build machine's own (multiarch); apt allows that only when both are of
# the same version, so a mirror behind the build machine's security updates
# leaves TLS out of the ARM build, with a note.
multiarch=/usr/lib/arm-linux-gnueabihf
arm_openssl=()
installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }
if ! installed libssl-dev:armhf && [ "$(id -u)" -eq 0 ]; then
    added=no
    if ! dpkg --print-foreign-architectures | grep -qx armhf; then
        dpkg --add-architecture armhf
        added=yes
    fi
    apt-get update -qq >/dev/null 2>&1 || true
    if ! DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
        libssl-dev:armhf >/dev/null 2>&1 && [ "$added" = yes ]; then
        dpkg --remove-architecture armhf 2>/dev/null || true
    fi
fi
if ! installed libssl-dev:armhf; then
    echo "== chanlink_tls left out: libssl-dev:armhf is not installed and cannot be installed" \
        "beside libssl-dev $(dpkg-query -W -f='${Version}' libssl-dev 2>/dev/null)" \
        "(sudo apt-get install libssl-dev:armhf tells why)" >&2
fi

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
# OpenSSL's headers the same way: the common ones and the target's own
# configuration headers in one folder. Its libraries are named outright.
if installed libssl-dev:armhf; then
    mkdir -p "$headers/include/openssl"
    ln -sf /usr/include/openssl/* /usr/include/arm-linux-gnueabihf/openssl/* \
        "$headers/include/openssl/"
    arm_openssl=(-DOPENSSL_INCLUDE_DIR="$PWD/$headers/include"
        -DOPENSSL_SSL_LIBRARY=$multiarch/libssl.so -DOPENSSL_CRYPTO_LIBRARY=$multiarch/libcrypto.so)
fi

echo "== chanlink for arm-linux-gnueabihf"
cmake --preset arm "${arm_openssl[@]}" >/dev/null
cmake --build --preset arm -j "$jobs"
ctest --preset arm -j "$jobs"
