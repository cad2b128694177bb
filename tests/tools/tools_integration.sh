#!/usr/bin/env bash
# Runs the real programs against each other over 127.0.0.1 and ::1, one
# scenario per call:
#
#   tools_integration.sh SCENARIO CHANLINK DEVICE HELPER READ_CHANNELS|none DISSECTOR
#
# Every device listens on a port the system chose; every wait is bounded:
# each program run by `timeout`, each line read by `read -t`.
set -uo pipefail

scenario=$1 chanlink=$2 device=$3 helper=$4 reader=$5 lua=$6
source "$(dirname "$0")/harness.sh"

# cli ARGUMENT...: runs chanlink against $HOST and PORT; sets OUT, ERR and RC.
cli() {
    timeout 10 "$chanlink" --host "$HOST" --port "$PORT" "$@" >"$work/out" 2>"$work/cli.err"
    RC=$?
    OUT=$(<"$work/out")
    ERR=$(<"$work/cli.err")
    cat "$work/out" "$work/cli.err" >>"$work/all-output"
    [ "$RC" -ne 124 ] || fail "chanlink $* did not end within 10 s"
}

# watch_bg NAME [ARGUMENT...]: `chanlink watch 1` in the background, writing
# NAME.out and NAME.err, until its first line; sets CLI_PID. `timeout` passes
# a SIGTERM on to chanlink.
watch_bg() {
    timeout 10 "$chanlink" --host "$HOST" --port "$PORT" watch 1 "${@:2}" >"$work/$1.out" \
        2>"$work/$1.err" &
    CLI_PID=$!
    pids+=("$CLI_PID")
    wait_for "1 00000000" "$work/$1.out"
}

# Certificates made for the run and a password that must never show.
tls_setup() {
    certs=$work/certs
    mkdir "$certs" && bash "$(dirname "$0")/../tls/make-certs.sh" "$certs" || fail "no certificates"
    password='Zq7-not-in-any-log'
    echo "$password" >"$work/password"
    export CHANLINK_PASSWORD=$password
    tls_device=(--tls-cert "$certs/device.pem" --tls-key "$certs/device.key"
        --password-file "$work/password")
    ca=(--tls --ca "$certs/ca.pem")
}

# fields FILE FILTER FIELD...: the fields of every chanlink packet matching
# FILTER, each field's values over all packets joined by spaces, fields by '|'.
fields() {
    local file=$1 filter=$2 args=()
    shift 2
    for field in "$@"; do args+=(-e "$field"); done
    timeout 60 tshark -X "lua_script:$lua" -r "$file" -Y "chanlink && ($filter)" -T fields \
        -E separator='|' -E occurrence=a -E aggregator=' ' "${args[@]}" 2>/dev/null |
        awk -F'|' '{ for (i = 1; i <= NF; i++) if ($i != "") v[i] = v[i] (v[i] == "" ? "" : " ") $i }
                   END { s = ""; for (i = 1; i <= '$#'; i++) s = s (i > 1 ? "|" : "") v[i]; print s }'
}

if [[ $scenario == capture.* ]] && ! command -v tshark >/dev/null; then
    echo "SKIP: tshark is not installed (apt-get install tshark)"
    exit 77
fi

case $scenario in
device.serve)
    # No live channel: nothing but the signal wakes the idle device.
    printf '# a custom table\n7 2 beef rw - valve # a comment\n8 1 - ro - \n' >"$work/channels"
    start_device --channels "$work/channels" --user op --password pw
    if [ "$reader" != none ]; then  # the example client, when built
        OUT=$(timeout 10 "$reader" 127.0.0.1 "$PORT" op pw 7 1)
        expect "read_channels" $'channel 1: refused, reason 17\nchannel 7: BE EF' "$OUT"
    fi
    grep -q "^chanlink-device: connection 1: opened from 127.0.0.1:" "$work/device.err" ||
        fail "no connection line in the log"
    stop_device INT
    cli get 7
    expect "a stopped device" "3 chanlink: cannot connect to 127.0.0.1:$PORT" "$RC $ERR"
    ;;

device.usage)
    # Usage errors are ToolOptionsTest's; these need the program.
    "$device" --host 192.0.2.1 --port 0 >/dev/null 2>"$work/err"
    expect "cannot listen exit status" 1 "$?"
    printf '7 2 beef rw counter:50 valve\n' >"$work/channels"
    "$device" --channels "$work/channels" --print-channels >"$work/printed" &&
        "$device" --channels "$work/printed" --print-channels | cmp -s - "$work/printed" ||
        fail "the printed table does not read back the same"
    printf '1 4 0000 rw -\n' >"$work/bad"
    "$device" --channels "$work/bad" 2>"$work/err"
    expect "bad table" "2 chanlink-device: $work/bad:1: initial value must be - or exactly 8 hex digits, not '0000'" \
        "$? $(<"$work/err")"
    ;;

cli.timeout)
    start_device
    stopped+=("$device_pid")
    kill -STOP "$device_pid"  # connections are accepted by the kernel, never answered
    cli get 1 --timeout 300ms
    expect "timeout" "5 chanlink: no answer to the login within 300ms" "$RC $ERR"
    ;;

cli.frame-limit)
    echo "1 65535 - ro -" >"$work/channels"
    start_device --channels "$work/channels"
    cli get 1 --max-frame 32K
    expect "frame over the limit" "3 chanlink: the device sent a frame larger than 32 KiB; connection closed" \
        "$RC $ERR"
    ;;

cli.set)
    HOST= start_device  # on every address, an IPv6 client too
    HOST=::1 cli set 1 0A0B0C0D
    expect "set" "0 1 set to 0A0B0C0D" "$RC $OUT"
    wait_for "connection 1: opened from [::1]:"
    cli get 1 99 3
    wait_for "connection 2: opened from 127.0.0.1:"  # not as a mapped IPv6 address
    expect "read back, one unknown" $'1 1 0A0B0C0D\n3 00' "$RC $OUT"
    expect "unknown get error" "chanlink: get 99 refused: UnknownChannel (no such channel)" "$ERR"
    cli set 5 0000000000000000
    expect "read-only" "1 chanlink: set 5 refused: ReadOnlyChannel (channel is read-only)" "$RC $ERR"
    cli --json get 1
    expect "json get" '0 {"command":"get","channel":1,"ok":true,"header":"","data":"0A0B0C0D"}' "$RC $OUT"
    ;;

cli.watch)
    start_device
    # Channel 2 counts up on its own: each line after the first is a change.
    cli watch 2 --count 3
    expect_match "watch" $'^0 2 ([0-9A-F]{8})\n2 \\1 -> ([0-9A-F]{8})\n2 \\2 -> [0-9A-F]{8}$' "$RC $OUT"
    # An unchanging channel prints its value once, and --seconds ends the watch.
    cli watch 1 --seconds 0.5
    expect "quiet watch" "0 1 00000000" "$RC $OUT"
    # SIGTERM is the normal end of a watch without limits (timeout passes it on).
    watch_bg endless
    kill -TERM "$CLI_PID"
    wait "$CLI_PID"
    expect "terminated watch ends normally" 0 "$?"
    cli watch 1 77
    expect "watch unknown" "1 chanlink: watch 77 refused: UnknownChannel (no such channel)" "$RC $ERR"
    # A watch whose device goes away ends at once with the connection code.
    watch_bg watcher
    stop_device TERM
    wait "$CLI_PID"
    expect "lost watch" "3 chanlink: connection to 127.0.0.1:$PORT closed" "$? $(<"$work/watcher.err")"
    ;;

cli.login-refused)
    start_device --max-clients 1
    cli get 1 --password wrong
    expect "wrong password" "4 chanlink: warning: other users of this machine can read --password; use --password-file or CHANLINK_PASSWORD
chanlink: login as 'admin' refused (wrong user or password)" "$RC $ERR"
    watch_bg holder --seconds 8
    cli get 1
    expect "no room" "4 chanlink: login as 'admin' refused (the device serves no more clients)" \
        "$RC $ERR"
    ;;

cli.tls)
    tls_setup
    start_device "${tls_device[@]}"
    cli "${ca[@]}" set 1 0A0B0C0D
    expect "set over TLS" "0 1 set to 0A0B0C0D" "$RC $OUT"
    cli --tls --insecure get 1
    expect "--insecure" "0 chanlink: warning: --insecure: the device's certificate is not checked" \
        "$RC $ERR"
    cli --tls --ca "$certs/otherca.pem" get 1
    expect_match "wrong CA" "^3 chanlink: certificate verify failed: [^"$'\n'"]+$" "$RC $ERR"
    wait_for "closed before it was set up (failed handshake)"
    start_device "${tls_device[@]}" --tls-client-ca "$certs/ca.pem"
    cli "${ca[@]}" --cert "$certs/client.pem" --key "$certs/client.key" get 1
    expect "mutual TLS" "0 1 00000000" "$RC $OUT"
    ;;

cli.hostile)
    tls_setup
    start_device "${tls_device[@]}" --login-timeout 1 --max-pending 2
    exec {idle}<>"/dev/tcp/127.0.0.1/$PORT" {second}<>"/dev/tcp/127.0.0.1/$PORT"
    wait_for "connection 2: opened"
    exec {third}<>"/dev/tcp/127.0.0.1/$PORT"  # none of them says hello
    wait_for "connection 3: dropped at once: 2 connections without a login (limit 2)"
    wait_for "connection 1: dropped without a login within 1000 ms"
    cli "${ca[@]}" get 1
    expect "an honest client after the idle ones" 0 "$RC"
    ;;

cli.secrets)
    # Every tool path that logs or fails, the password from every source.
    tls_setup
    start_device "${tls_device[@]}"
    cli "${ca[@]}" --json get 1 9999
    cli "${ca[@]}" --password-file "$work/password" set 2 00
    cli "${ca[@]}" --password "$password" get 1
    CHANLINK_PASSWORD="$password-x" cli "${ca[@]}" get 1
    HOST=192.0.2.1 cli --timeout 1 get 1
    expect_match "plain text warning" "sending the password unencrypted to 192.0.2.1; use --tls" "$ERR"
    CHANLINK_DEVICE_PASSWORD=$password start_device --password "$password" --password-file "$work/password"
    wait_for "warning: other users of this machine can read --password"
    grep -Eq "^Max core file size +0 +0 " "/proc/$device_pid/limits" || fail "core dumps are on"
    kill -TERM "${pids[@]}" && wait "${pids[@]}"
    ! grep -F -- "$password" "$work/device.err" "$work/all-output" ||
        fail "the password shows in the output above"
    ;;

capture.tools)
    # The device listens on every address: a client over ::1 is recorded as
    # IPv6, one over 127.0.0.1 as IPv4 (not as the IPv4-mapped address).
    HOST= start_device --capture "$work/device.pcap"
    capture() {  # capture EXPECTED_RC FILE ARGUMENT...
        cli --capture "${@:2}"
        expect "rc of chanlink ${*:3}" "$1" "$RC"
    }
    HOST=::1 capture 1 "$work/get.pcap" get 1 99
    capture 0 "$work/set.pcap" --capture-credentials set 1 0A0B0C0D
    capture 0 "$work/watch.pcap" --count 2 watch 2
    capture 4 "$work/refused.pcap" --password wrong get 1
    capture 0 "$work/push.pcap" --count 1 push 2
    # A capture that cannot be written stops; the command goes on.
    capture 0 /dev/full get 1
    expect "/dev/full" "1 0A0B0C0D chanlink: capture to /dev/full stopped: No space left on device" \
        "$OUT $ERR"
    stop_device TERM

    # The device's file holds every connection as its own stream, decoded
    # by content (the port is not 7300); to the device, then from it.
    to="tcp.dstport == $PORT"
    from="tcp.srcport == $PORT"
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
    expect "push, sent" "9 4|1" "$(fields "$dev" "tcp.stream == 4 && $to" chanlink.opcode chanlink.logpush.on)"
    expect "Info" "LoginRequest admin|LoginResponse Success|GetRequest 1, GetRequest 99|GetResponse 1=00000000, ErrorResponse get 99: UnknownChannel|LoginRequest admin|LoginResponse Failure" \
        "$(timeout 60 tshark -X "lua_script:$lua" -o 'gui.column.format:"Info","%i"' -r "$dev" \
               -Y 'chanlink && (tcp.stream == 0 || tcp.stream == 3)' 2>/dev/null | paste -sd'|')"
    expect "bad checksums or TCP analysis warnings" "" "$(timeout 60 tshark -r "$dev" -o ip.check_checksum:TRUE \
        -o tcp.check_checksum:TRUE -Y 'ip.checksum.status == 0 || tcp.checksum.status == 0 || tcp.analysis.flags' 2>/dev/null)"
    # The opening of each connection: in the device's file, and in chanlink's
    # own files of the get (IPv6) and the set (IPv4), the same real endpoints.
    connections() {
        timeout 60 tshark -r "$1" -Y "tcp.flags.syn == 1 && tcp.flags.ack == 0" -T fields \
            -e ip.src -e ipv6.src -e tcp.srcport -e ip.dst -e ipv6.dst -e tcp.dstport 2>/dev/null
    }
    opened=$(connections "$dev")
    expect_match "device's connections" $'^\t::1\t[0-9]+\t\t::1\t[0-9]+(\n127.0.0.1\t\t[0-9]+\t127.0.0.1\t\t[0-9]+){5}$' "$opened"
    expect "chanlink's own files of the get and the set" "$(head -2 <<<"$opened")" \
        "$(connections "$work/get.pcap"; connections "$work/set.pcap")"
    expect "get, chanlink's file" "9 15 0 0 11 31|1 99 1 99" \
        "$(fields "$work/get.pcap" frame chanlink.opcode chanlink.channel)"
    expect "set, chanlink's file with credentials" "secret" \
        "$(fields "$work/set.pcap" frame chanlink.password)"
    ! grep -qa secret "$work/get.pcap" "$work/watch.pcap" "$work/refused.pcap" ||
        fail "a password is in a capture made without --capture-credentials"
    ;;

capture.crafted)
    "$helper" "$work/crafted.pcap" || fail "no crafted capture"
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
echo "ok [$scenario]"
