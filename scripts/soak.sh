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

work="$build/soak"
rm -rf "$work" && mkdir -p "$work"
for ((i = 0; i < clients * per_client; ++i)); do
    echo "$((first + i)) 4 - rw -"
done >"$work/channels.txt"
mkfifo "$work/out"
"$build/tools/chanlink-device/chanlink-device" --port 0 --host 127.0.0.1 \
    --max-clients "$clients" --channels "$work/channels.txt" >"$work/out" 2>"$work/device.log" &
device=$!
trap 'kill -KILL $device 2>/dev/null || true' EXIT
exec {out}<>"$work/out"
if ! read -r -t 10 -u "$out" line || [[ ! $line =~ ^port\ ([0-9]+)$ ]]; then
    echo "soak: the device did not start:" >&2
    cat "$work/device.log" >&2
    exit 1
fi

status=0
timeout -k 10 $((seconds + 60)) "$build/tests/chanlink_soak" "${BASH_REMATCH[1]}" "$clients" \
    "$seconds" "$first" "$per_client" "$device" "${CHANLINK_SOAK_RSS_LIMIT_KB:-2048}" || status=1
# The device must still be there, have dropped no one, and stop cleanly.
kill -TERM "$device" && timeout 10 tail --pid="$device" -f /dev/null && wait "$device" || {
    echo "soak: FAILED: the device died or did not stop cleanly; its log ends:" >&2
    tail -n 20 "$work/device.log" >&2
    status=1
}
if grep -q dropped "$work/device.log"; then
    echo "soak: FAILED: the device dropped connections; see $work/device.log" >&2
    status=1
fi
exit "$status"
