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

# OpenSSL for the target (chanlink_tls) comes from Debian's armhf packages,
# installed beside the build machine's own (multiarch).
if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "Add the armhf architecture first:" >&2
        echo "  sudo dpkg --add-architecture armhf && sudo apt-get update" >&2
        exit 1
    fi
    dpkg --add-architecture armhf
    apt-get update -qq >/dev/null
fi
scripts/require-packages.sh cmake ninja-build g++-arm-linux-gnueabihf qemu-user googletest \
    openssl libssl-dev:armhf

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

echo "== chanlink for arm-linux-gnueabihf"
# The toolchain searches only the target's root; the multiarch OpenSSL is
# named here. Its headers are in the compiler's default search path.
multiarch=/usr/lib/arm-linux-gnueabihf
cmake --preset arm -DOPENSSL_INCLUDE_DIR=/usr/include \
    -DOPENSSL_SSL_LIBRARY=$multiarch/libssl.so -DOPENSSL_CRYPTO_LIBRARY=$multiarch/libcrypto.so \
    >/dev/null
cmake --build --preset arm -j "$jobs"
ctest --preset arm -j "$jobs"
