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

# chanlink_tls for the target needs Debian's armhf OpenSSL. apt would install
# it beside the build machine's own only at the very same version, which a
# mirror behind the build machine's security updates cannot offer; so the
# armhf packages are downloaded and unpacked into a folder of the build
# instead, which leaves the build machine's packages as they are.
multiarch=usr/lib/arm-linux-gnueabihf
arm_ssl_root="$PWD/build/arm-openssl"
if [ ! -e "$arm_ssl_root/$multiarch/libssl.so.3" ]; then
    rm -rf "$arm_ssl_root"
    mkdir -p "$arm_ssl_root/debs"
    if [ "$(id -u)" -eq 0 ] && ! dpkg --print-foreign-architectures | grep -qx armhf; then
        dpkg --add-architecture armhf
        apt-get update -qq >/dev/null 2>&1 || true
    fi
    if (cd "$arm_ssl_root/debs" && apt-get download -qq libssl-dev:armhf libssl3:armhf \
        >/dev/null 2>&1); then
        for deb in "$arm_ssl_root"/debs/*.deb; do dpkg -x "$deb" "$arm_ssl_root"; done
    fi
fi
if [ ! -e "$arm_ssl_root/$multiarch/libssl.so.3" ]; then
    echo "arm-test: Debian's armhf OpenSSL could not be downloaded, and chanlink_tls is" \
        "part of the ARM run (as root: dpkg --add-architecture armhf; apt-get update;" \
        "apt-get download libssl-dev:armhf libssl3:armhf tells why)" >&2
    exit 1
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
# OpenSSL's headers: the common ones and the target's own configuration
# headers in one folder. Its libraries are named outright; their folder ends
# up in the test programs' run path, where qemu-arm finds it.
mkdir -p "$headers/include/openssl"
ln -sf "$arm_ssl_root"/usr/include/openssl/* \
    "$arm_ssl_root"/usr/include/arm-linux-gnueabihf/openssl/* "$headers/include/openssl/"

echo "== chanlink for arm-linux-gnueabihf"
cmake --preset arm -DOPENSSL_INCLUDE_DIR="$PWD/$headers/include" \
    -DOPENSSL_SSL_LIBRARY="$arm_ssl_root/$multiarch/libssl.so" \
    -DOPENSSL_CRYPTO_LIBRARY="$arm_ssl_root/$multiarch/libcrypto.so" >/dev/null
cmake --build --preset arm -j "$jobs"
ctest --preset arm -j "$jobs"
