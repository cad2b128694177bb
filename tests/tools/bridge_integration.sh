#!/usr/bin/env bash
# Runs chanlink-bridge between real chanlink-device processes and a real
# mosquitto broker on 127.0.0.1, and watches the broker with mosquitto_sub:
#
#   bridge_integration.sh BRIDGE DEVICE CHANLINK
#
# Values, retained values, /set results, a device restart, a broker restart
# and a clean stop, in that order. Ports are chosen by the system; every wait
# has a deadline.
set -uo pipefail

bridge=$1
device=$2
chanlink=$3

work=$(mktemp -d)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do
        kill -KILL "$pid" 2>/dev/null
    done
    rm -rf "$work"
}
trap cleanup EXIT

fail() {
    echo "FAIL: $*" >&2
    for log in "$work"/*.err "$work/seen"; do
        [ -s "$log" ] && { echo "--- $log" >&2; tail -n 30 "$log" >&2; }
    done
    exit 1
}

free_port() {
    python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

# until_true SECONDS WHAT COMMAND...: runs COMMAND until it succeeds.
until_true() {
    local limit=$1 what=$2
    local deadline=$((SECONDS + limit))
    shift 2
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] || fail "$what (waited $limit s)"
        sleep 0.05
    done
}

broker_up() { mosquitto_sub -h 127.0.0.1 -p "$BROKER_PORT" -t probe -W 1 -C 1 -E 2>/dev/null; }
start_broker() {
    mosquitto -c "$work/mosquitto.conf" 2>>"$work/mosquitto.err" &
    broker_pid=$!
    pids+=("$broker_pid")
    until_true 10 "the broker did not start" broker_up
}

# start_device [PORT]: a chanlink-device with the built-in table; sets DEVICE_PORT.
start_device() {
    exec {device_fd}< <(exec "$device" --port "${1:-0}" --host 127.0.0.1 --password "$PASSWORD" \
                            2>>"$work/device.err")
    device_pid=$!
    pids+=("$device_pid")
    local line
    read -r -t 10 -u "$device_fd" line || fail "the device printed no port"
    DEVICE_PORT=${line#port }
}

gone() { ! kill -0 "$1" 2>/dev/null; }
stop() {  # stop PID: SIGTERM, then the process must end within 5 s
    kill -TERM "$1"
    until_true 5 "process $1 did not stop" gone "$1"
}

# seen REGEX: a line from the watching subscriber matches, after line MARK.
seen() { tail -n "+$((MARK + 1))" "$work/seen" | grep -Eq -- "$1"; }
wait_seen() { until_true 10 "no line matching '$1'" seen "$1"; }
mark() { MARK=$(wc -l <"$work/seen"); }

retained() {  # retained TOPIC: the broker's retained message, or nothing
    mosquitto_sub -h 127.0.0.1 -p "$BROKER_PORT" -t "$1" --retained-only -C 1 -W 2 2>/dev/null
}
retained_is() { [[ $(retained "$1") =~ $2 ]]; }
wait_retained() {  # wait_retained TOPIC REGEX
    until_true 10 "retained $1 does not match '$2'" retained_is "$1" "$2"
}

publish() { mosquitto_pub -h 127.0.0.1 -p "$BROKER_PORT" -q 1 -t "$1" -m "$2" || fail "publish $1"; }

value='^\{"data":"%s","header":"","ts":"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\.[0-9]{3}Z"\}$'
# shellcheck disable=SC2059
value_of() { printf "$value" "$1"; }

PASSWORD="pw-$RANDOM$RANDOM"
BROKER_PORT=$(free_port)
printf 'listener %s 127.0.0.1\nallow_anonymous true\npersistence false\nlog_type error\n' "$BROKER_PORT" \
    >"$work/mosquitto.conf"
start_broker
start_device
: >"$work/seen"
stdbuf -oL mosquitto_sub -h 127.0.0.1 -p "$BROKER_PORT" -q 1 -v -t 'chanlink/#' \
    >>"$work/seen" 2>>"$work/sub.err" &
pids+=("$!")
MARK=0

CHANLINK_PASSWORD=$PASSWORD "$bridge" --device "plc1=127.0.0.1:$DEVICE_PORT" --channels 1,2 \
    --broker "127.0.0.1:$BROKER_PORT" --client-id test 2>"$work/bridge.err" &
bridge_pid=$!
pids+=("$bridge_pid")

# Values: each channel, the status of the device and of the bridge.
wait_seen '^chanlink/bridge/test/status online$'
wait_seen '^chanlink/plc1/status online$'
wait_seen "^chanlink/plc1/1 $(value_of 00000000 | cut -c2-)"
wait_seen '^chanlink/plc1/2 \{"data":"[0-9A-F]{8}"'
wait_retained chanlink/plc1/1 "$(value_of 00000000)"
wait_retained chanlink/plc1/status '^online$'

# Writes: each case's payload, channel and result; refused ones never
# reach the device (a wrong size would have come back as reason 19).
while IFS='|' read -r channel payload result; do
    mark
    publish "chanlink/plc1/$channel/set" "$payload"
    wait_seen "^chanlink/plc1/$channel/set/result $result\$"
done <<'CASES'
1|0A000000|\{"ok":true\}
1|{"data":"0b000000"}|\{"ok":true\}
2|01000000|\{"ok":false,"reason":18,"name":"ReadOnlyChannel"\}
1|0B00000|\{"ok":false,"error":"hex data must have an even number of digits, two per byte"\}
1|zz|\{"ok":false,"error":"payload must be hex digits or \{\\"data\\":\\"HEX\\"\}"\}
1|{"data":7}|\{"ok":false,"error":"JSON payload must be \{\\"data\\":\\"HEX\\"\}"\}
x|00|\{"ok":false,"error":"channel must be a decimal id from 0 to 4294967295"\}
CASES
wait_retained chanlink/plc1/1 "$(value_of 0B000000)"

# The device goes away and comes back on the same port: offline, online,
# values again (the restarted device starts from 00000000).
mark
stop "$device_pid"
wait_seen '^chanlink/plc1/status offline$'
start_device "$DEVICE_PORT"
wait_seen '^chanlink/plc1/status online$'
wait_seen "^chanlink/plc1/1 $(value_of 00000000 | cut -c2-)"
mark
wait_seen '^chanlink/plc1/2 '

# The broker goes away (forgetting every retained message) while the
# device changes: when it is back, the latest values are there again.
stop "$broker_pid"
timeout 10 "$chanlink" --host 127.0.0.1 --port "$DEVICE_PORT" --password "$PASSWORD" \
    set 1 0C000000 >/dev/null || fail "chanlink set during the broker's absence"
timeout 10 "$chanlink" --host 127.0.0.1 --port "$DEVICE_PORT" --password "$PASSWORD" \
    set 1 0D000000 >/dev/null || fail "chanlink set during the broker's absence"
start_broker
wait_retained chanlink/plc1/1 "$(value_of 0D000000)"
wait_retained chanlink/plc1/status '^online$'
wait_retained chanlink/bridge/test/status '^online$'
wait_retained chanlink/plc1/2 '^\{"data":"[0-9A-F]{8}"'

# A clean stop leaves every status offline.
stop "$bridge_pid"
wait "$bridge_pid"
[ $? -eq 0 ] || fail "the bridge's exit code after SIGTERM is not 0"
wait_retained chanlink/bridge/test/status '^offline$'
wait_retained chanlink/plc1/status '^offline$'
grep -qF "$PASSWORD" "$work/bridge.err" && fail "the bridge logged the device password"

# A bridge that vanishes is reported by the broker, through its last will.
"$bridge" --device "plc1=127.0.0.1:$DEVICE_PORT" --channels 1 --broker "127.0.0.1:$BROKER_PORT" \
    --client-id test 2>>"$work/bridge.err" &
bridge_pid=$!
pids+=("$bridge_pid")
wait_retained chanlink/bridge/test/status '^online$'
kill -KILL "$bridge_pid"
wait_retained chanlink/bridge/test/status '^offline$'
echo "ok"
