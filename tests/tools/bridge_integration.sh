#!/usr/bin/env bash
# Runs chanlink-bridge between real chanlink-device processes and a real
# mosquitto broker on 127.0.0.1, and watches the broker with mosquitto_sub:
#
#   bridge_integration.sh BRIDGE DEVICE CHANLINK
#
# Values, retained values, /set results, a device restart, a broker restart,
# a clean stop, and 50 devices with a retained set and a last will, in that
# order. Ports are chosen
# by the system; every wait has a deadline.
set -uo pipefail

bridge=$1 device=$2 chanlink=$3
source "$(dirname "$0")/harness.sh"

gone() { ! kill -0 "$1" 2>/dev/null; }

sub() { timeout 5 mosquitto_sub -h 127.0.0.1 -p "$BROKER_PORT" "$@" 2>/dev/null; }
broker_up() { sub -t probe -W 1 -C 1 -E; }
start_broker() {
    mosquitto -c "$work/mosquitto.conf" 2>>"$work/mosquitto.err" &
    broker_pid=$!
    pids+=("$broker_pid")
    until_true 10 "the broker did not start" broker_up
}

# seen REGEX: a line from the watching subscriber matches, after line MARK.
seen() { tail -n "+$((MARK + 1))" "$work/seen.log" | grep -Eq -- "$1"; }
wait_seen() { until_true 10 "no line matching '$1'" seen "$1"; }
mark() { MARK=$(wc -l <"$work/seen.log"); }

# wait_retained TOPIC REGEX: until the broker's retained message on TOPIC matches.
retained_is() { [[ $(sub -t "$1" --retained-only -C 1 -W 2) =~ $2 ]]; }
wait_retained() { until_true 10 "retained $1 does not match '$2'" retained_is "$1" "$2"; }

publish() { timeout 5 mosquitto_pub -h 127.0.0.1 -p "$BROKER_PORT" -q 1 -t "$1" -m "$2" "${@:3}" || fail "publish $1"; }

value_of() { printf '^\\{"data":"%s","header":"","ts":"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\\.[0-9]{3}Z"\\}$' "$1"; }

PASSWORD="pw-$RANDOM$RANDOM"
BROKER_PORT=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
printf 'listener %s 127.0.0.1\nallow_anonymous true\npersistence false\nlog_type error\n' "$BROKER_PORT" \
    >"$work/mosquitto.conf"
start_broker
start_device --password "$PASSWORD" --max-clients 60
: >"$work/seen.log"
stdbuf -oL mosquitto_sub -h 127.0.0.1 -p "$BROKER_PORT" -q 1 -v -t '#' -W 100 \
    >>"$work/seen.log" 2>>"$work/sub.err" &
pids+=("$!")
MARK=0

CHANLINK_PASSWORD=$PASSWORD "$bridge" --device "plc1=127.0.0.1:$PORT" --channels 1,2 \
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
# reach the device (a wrong size would have come back as reason 19). The
# payloads refused and why are BridgeParsingTest's.
while IFS='|' read -r channel payload result; do
    mark
    publish "chanlink/plc1/$channel/set" "$payload"
    wait_seen "^chanlink/plc1/$channel/set/result $result\$"
done <<'CASES'
1|0A000000|\{"ok":true\}
1|{"data":"0b000000"}|\{"ok":true\}
2|01000000|\{"ok":false,"reason":18,"name":"ReadOnlyChannel"\}
1|0B00000|\{"ok":false,"error":"hex data must have an even number of digits, two per byte"\}
CASES
wait_retained chanlink/plc1/1 "$(value_of 0B000000)"

# The device goes away and comes back on the same port: offline, online,
# values again (the restarted device starts from 00000000).
mark
stop_device TERM
wait_seen '^chanlink/plc1/status offline$'
DEVICE_PORT=$PORT start_device --password "$PASSWORD" --max-clients 60
wait_seen '^chanlink/plc1/status online$'
wait_seen "^chanlink/plc1/1 $(value_of 00000000 | cut -c2-)"
mark
wait_seen '^chanlink/plc1/2 '

# The broker hangs while a value changes, so that value waits unacknowledged
# at the bridge; then it dies (forgetting every retained message) and the
# value changes again. When it is back the latest value wins over the resent
# older one.
set_1() {
    CHANLINK_PASSWORD=$PASSWORD timeout 10 "$chanlink" --host 127.0.0.1 --port "$PORT" \
        set 1 "$1" >/dev/null || fail "chanlink set 1 $1"
}
broker_backlog() {  # a connection to the broker has unread bytes (rx_queue in /proc/net/tcp)
    awk -v p="$(printf ':%04X$' "$BROKER_PORT")" '$2 ~ p && $5 !~ /:0+$/ {f=1} END {exit !f}' /proc/net/tcp
}
stopped+=("$broker_pid")
kill -STOP "$broker_pid"
set_1 0C000000
until_true 10 "the bridge sent nothing to the hung broker" broker_backlog
kill -KILL "$broker_pid"
until_true 5 "the broker did not end" gone "$broker_pid"
set_1 0D000000
start_broker
wait_retained chanlink/plc1/1 "$(value_of 0D000000)"
wait_retained chanlink/plc1/status '^online$'
wait_retained chanlink/bridge/test/status '^online$'
wait_retained chanlink/plc1/2 '^\{"data":"[0-9A-F]{8}"'

# A clean stop leaves every status offline.
kill -TERM "$bridge_pid"
until_true 5 "the bridge did not stop" gone "$bridge_pid"
wait "$bridge_pid" || fail "the bridge's exit status after SIGTERM is $?"
wait_retained chanlink/bridge/test/status '^offline$'
wait_retained chanlink/plc1/status '^offline$'
grep -qF "$PASSWORD" "$work/bridge.err" && fail "the bridge logged the device password"

# A broker password file without a broker user is refused before anything starts.
"$bridge" --device "a=127.0.0.1:1" --push --broker-password-file /dev/null 2>"$work/usage.err"
[ $? -eq 2 ] && grep -q "needs a broker user" "$work/usage.err" || fail "password file without user"

# 50 device connections from one bridge, each online with a value; one more,
# keeping at most 1 channel, publishes only one of those the device pushes.
# A retained set the bridge finds when it subscribes is answered, never
# applied; when the bridge vanishes, the broker says so through its last will.
mark
publish fleet/d1/2/set 0E000000 -r
wait_seen '^fleet/d1/2/set 0E000000$'  # the watcher is back from the broker's restart
args=(); for i in $(seq 50); do args+=(--device "d$i=127.0.0.1:$PORT"); done
printf '{"devices":[{"name":"capped","host":"127.0.0.1","port":%s,"push":true,"maxChannels":1}]}' \
    "$PORT" >"$work/capped.json"
CHANLINK_PASSWORD=$PASSWORD "$bridge" --config "$work/capped.json" "${args[@]}" --channels 2 \
    --broker "127.0.0.1:$BROKER_PORT" --client-id fleet --topic-prefix fleet 2>"$work/fleet.err" &
fleet_pid=$!
pids+=("$fleet_pid")
wait_seen '^fleet/d1/2/set/result \{"ok":false,"error":"retained sets are not applied'
fleet_up() { [ "$(sub -v --retained-only -C 102 -W 3 -t 'fleet/+/status' -t 'fleet/+/2' |
    grep -cE '^fleet/([a-z0-9]+/status online|d[0-9]+/2 \{"data":"[0-9A-F]{8}")')" -eq 101 ]; }
until_true 20 "not every fleet device is online with a value" fleet_up
capped_one() { [ "$(sub -v --retained-only -W 2 -t 'fleet/capped/+' | grep -c '{"data"')" -eq 1 ]; }
until_true 10 "no channel limit reached" grep -q "channel limit (1) reached" "$work/fleet.err"
until_true 10 "the capped device does not publish exactly one channel" capped_one
kill -KILL "$fleet_pid"
wait_retained fleet/bridge/fleet/status '^offline$'
echo "ok"
