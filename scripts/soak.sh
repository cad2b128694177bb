#!/usr/bin/env bash
# Soak test: a chanlink-device process and CLIENTS clients (chanlink_soak, one
# thread) for SECONDS seconds; every set must be acknowledged, read back and
# seen through the client's subscription, the device must drop no one and
# stop cleanly, and neither side's resident memory may grow by more than
# CHANLINK_SOAK_RSS_LIMIT_KB (2048) after the warm-up.
#
# Usage: scripts/soak.sh [CLIENTS] [SECONDS]     (50 and 60 by default)
# CHANLINK_SOAK_PRESET picks the build (dev). Every wait is bounded.
set -euo pipefail
cd "$(dirname "$0")/.."
clients="${1:-50}" seconds="${2:-60}" per_client=4 first=1000
[[ $clients =~ ^[1-9][0-9]*$ && $seconds =~ ^[1-9][0-9]*$ ]] || {
    echo "usage: $0 [CLIENTS] [SECONDS]" >&2
    exit 2
}
preset="${CHANLINK_SOAK_PRESET:-dev}" build="build/${CHANLINK_SOAK_PRESET:-dev}"
scripts/require-packages.sh cmake ninja-build g++ libgtest-dev libgmock-dev libcli11-dev \
    nlohmann-json3-dev
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)" --target chanlink-device chanlink_soak

# From here on every status is checked where it matters.
set +e
device=$build/tools/chanlink-device/chanlink-device scenario=soak
source tests/tools/harness.sh
for ((i = 0; i < clients * per_client; ++i)); do
    echo "$((first + i)) 4 - rw -"
done >"$work/channels.txt"
start_device --max-clients "$clients" --channels "$work/channels.txt"
timeout -k 10 $((seconds + 60)) "$build/tests/chanlink_soak" "$PORT" "$clients" "$seconds" \
    "$first" "$per_client" "$device_pid" "${CHANLINK_SOAK_RSS_LIMIT_KB:-2048}"
status=$?
# The device must still be there, stop cleanly and have dropped no one.
stop_device TERM
! grep -q dropped "$work/device.err" || fail "the device dropped connections"
exit "$status"
