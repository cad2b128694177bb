#!/usr/bin/env bash
# Runs the real chanlink-device over 127.0.0.1, one scenario per call:
#
#   device_smoke.sh SCENARIO DEVICE READ_CHANNELS
#
# The device listens on a port the system chose. Every wait is bounded: the
# port line by `read -t`, each client by `timeout`, each stop by a deadline.
set -uo pipefail

scenario=$1
device=$2
reader=$3

work=$(mktemp -d)
device_pid=
cleanup() {
    [ -n "$device_pid" ] && kill -KILL "$device_pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

fail() {
    echo "FAIL [$scenario]: $*" >&2
    [ -s "$work/device.err" ] && { echo "--- device log" >&2; cat "$work/device.err" >&2; }
    exit 1
}

expect() {  # expect WHAT EXPECTED ACTUAL
    [ "$2" = "$3" ] || fail "$1: expected '$2', got '$3'"
}

# start_device [OPTION...]: starts the device on a free port; sets PORT.
start_device() {
    mkfifo "$work/out"
    "$device" --port 0 --host 127.0.0.1 "$@" >"$work/out" 2>"$work/device.err" &
    device_pid=$!
    exec {out}<>"$work/out"  # read-write: opening never blocks
    local line
    read -r -t 10 -u "$out" line || fail "the device printed no port"
    [[ $line =~ ^port\ ([0-9]+)$ ]] || fail "the device's first line is '$line'"
    PORT=${BASH_REMATCH[1]}
}

# stop_device SIGNAL: the device must end within 5 s with exit code 0.
stop_device() {
    kill -"$1" "$device_pid"
    local deadline=$((SECONDS + 5))
    while kill -0 "$device_pid" 2>/dev/null; do
        [ "$SECONDS" -lt "$deadline" ] || fail "the device did not stop within 5 s of SIG$1"
        sleep 0.05
    done
    wait "$device_pid"
    expect "exit code after SIG$1" 0 "$?"
    device_pid=
}

# get PASSWORD CHANNEL...: reads channels; sets OUT and RC.
get() {
    local password=$1
    shift
    OUT=$(timeout 10 "$reader" 127.0.0.1 "$PORT" admin "$password" "$@" 2>&1)
    RC=$?
}

case $scenario in
serve)
    start_device
    get secret 1 3 5 9
    expect "get exit code" 0 "$RC"
    expect "get output" "channel 1: 00 00 00 00
channel 3: 00
channel 5: 63 68 61 6E 6C 69 6E 6B
channel 9: refused, reason 17" "$OUT"

    get wrong 1
    expect "refused login exit code" 1 "$RC"
    [[ $OUT == *"login refused (Failure)"* ]] || fail "refused login printed '$OUT'"

    stop_device TERM
    grep -q "^chanlink-device: connection 1: opened from 127.0.0.1:" "$work/device.err" ||
        fail "no connection line in the log"
    grep -q "login refused (wrong credentials) for admin" "$work/device.err" ||
        fail "no refused login in the log"
    ;;
channels-file)
    cat >"$work/channels" <<'TABLE'
# a custom table
7  2  beef  rw  -           valve   # a comment
8  1  -     ro  toggle:50:1
TABLE
    start_device --channels "$work/channels" --user op --password pw
    OUT=$(timeout 10 "$reader" 127.0.0.1 "$PORT" op pw 7 1)
    expect "custom table" "channel 1: refused, reason 17
channel 7: BE EF" "$OUT"
    stop_device INT

    "$device" --channels "$work/channels" --print-channels >"$work/printed" ||
        fail "--print-channels failed"
    "$device" --channels "$work/printed" --print-channels | cmp -s - "$work/printed" ||
        fail "the printed table does not read back the same"

    printf '1 4 0000 rw -\n' >"$work/bad"
    "$device" --channels "$work/bad" 2>"$work/err"
    expect "bad table exit code" 2 "$?"
    grep -q "bad:1: initial value must be - or exactly 8 hex digits" "$work/err" ||
        fail "bad table message: $(cat "$work/err")"
    ;;
usage)
    "$device" --help | grep -q -- "--max-clients N" || fail "--help does not list the options"
    "$device" --bogus 2>"$work/err"
    expect "unknown option exit code" 2 "$?"
    expect "unknown option message" \
        "chanlink-device: The following argument was not expected: --bogus (see chanlink-device --help)" \
        "$(cat "$work/err")"
    "$device" --host 192.0.2.1 --port 0 >/dev/null 2>"$work/err"
    expect "cannot listen exit code" 1 "$?"
    ;;
*)
    fail "unknown scenario"
    ;;
esac
echo "ok [$scenario]"
