# Sourced by the scripts that run the real programs (tools_integration.sh,
# bridge_integration.sh, scripts/soak.sh), with $device set to chanlink-device:
# a work directory and background processes that go at the end, failing with
# the logs, bounded waits, and a device on a port the system chose.
work=$(mktemp -d)
pids=() stopped=()
cleanup() {
    # A stopped process takes its SIGTERM once continued. Only those get
    # SIGCONT: it would discard the SIGSTOP with which LeakSanitizer, in
    # sanitizer builds, stops a program that is ending, and hang it.
    kill -TERM "${pids[@]}" 2>/dev/null || :
    kill -CONT "${stopped[@]}" 2>/dev/null || :
    wait "${pids[@]}" 2>/dev/null || :
    rm -rf "$work"
}
trap cleanup EXIT

fail() {  # fail MESSAGE: says why, with the end of every log, and ends the test
    echo "FAIL${scenario:+ [$scenario]}: $*" >&2
    for log in "$work"/*.err "$work"/*.log; do
        [ -s "$log" ] && { echo "--- $log" && tail -n 30 "$log"; } >&2
    done
    exit 1
}
expect() { [ "$2" == "$3" ] || fail "$1: expected '$2', got '$3'"; }  # WHAT EXPECTED ACTUAL
expect_match() { [[ $3 =~ $2 ]] || fail "$1: '$3' does not match '$2'"; }  # WHAT REGEX ACTUAL

until_true() {  # until_true SECONDS WHAT COMMAND...: runs COMMAND until it succeeds
    local deadline=$((SECONDS + $1)) what="$2 (waited $1 s)"
    shift 2
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] || fail "$what"
        sleep 0.05
    done
}
# wait_for TEXT [FILE]: until FILE (the device's log) holds TEXT.
wait_for() { until_true 10 "'$1' never showed in ${2:-the device log}" grep -qF -- "$1" "${2:-$work/device.err}"; }

# start_device [OPTION...]: chanlink-device on $HOST (empty: every address)
# and $DEVICE_PORT (0 by default: the system's choice); sets PORT and device_pid.
HOST=127.0.0.1
start_device() {
    exec {device_fd}< <(exec "$device" --port "${DEVICE_PORT:-0}" ${HOST:+--host "$HOST"} "$@" \
                            2>>"$work/device.err")
    device_pid=$!
    pids+=("$device_pid")
    local line
    read -r -t 10 -u "$device_fd" line || fail "the device printed no port"
    [[ $line =~ ^port\ ([0-9]+)$ ]] || fail "the device's first line is '$line'"
    PORT=${BASH_REMATCH[1]}
}

stop_device() {  # stop_device SIGNAL: the device ends with status 0 within 5 s
    kill -"$1" "$device_pid"
    read -r -t 5 -u "$device_fd" _
    expect "end of the device's output after SIG$1" 1 "$?"
    wait "$device_pid"
    expect "device's exit status after SIG$1" 0 "$?"
}
