#!/usr/bin/env bash
# Soak test: a chanlink-device process and CLIENTS clients (chanlink_soak,
# one process, one thread) for SECONDS seconds. Each client sets its own
# read-write channels and reads them back; every set must be acknowledged,
# every read-back equal what was set, every value come back through the
# client's subscription, and the resident memory of the device and of the
# clients stay flat (see tests/soak/main.cpp for the limit).
#
# Usage: scripts/soak.sh [CLIENTS] [SECONDS]     (50 and 60 by default)
# Environment: CHANLINK_SOAK_PRESET (dev by default; the build to use, built
# if needed), CHANLINK_SOAK_CHANNELS (channels per client, 4),
# CHANLINK_SOAK_RSS_LIMIT_KB (allowed growth, 2048).
#
# Every wait is bounded: the device's port line, the clients (SECONDS + 60 s)
# and the device's stop.
set -euo pipefail
cd "$(dirname "$0")/.."
clients="${1:-50}"
seconds="${2:-60}"
for number in "$clients" "$seconds"; do
    case "$number" in
        '' | *[!0-9]* | 0)
            echo "usage: $0 [CLIENTS] [SECONDS]" >&2
            exit 2
            ;;
    esac
done
preset="${CHANLINK_SOAK_PRESET:-dev}"
per_client="${CHANLINK_SOAK_CHANNELS:-4}"
rss_limit="${CHANLINK_SOAK_RSS_LIMIT_KB:-2048}"
first_channel=1000

scripts/require-packages.sh cmake ninja-build g++ libgtest-dev libgmock-dev libcli11-dev \
    nlohmann-json3-dev
build="build/$preset"
jobs="$(nproc 2>/dev/null || echo 2)"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$jobs" --target chanlink-device chanlink_soak
device="$build/tools/chanlink-device/chanlink-device"
soak="$build/tests/chanlink_soak"

work="$build/soak"
rm -rf "$work"
mkdir -p "$work"
device_pid=
cleanup() {
    if [ -n "$device_pid" ]; then
        kill -KILL "$device_pid" 2>/dev/null || true
    fi
}
trap cleanup EXIT

# Each client's own channels: 4 bytes, read-write, no live behaviour.
{
    echo "# id  size  initial  access  live"
    for ((i = 0; i < clients * per_client; ++i)); do
        echo "$((first_channel + i))  4  -  rw  -"
    done
} >"$work/channels.txt"

mkfifo "$work/out"
"$device" --port 0 --host 127.0.0.1 --max-clients "$clients" --channels "$work/channels.txt" \
    >"$work/out" 2>"$work/device.log" &
device_pid=$!
exec {out}<>"$work/out" # read-write: opening never blocks
if ! read -r -t 10 -u "$out" line || [[ ! $line =~ ^port\ ([0-9]+)$ ]]; then
    echo "soak: the device did not start; its log:" >&2
    cat "$work/device.log" >&2
    exit 1
fi
port="${BASH_REMATCH[1]}"

status=0
timeout --kill-after=10 $((seconds + 60)) "$soak" --port "$port" --clients "$clients" \
    --seconds "$seconds" --channels-per-client "$per_client" --first-channel "$first_channel" \
    --device-pid "$device_pid" --rss-limit-kb "$rss_limit" || status=$?

# The device must still be there, and stop cleanly.
if ! kill -TERM "$device_pid" 2>/dev/null; then
    echo "soak: FAILED: the device is gone; its log ends:" >&2
    tail -n 20 "$work/device.log" >&2
    exit 1
fi
deadline=$((SECONDS + 10))
while kill -0 "$device_pid" 2>/dev/null && [ "$SECONDS" -lt "$deadline" ]; do
    sleep 0.1
done
device_status=0
wait "$device_pid" || device_status=$?
device_pid=
if [ "$device_status" -ne 0 ]; then
    echo "soak: FAILED: the device ended with status $device_status" >&2
    status=1
fi
dropped=$(grep -c 'dropped' "$work/device.log" || true)
if [ "$dropped" -ne 0 ]; then
    echo "soak: FAILED: the device dropped $dropped connection(s); see $work/device.log" >&2
    status=1
fi
exit "$status"
