#!/usr/bin/env bash
# chanlink-bridge end to end, run by hand (not in CI): a chanlink-device with
# 50 read-write channels, a mosquitto broker, the bridge between them, and
# chanlink_bridge_load setting channels (one connection per channel, each
# set carrying its time) and subscribing to what the bridge publishes.
#
#   bench/bridge.sh [SECONDS]     (10 s per measurement by default)
#
# Prints updates per second and latency (set to subscriber: median, p99) with
# 1 device and with 50 devices, the broker alone (mosquitto_pub -l to
# mosquitto_sub, the same payload size) for comparison, and the bridge's
# on-CPU time while its 50 devices are idle. docs/PERFORMANCE.md has figures.
# Every wait is on a condition, with a deadline.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-10}

scripts/require-packages.sh cmake ninja-build g++ pkg-config libbenchmark-dev libgtest-dev \
    libgmock-dev libmosquitto-dev libcli11-dev nlohmann-json3-dev libssl-dev mosquitto \
    mosquitto-clients python3
cmake --preset release >/dev/null
cmake --build --preset release -j2 --target chanlink-bridge chanlink-device chanlink_bridge_load \
    >/dev/null
build=build/release
bridge=$build/tools/chanlink-bridge/chanlink-bridge
load=$build/bench/chanlink_bridge_load

work=$(mktemp -d)
pids=()
trap 'kill "${pids[@]}" 2>/dev/null || true; rm -rf "$work"' EXIT
free_port() {
    python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}
# until_true SECONDS WHAT COMMAND...: runs COMMAND until it succeeds.
until_true() {
    local deadline=$((SECONDS + $1)) what=$2
    shift 2
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] || { echo "bench/bridge.sh: $what" >&2; exit 1; }
        sleep 0.05
    done
}

broker_port=$(free_port)
cat >"$work/mosquitto.conf" <<CONF
listener $broker_port 127.0.0.1
allow_anonymous true
persistence false
log_type error
log_type subscribe
log_dest stdout
max_queued_messages 0
max_inflight_messages 0
CONF
PATH=/usr/sbin:$PATH stdbuf -oL mosquitto -c "$work/mosquitto.conf" >"$work/mosquitto.log" &
pids+=($!)

for id in $(seq 1 50); do echo "$id 8 - rw -"; done >"$work/channels"
exec {device_out}< <(exec "$build/tools/chanlink-device/chanlink-device" --port 0 \
    --host 127.0.0.1 --max-clients 200 --channels "$work/channels" 2>/dev/null)
pids+=($!)
read -r -t 10 -u "$device_out" line
device_port=${line#port }
# subscribed TOPIC: the broker has logged a subscription to TOPIC.
subscribed() { grep -q " $1\$" "$work/mosquitto.log" 2>/dev/null; }
broker_up() { timeout 3 mosquitto_sub -h 127.0.0.1 -p "$broker_port" -t probe -E -W 1 2>/dev/null; }
until_true 10 "the broker did not start" broker_up

# config FILE DEVICES: DEVICES entries sharing channels 1..50 between them.
config() {
    python3 - "$1" "$2" "$device_port" "$broker_port" <<'PY'
import json, sys
path, devices, device_port, broker_port = sys.argv[1], int(sys.argv[2]), sys.argv[3], int(sys.argv[4])
per = 50 // devices
json.dump({"broker": {"host": "127.0.0.1", "port": broker_port, "topicPrefix": "bench",
                      "clientId": "bench"},
           "devices": [{"name": f"dev{d + 1}", "host": "127.0.0.1", "port": device_port,
                        "channels": list(range(d * per + 1, (d + 1) * per + 1))}
                       for d in range(devices)]}, open(path, "w"))
PY
}

# ready DEVICES: the bridge is connected to the broker and every device is online.
ready() {
    grep -q "connected to broker" "$work/bridge.err" 2>/dev/null &&
        [ "$(grep -c ': online' "$work/bridge.err")" -ge "$1" ]
}
# with_bridge DEVICES COMMAND...: runs COMMAND while a bridge serves DEVICES
# entries; BRIDGE_PID is the bridge's.
with_bridge() {
    local devices=$1
    config "$work/bridge.json" "$devices"
    shift
    "$bridge" --config "$work/bridge.json" 2>"$work/bridge.err" &
    BRIDGE_PID=$!
    until_true 30 "the bridge did not get ready" ready "$devices"
    "$@"
    kill -TERM "$BRIDGE_PID"
    wait "$BRIDGE_PID"  # the bridge stops within 3 s
}

# load_with_cpu CHANNELS RATE: the load, then the bridge's on-CPU time per update.
load_with_cpu() {
    local run0 run1 out
    read -r run0 _ <"/proc/$BRIDGE_PID/schedstat"
    out=$(timeout $((seconds + 60)) "$load" "$device_port" "$broker_port" "$1" "$2" "$seconds")
    read -r run1 _ <"/proc/$BRIDGE_PID/schedstat"
    echo "$out" | awk -v ns=$((run1 - run0)) '{
        printf "%s, bridge CPU %.1f us/update\n", $0, ns / 1e3 / ($4 > 0 ? $4 : 1) }'
}

measure() {  # measure LABEL DEVICES CHANNELS RATE
    printf '%-44s ' "$1"
    with_bridge "$2" load_with_cpu "$3" "$4"
}

# published COUNT: the broker holds COUNT retained values of bench/dev* channels.
published() {
    [ "$(timeout 5 mosquitto_sub -h 127.0.0.1 -p "$broker_port" -t 'bench/+/+' --retained-only \
        -C "$1" -W 2 -v 2>/dev/null | grep -c '^bench/dev')" -ge "$1" ]
}
# idle_cpu: once every value is published, the bridge's CPU over 5 s (first,
# while the broker holds nothing else).
idle_cpu() {
    until_true 30 "the bridge did not publish every channel" published 50
    local pid=$BRIDGE_PID
    read -r run0 _ <"/proc/$pid/schedstat"
    local switches0
    switches0=$(awk '/ctxt_switches/ {s += $2} END {print s}' "/proc/$pid/status")
    sleep 5
    read -r run1 _ <"/proc/$pid/schedstat"
    local switches1
    switches1=$(awk '/ctxt_switches/ {s += $2} END {print s}' "/proc/$pid/status")
    awk -v ns=$((run1 - run0)) -v wakes=$((switches1 - switches0)) 'BEGIN {
        printf "bridge, 50 idle devices: on-CPU time in 5 s %.2f ms (%.4f %% of one core), %d wake-ups\n",
            ns / 1e6, ns / 5e9 * 100, wakes }'
}

broker_alone() {
    local count=$1
    python3 -c "
import sys
for i in range($count):
    print('{\"data\":\"%016X\",\"header\":\"\",\"ts\":\"2026-11-23T12:00:00.123Z\"}' % i)" \
        >"$work/lines"
    local topic=bench/ref/$RANDOM
    timeout 120 mosquitto_sub -h 127.0.0.1 -p "$broker_port" -q 1 -t "$topic" -C "$count" >/dev/null &
    local sub=$!
    until_true 10 "the reference subscriber did not subscribe" subscribed "$topic"
    local start end
    start=$(date +%s.%N)
    timeout 120 mosquitto_pub -h 127.0.0.1 -p "$broker_port" -q 1 -r -t "$topic" -l <"$work/lines"
    wait "$sub" || { echo "bench/bridge.sh: the reference subscriber missed messages" >&2; exit 1; }
    end=$(date +%s.%N)
    awk -v n="$count" -v s="$start" -v e="$end" 'BEGIN {
        printf "%-44s %d messages in %.2f s: %.0f messages/s\n", "broker alone (mosquitto_pub -l, QoS 1)", n, e - s, n / (e - s) }'
}

with_bridge 50 idle_cpu
broker_alone 20000
measure "1 device, 1 channel at 100/s" 1 1 100
measure "1 device, 50 channels as fast as possible" 1 50 0
measure "50 devices, 100/s each" 50 50 100
measure "50 devices, as fast as possible" 50 50 0
broker_alone 20000
