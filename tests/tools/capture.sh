#!/usr/bin/env bash
# Captures made by the real programs, read back with tshark and the
# dissector, one scenario per call:
#
#   capture.sh SCENARIO DISSECTOR CHANLINK DEVICE HELPER
#
#   tools    chanlink and chanlink-device record the same conversations,
#            decoded fields and Info column checked
#   crafted  frames split over segments, several per segment, a stuffed
#            length, noise and broken frames (written by HELPER)
#
# Exits 77 (skipped) when tshark is missing: scripts/test.sh installs it.
set -uo pipefail

scenario=$1
lua=$2
chanlink=$3
device=$4
helper=$5

if ! command -v tshark >/dev/null; then
    echo "SKIP: tshark is not installed (apt-get install tshark)"
    exit 77
fi

work=$(mktemp -d)
device_pid=
cleanup() {
    [ -n "$device_pid" ] && kill -TERM "$device_pid" 2>/dev/null && wait "$device_pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

fail() {
    echo "FAIL [$scenario]: $*" >&2
    [ -s "$work/device.err" ] && cat "$work/device.err" >&2
    exit 1
}

expect() {  # expect WHAT EXPECTED ACTUAL
    [ "$2" == "$3" ] || fail "$1: expected '$2', got '$3'"
}

# fields FILE FILTER FIELD...: the fields of every chanlink packet matching
# FILTER, each field's values over all packets joined by spaces, fields by '|'.
fields() {
    local file=$1 filter=$2
    shift 2
    local args=()
    for field in "$@"; do args+=(-e "$field"); done
    timeout 60 tshark -X "lua_script:$lua" -r "$file" -Y "chanlink && ($filter)" -T fields \
        -E separator='|' -E occurrence=a -E aggregator=' ' "${args[@]}" 2>/dev/null |
        awk -F'|' '{ for (i = 1; i <= NF; i++) if ($i != "") v[i] = v[i] (v[i] == "" ? "" : " ") $i }
                   END { s = ""; for (i = 1; i <= '$#'; i++) s = s (i > 1 ? "|" : "") v[i]; print s }'
}

# info FILE FILTER: the Info column of each chanlink packet matching FILTER,
# packets joined by '|'.
info() {
    timeout 60 tshark -X "lua_script:$lua" -o 'gui.column.format:"Info","%i"' -r "$1" \
        -Y "chanlink && ($2)" 2>/dev/null | paste -sd'|'
}

case $scenario in
tools)
    exec {device_fd}< <(exec "$device" --port 0 --host 127.0.0.1 --capture "$work/device.pcap" \
                            2>"$work/device.err")
    device_pid=$!
    read -r -t 10 -u "$device_fd" line || fail "the device printed no port"
    port=${line#port }
    cli() {  # cli EXPECTED_RC CAPTURE ARGUMENT...
        timeout 10 "$chanlink" --host 127.0.0.1 --port "$port" --capture "${@:2}" \
            >"$work/out" 2>"$work/err"
        expect "rc of chanlink ${*:3}" "$1" "$?"
    }
    cli 1 "$work/get.pcap" get 1 99
    cli 0 "$work/set.pcap" --capture-credentials set 1 0A0B0C0D
    cli 0 "$work/watch.pcap" --count 2 watch 2
    cli 4 "$work/refused.pcap" --password wrong get 1
    cli 0 "$work/push.pcap" --count 1 push 2
    # A capture that cannot be written stops; the command goes on.
    cli 0 /dev/full get 1
    expect "/dev/full output" "1 0A0B0C0D" "$(cat "$work/out")"
    expect "/dev/full error" "chanlink: capture to /dev/full stopped: No space left on device" \
        "$(cat "$work/err")"
    kill -TERM "$device_pid" && wait "$device_pid"
    device_pid=

    # The device's file holds every connection as its own stream, decoded
    # by content (the port is not 7300); to the device, then from it.
    to="tcp.dstport == $port"
    from="tcp.srcport == $port"
    request=(chanlink.opcode chanlink.channel chanlink.username chanlink.password chanlink.data)
    answer=(chanlink.opcode chanlink.channel chanlink.login.result chanlink.trigger chanlink.reason)
    dev=$work/device.pcap
    expect "get, sent" "9 0 0|1 99|admin|******|" "$(fields "$dev" "tcp.stream == 0 && $to" "${request[@]}")"
    expect "get, answered" "15 11 31|1 99|1|0|17" "$(fields "$dev" "tcp.stream == 0 && $from" "${answer[@]}")"
    expect "set, sent" "9 2|1|admin|******|0a0b0c0d" "$(fields "$dev" "tcp.stream == 1 && $to" "${request[@]}")"
    expect "set, answered" "15 12|1|1||" "$(fields "$dev" "tcp.stream == 1 && $from" "${answer[@]}")"
    expect "watch, sent" "9 3 0|2 2|admin|******|" "$(fields "$dev" "tcp.stream == 2 && $to" "${request[@]}")"
    watched=$(fields "$dev" "tcp.stream == 2 && $from" chanlink.opcode chanlink.channel chanlink.data)
    [[ $watched =~ ^"15 13 11 11 11"( 11)*\|"2 2 2 2"( 2)*\|([0-9a-f]{8})\ .*\ ([0-9a-f]{8})$ ]] &&
        [ "${BASH_REMATCH[3]}" != "${BASH_REMATCH[4]}" ] || fail "watch, answered: '$watched'"
    expect "refused, answered" "15|0" "$(fields "$dev" "tcp.stream == 3 && $from" chanlink.opcode chanlink.login.result)"
    expect "get, Info" "LoginRequest admin|LoginResponse Success|GetRequest 1, GetRequest 99|GetResponse 1=00000000, ErrorResponse get 99: UnknownChannel" \
        "$(info "$dev" "tcp.stream == 0")"
    expect "refused, Info" "LoginRequest admin|LoginResponse Failure" "$(info "$dev" "tcp.stream == 3")"
    expect "push, sent" "9 4|1" "$(fields "$dev" "tcp.stream == 4 && $to" chanlink.opcode chanlink.logpush.on)"
    # chanlink's own file of the get: the same conversation between the
    # same real endpoints.
    connections() {
        timeout 60 tshark -r "$1" -Y "tcp.flags.syn == 1 && tcp.flags.ack == 0" -T fields \
            -e ip.src -e tcp.srcport -e ip.dst -e tcp.dstport 2>/dev/null
    }
    expect "device's connections" 6 "$(connections "$dev" | wc -l)"
    expect "get, chanlink's endpoints" "$(connections "$dev" | head -1)" \
        "$(connections "$work/get.pcap")"
    expect "get, chanlink's file" "9 15 0 0 11 31|1 99 1 99" \
        "$(fields "$work/get.pcap" frame chanlink.opcode chanlink.channel)"
    expect "set, chanlink's file with credentials" "secret" \
        "$(fields "$work/set.pcap" frame chanlink.password)"
    if grep -qa secret "$work/get.pcap" "$work/watch.pcap" "$work/refused.pcap"; then
        fail "a password is in a capture made without --capture-credentials"
    fi
    ;;

crafted)
    "$helper" crafted-capture "$work/crafted.pcap" || fail "no crafted capture"
    actual=$(timeout 60 tshark -X "lua_script:$lua" -o chanlink.port:7301 -r "$work/crafted.pcap" \
                 -Y chanlink -T fields -E separator=' ' -e frame.number -e chanlink.opcode \
                 -e chanlink.channel -e chanlink.length -e _ws.expert.message 2>/dev/null)
    expect "decoded" "6 9  16 
7 15,13,11 5,5 2,7,19 
9 2 7 253 
10 12 7 2,5 Bytes outside any frame, ignored by the receiver,Length field 2, payload 3 bytes
11 12 8 5 Bad escape: FD followed by a byte above 02
12    Start marker inside a frame: an end marker is missing (both frames are lost)
13 31 99 7 " "$actual"
    ;;

*)
    fail "unknown scenario"
    ;;
esac
exit 0
