#!/usr/bin/env bash
# chanlink and chanlink-device over TLS, against hostile clients, and with a
# password that must never show, one scenario per call:
#
#   security.sh SCENARIO CHANLINK DEVICE MAKE-CERTS
#
# Scenarios: tls, refused, hostile, secrets. Every device listens on a port
# the system chose; every wait is bounded (timeout, read -t, wait_for_log).
set -uo pipefail

scenario=$1
chanlink=$2
device=$3
make_certs=$4

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

mkdir "$work/certs" && bash "$make_certs" "$work/certs" || fail "cannot make certificates"
certs=$work/certs
password='Zq7-not-in-any-log'
printf '%s\n' "$password" >"$work/password"

# start_device [OPTION...]: starts chanlink-device on a free port; sets PORT.
start_device() {
    exec {device_fd}< <(exec "$device" --port 0 --host 127.0.0.1 "$@" 2>>"$work/device.err")
    background+=($!)
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

# wait_for_log TEXT: until the device's log has a line containing TEXT (10 s).
wait_for_log() {
    for _ in $(seq 100); do
        grep -qF -- "$1" "$work/device.err" && return 0
        sleep 0.1
    done
    fail "the device never logged '$1'"
}

tls_device=(--tls-cert "$certs/device.pem" --tls-key "$certs/device.key"
    --password-file "$work/password")
export CHANLINK_PASSWORD=$password

case "$scenario" in
tls)
    start_device "${tls_device[@]}"
    cli --tls --ca "$certs/ca.pem" set 1 0A0B0C0D
    [ "$RC" -eq 0 ] || fail "set over TLS: exit $RC: $ERR"
    cli --tls --ca "$certs/ca.pem" get 1
    [ "$RC" -eq 0 ] && [[ $OUT == *"0A0B0C0D"* ]] || fail "get over TLS: exit $RC: $OUT $ERR"
    cli --tls --ca "$certs/ca.pem" watch 1 --count 1
    [ "$RC" -eq 0 ] && [ -n "$OUT" ] || fail "watch over TLS: exit $RC: $ERR"
    cli get 1  # plain TCP to a TLS-only port
    [ "$RC" -ne 0 ] || fail "plain TCP was served on the TLS port"
    cli --tls --insecure get 1
    [ "$RC" -eq 0 ] && [[ $ERR == *"--insecure"* ]] || fail "--insecure: exit $RC, '$ERR'"
    ;;
refused)
    start_device "${tls_device[@]}" --tls-client-ca "$certs/ca.pem"
    cli --tls --ca "$certs/ca.pem" --cert "$certs/client.pem" --key "$certs/client.key" get 1
    [ "$RC" -eq 0 ] || fail "mutual TLS with a certificate: exit $RC: $ERR"
    cli --tls --ca "$certs/ca.pem" get 1
    [ "$RC" -eq 3 ] || fail "mutual TLS without a certificate: exit $RC: $ERR"
    cli --tls --ca "$certs/otherca.pem" get 1
    [ "$RC" -eq 3 ] && [ "$(wc -l <"$work/cli.err")" -eq 1 ] &&
        [[ $ERR == "chanlink: certificate verify failed: "* ]] || fail "wrong CA: exit $RC, '$ERR'"
    wait_for_log "closed before it was set up (failed handshake)"
    ;;
hostile)
    start_device "${tls_device[@]}" --login-timeout 1 --max-pending 2
    exec {idle}<>"/dev/tcp/127.0.0.1/$PORT"  # opens TCP, never says hello
    exec {second}<>"/dev/tcp/127.0.0.1/$PORT"
    wait_for_log "connection 2: opened"
    exec {third}<>"/dev/tcp/127.0.0.1/$PORT"
    wait_for_log "connection 3: dropped at once: 2 connections without a login (limit 2)"
    wait_for_log "connection 1: dropped without a login within 1000 ms"
    cli --tls --ca "$certs/ca.pem" get 1  # served once the idle ones are gone
    [ "$RC" -eq 0 ] || fail "an honest client after the idle ones: exit $RC: $ERR"
    exec {idle}>&- {second}>&- {third}>&-
    ;;
secrets)
    # Every tool path that logs or fails, with the password from every source.
    start_device "${tls_device[@]}"
    cli --tls --ca "$certs/ca.pem" get 1
    cli --tls --ca "$certs/ca.pem" --json get 1 9999
    cli --tls --ca "$certs/ca.pem" --password-file "$work/password" set 2 00
    cli --tls --ca "$certs/ca.pem" --password "$password" get 1
    [[ $ERR == *"warning"* ]] || fail "no warning for --password: '$ERR'"
    CHANLINK_PASSWORD="$password-wrong" cli --tls --ca "$certs/ca.pem" get 1
    [ "$RC" -eq 4 ] || fail "a wrong password: exit $RC"
    cli --tls --ca "$certs/otherca.pem" get 1
    timeout 10 "$chanlink" --timeout 1 --host 192.0.2.1 get 1 >>"$work/all-cli-output" \
        2>"$work/cli.err"
    ERR=$(cat "$work/cli.err")
    cat "$work/cli.err" >>"$work/all-cli-output"
    [[ $ERR == *"sending the password unencrypted to 192.0.2.1"* ]] ||
        fail "no plain-text warning: '$ERR'"
    CHANLINK_DEVICE_PASSWORD=$password start_device --password "$password"
    grep -q "warning" "$work/device.err" || fail "no warning for the device's --password"
    kill -TERM "${background[@]}" 2>/dev/null
    wait "${background[@]}" 2>/dev/null
    if grep -F -- "$password" "$work/device.err" "$work/all-cli-output"; then
        fail "the password shows in the output above"
    fi
    ;;
*)
    fail "unknown scenario"
    ;;
esac
exit 0
