#!/usr/bin/env bash
# Runs the real chanlink program against the real chanlink-device over
# 127.0.0.1, one scenario per call:
#
#   cli_integration.sh SCENARIO CHANLINK DEVICE HELPER
#
# Every device listens on a port the system chose; every wait is bounded:
# each chanlink run by `timeout`, each line read by `read -t`.
set -uo pipefail

scenario=$1
chanlink=$2
device=$3
helper=$4

work=$(mktemp -d)
background=()
cleanup() {
    for pid in "${background[@]}"; do
        kill -TERM "$pid" 2>/dev/null
    done
    for pid in "${background[@]}"; do
        wait "$pid" 2>/dev/null
    done
    rm -rf "$work"
}
trap cleanup EXIT

fail() {
    echo "FAIL [$scenario]: $*" >&2
    for log in "$work"/*.err; do
        [ -s "$log" ] && { echo "--- $log" >&2; cat "$log" >&2; }
    done
    exit 1
}

# start_device [OPTION...]: starts chanlink-device on a free port; sets PORT.
start_device() {
    exec {device_fd}< <(exec "$device" --port 0 --host 127.0.0.1 "$@" 2>>"$work/device.err")
    device_pid=$!
    background+=("$device_pid")
    local line
    read -r -t 10 -u "$device_fd" line || fail "the device printed no port"
    [[ $line =~ ^port\ ([0-9]+)$ ]] || fail "the device's first line is '$line'"
    PORT=${BASH_REMATCH[1]}
}

# cli ARGUMENT...: runs chanlink against the device; sets OUT, ERR and RC.
cli() {
    timeout 10 "$chanlink" --host 127.0.0.1 --port "$PORT" "$@" >"$work/out" 2>"$work/cli.err"
    RC=$?
    OUT=$(cat "$work/out")
    ERR=$(cat "$work/cli.err")
    cat "$work/out" "$work/cli.err" >>"$work/all-cli-output"
    [ "$RC" -ne 124 ] || fail "chanlink $* did not end within 10 s"
}

# start_cli NAME ARGUMENT...: runs chanlink in the background; its output
# lines, then "exit N", are read with next_line NAME. Stopping its `timeout`
# (listed in background) stops chanlink with SIGTERM.
start_cli() {
    local name=$1
    shift
    local fd line
    exec {fd}< <(timeout 10 "$chanlink" --host 127.0.0.1 --port "$PORT" "$@" \
                     2>"$work/$name.err" &
                 echo "pid $!"
                 wait $!
                 echo "exit $?")
    read -r -t 10 -u "$fd" line || fail "$name did not start"
    background+=("${line#pid }")
    printf -v "fd_$name" '%s' "$fd"
}

# next_line NAME: the next line of a background chanlink, into LINE.
next_line() {
    local fd_var="fd_$1"
    read -r -t 10 -u "${!fd_var}" LINE || fail "no line from $1 within 10 s"
}

expect() {  # expect WHAT EXPECTED ACTUAL
    [ "$2" == "$3" ] || fail "$1: expected '$2', got '$3'"
}

expect_match() {  # expect_match WHAT REGEX ACTUAL
    [[ $3 =~ $2 ]] || fail "$1: '$3' does not match '$2'"
}

wait_for_log() {  # wait_for_log TEXT: until the device has logged TEXT (10 s)
    for _ in $(seq 100); do
        grep -qF -- "$1" "$work/device.err" && return 0
        sleep 0.1
    done
    fail "the device never logged '$1'"
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
}

check_json() {  # check_json TEXT: every line one JSON object
    "$helper" check-json <<<"$1" || fail "not JSON lines: $1"
}

case $scenario in
set)
    start_device
    cli set 1 0A0B0C0D
    expect "set rc" 0 "$RC"
    expect "set output" "1 set to 0A0B0C0D" "$OUT"
    cli set 0x3 "7f"
    expect "set 3 output" "3 set to 7F" "$OUT"
    cli get 1 99 3
    expect "read back, one unknown rc" 1 "$RC"
    expect "read back" $'1 0A0B0C0D\n3 7F' "$OUT"
    expect "unknown get error" "chanlink: get 99 refused: UnknownChannel (no such channel)" "$ERR"
    cli set 5 0000000000000000
    expect "read-only rc" 1 "$RC"
    expect "read-only error" "chanlink: set 5 refused: ReadOnlyChannel (channel is read-only)" "$ERR"
    ;;

watch)
    start_device
    # Channel 2 counts up on its own: each line after the first is a change.
    cli watch 2 --count 3
    expect "watch rc" 0 "$RC"
    expect_match "watch output" \
        $'^2 ([0-9A-F]{8})\n2 \\1 -> ([0-9A-F]{8})\n2 \\2 -> [0-9A-F]{8}$' "$OUT"
    # An unchanging channel prints its value once, and --seconds ends the watch.
    cli watch 1 --seconds 0.5
    expect "quiet watch rc" 0 "$RC"
    expect "quiet watch output" "1 00000000" "$OUT"
    # SIGTERM is the normal end of a watch without limits (timeout passes it on).
    start_cli endless watch 1
    next_line endless
    kill -TERM "${background[-1]}"
    next_line endless
    expect "terminated watch ends normally" "exit 0" "$LINE"
    cli watch 1 77
    expect "watch unknown rc" 1 "$RC"
    expect "watch unknown error" "chanlink: watch 77 refused: UnknownChannel (no such channel)" "$ERR"
    ;;

json)
    start_device
    cli --json get 1 99
    expect "json get rc" 1 "$RC"
    check_json "$OUT"
    expect_match "json get" \
        '^\{"command":"get","channel":1,"ok":true,"header":"[0-9A-F]*","data":"00000000"\}$' \
        "$(head -1 <<<"$OUT")"
    expect "json refusal" '{"command":"get","channel":99,"ok":false,"reason":17,"reasonName":"UnknownChannel","description":"no such channel"}' "$(tail -1 <<<"$OUT")"
    cli --json set 5 0000000000000000
    check_json "$OUT"
    expect_match "json set refusal" '"reason":18,"reasonName":"ReadOnlyChannel"' "$OUT"
    cli set 3 02 --json
    expect "json set" '{"command":"set","channel":3,"ok":true,"data":"02"}' "$OUT"
    cli watch 2 --count 2 --json
    check_json "$OUT"
    expect_match "json watch" '^\{"command":"watch","channel":2,"previous":null,.*\}
\{"command":"watch","channel":2,"previous":"[0-9A-F]{8}",.*\}$' "$OUT"
    cli push --count 2 --json
    check_json "$OUT"
    expect_match "json push" '"command":"push"' "$OUT"
    ;;

login-refused)
    start_device
    cli get 1 --password wrong
    expect "wrong password rc" 4 "$RC"
    expect "wrong password error" "chanlink: warning: other users of this machine can read --password; use --password-file or CHANLINK_PASSWORD
chanlink: login as 'admin' refused (wrong user or password)" "$ERR"
    CHANLINK_PASSWORD=wrong cli get 1
    expect "password from the environment" 4 "$RC"
    expect "no warning for the environment" "chanlink: login as 'admin' refused (wrong user or password)" "$ERR"
    cli get 1 --user someone
    expect "wrong user rc" 4 "$RC"
    ;;

too-many-clients)
    start_device --max-clients 1
    start_cli holder watch 1 --seconds 8
    next_line holder
    cli get 1
    expect "second client rc" 4 "$RC"
    expect "second client error" \
        "chanlink: login as 'admin' refused (the device serves no more clients)" "$ERR"
    ;;

connection-refused)
    PORT=$("$helper" closed-port) || fail "no closed port"
    cli get 1
    expect "refused rc" 3 "$RC"
    expect "refused error" "chanlink: cannot connect to 127.0.0.1:$PORT" "$ERR"
    ;;

connection-lost)
    # A watch whose device goes away ends at once with the connection code.
    start_device
    start_cli watcher watch 1
    next_line watcher
    kill -TERM "$device_pid"
    next_line watcher
    expect "lost watch ends" "exit 3" "$LINE"
    expect "lost watch error" "chanlink: connection to 127.0.0.1:$PORT closed" \
        "$(cat "$work/watcher.err")"
    ;;

timeout)
    exec {silent_fd}< <(exec "$helper" silent-listener 20)
    background+=("$!")
    read -r -t 10 -u "$silent_fd" line || fail "the silent listener printed no port"
    PORT=${line#port }
    start=$SECONDS
    cli get 1 --timeout 300ms
    expect "timeout rc" 5 "$RC"
    expect "timeout error" "chanlink: no answer to the login within 300ms" "$ERR"
    cli watch 1 --timeout 0.3
    expect "watch timeout rc" 5 "$RC"
    cli push --timeout 300ms
    expect "push timeout rc" 5 "$RC"
    [ $((SECONDS - start)) -le 5 ] || fail "three 300 ms timeouts took $((SECONDS - start)) s"
    ;;

endless-frame)
    exec {endless_fd}< <(exec "$helper" endless-frame 20)
    background+=("$!")
    read -r -t 10 -u "$endless_fd" line || fail "the endless device printed no port"
    PORT=${line#port }
    cli watch 1 --max-frame 64K --timeout 10s
    expect "endless frame rc" 3 "$RC"
    expect "endless frame error" \
        "chanlink: the device sent a frame larger than 64 KiB; connection closed" "$ERR"
    ;;

usage)
    PORT=1
    cli get
    expect "no channel rc" 2 "$RC"
    expect "no channel error" "chanlink: ID is required (see chanlink --help)" "$ERR"
    cli frobnicate 1
    expect "unknown command rc" 2 "$RC"
    cli get 1 --timeout forever
    expect "bad timeout rc" 2 "$RC"
    cli --help
    expect "help rc" 0 "$RC"
    expect_match "help text" "Usage: chanlink \\[OPTIONS\\] COMMAND" "$OUT"
    ;;

tls)
    tls_setup
    start_device "${tls_device[@]}"
    cli --tls --ca "$certs/ca.pem" set 1 0A0B0C0D
    expect "set over TLS" "1 set to 0A0B0C0D" "$OUT"
    cli --tls --ca "$certs/ca.pem" watch 1 --count 1
    expect "watch over TLS" "1 0A0B0C0D" "$OUT"
    cli --tls --insecure get 1
    expect "--insecure" "0 chanlink: warning: --insecure: the device's certificate is not checked" \
        "$RC $ERR"
    cli --tls --ca "$certs/otherca.pem" get 1
    expect_match "wrong CA" "^3 chanlink: certificate verify failed: [^"$'\n'"]+$" "$RC $ERR"
    wait_for_log "closed before it was set up (failed handshake)"
    cli get 1
    expect "plain TCP to the TLS port" 3 "$RC"
    start_device "${tls_device[@]}" --tls-client-ca "$certs/ca.pem"
    cli --tls --ca "$certs/ca.pem" --cert "$certs/client.pem" --key "$certs/client.key" get 1
    expect "mutual TLS" "0 1 00000000" "$RC $OUT"
    cli --tls --ca "$certs/ca.pem" get 1
    expect_match "mutual TLS without a certificate" "^3 chanlink: .*certificate required" "$RC $ERR"
    ;;

hostile)
    tls_setup
    start_device "${tls_device[@]}" --login-timeout 1 --max-pending 2
    exec {idle}<>"/dev/tcp/127.0.0.1/$PORT" {second}<>"/dev/tcp/127.0.0.1/$PORT"
    wait_for_log "connection 2: opened"
    exec {third}<>"/dev/tcp/127.0.0.1/$PORT"  # none of them says hello
    wait_for_log "connection 3: dropped at once: 2 connections without a login (limit 2)"
    wait_for_log "connection 1: dropped without a login within 1000 ms"
    cli --tls --ca "$certs/ca.pem" get 1
    expect "an honest client after the idle ones" 0 "$RC"
    # A guesser sends five wrong logins at once over TLS: answered after 0,
    # 100, 300, 700 and 1500 ms at least (the delay doubles), then dropped.
    # An honest client is served meanwhile, long before the guesser's end.
    start_device "${tls_device[@]}"
    export LC_ALL=C
    start=${EPOCHREALTIME/./}
    exec {guesser}< <(printf '\xff\x0f\0\0\0\x09\x09\x07\x05\x05adminwrong\xfe%.0s' 1 2 3 4 5 |
                          exec openssl s_client -quiet -connect "127.0.0.1:$PORT" 2>/dev/null)
    background+=("$!")
    for k in 0 1 2 3 4; do
        read -r -d $'\xfe' -t 10 -u "$guesser" _ || fail "no answer $k to the guesser"
        ms[k]=$(((${EPOCHREALTIME/./} - start) / 1000))
        if [ "$k" == 2 ]; then
            cli --tls --ca "$certs/ca.pem" get 1 && honest=$(((${EPOCHREALTIME/./} - start) / 1000))
        fi
    done
    ((ms[1] >= 100 && ms[2] >= 300 && ms[3] >= 700 && ms[4] >= 1500)) || fail "answered at ${ms[*]} ms"
    ((${honest:-9999} < 1500)) || fail "the honest client ended at ${honest:-rc $RC} ms"
    wait_for_log "connection 1: dropped after 5 failed logins"
    ;;

secrets)
    # Every tool path that logs or fails, the password from every source.
    tls_setup
    start_device "${tls_device[@]}"
    cli --tls --ca "$certs/ca.pem" --json get 1 9999
    cli --tls --ca "$certs/ca.pem" --password-file "$work/password" set 2 00
    cli --tls --ca "$certs/ca.pem" --password "$password" get 1
    expect_match "--password warns" "^chanlink: warning: other users" "$ERR"
    CHANLINK_PASSWORD="$password-x" cli --tls --ca "$certs/ca.pem" get 1
    expect "wrong password" 4 "$RC"
    ERR=$(timeout 10 "$chanlink" --timeout 1 --host 192.0.2.1 get 1 2>&1 | tee -a "$work/all-cli-output")
    expect_match "plain text warning" "sending the password unencrypted to 192.0.2.1; use --tls" "$ERR"
    CHANLINK_DEVICE_PASSWORD=$password start_device --password "$password" --password-file "$work/password"
    wait_for_log "warning: other users of this machine can read --password"
    grep -Eq "^Max core file size +0 +0 " "/proc/$device_pid/limits" || fail "core dumps are on"
    kill -TERM "${background[@]}" && wait "${background[@]}"
    ! grep -F -- "$password" "$work/device.err" "$work/all-cli-output" ||
        fail "the password shows in the output above"
    ;;

*)
    fail "unknown scenario"
    ;;
esac
echo "ok [$scenario]"
