#!/usr/bin/env bash
# Usage: require-packages.sh PACKAGE...
# Makes sure the Debian packages are installed: installs the missing ones when
# run as root, otherwise prints the exact apt-get line and fails.
set -euo pipefail

missing=()
for package in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
    echo "Installing missing packages: ${missing[*]}" >&2
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq >/dev/null
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
else
    echo "Missing packages. Install them with:" >&2
    echo "  sudo apt-get install ${missing[*]}" >&2
    exit 1
fi
