#!/usr/bin/env bash
# Usage: run-demo.sh DEVICE_PROGRAM DEMO_PROGRAM
# Starts the device on a free port, runs the narrated demo against it, stops
# the device, and exits with the demo's status. Every wait is bounded.
set -euo pipefail
device="$1"
demo="$2"

work="$(mktemp -d)"
mkfifo "$work/device.out"
# The device can never outlive a minute, whatever happens to this script.
timeout 60 "$device" --port 0 >"$work/device.out" 2> >(sed -u 's/^/   [device] /' >&2) &
device_pid=$!
exec 3<"$work/device.out"
cleanup() {
    # timeout(1) leads its own process group; if the device has not gone five
    # seconds after SIGTERM (seen only in sanitizer builds, stalled in the
    # leak check at exit), the whole group is killed.
    kill -TERM "$device_pid" 2>/dev/null || true
    for _ in $(seq 50); do
        kill -0 "$device_pid" 2>/dev/null || break
        sleep 0.1
    done
    kill -KILL -- "-$device_pid" 2>/dev/null || true
    wait "$device_pid" 2>/dev/null || true
    exec 3<&-
    rm -rf "$work"
}
trap cleanup EXIT

if ! read -r -t 10 -u 3 line || [[ ! "$line" =~ ^port\ ([0-9]+)$ ]]; then
    echo "run-demo: the device did not report its port" >&2
    exit 1
fi
port="${BASH_REMATCH[1]}"
echo "chanlink-device is listening on port $port"

status=0
timeout 30 "$demo" 127.0.0.1 "$port" || status=$?
exit "$status"
