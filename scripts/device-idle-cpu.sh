#!/usr/bin/env bash
# CPU time an idle chanlink-device uses over 5 s (no clients), from the
# kernel's own accounting (/proc/PID/schedstat: nanoseconds on a CPU).
# Usage: scripts/device-idle-cpu.sh DEVICE [OPTION...]
set -euo pipefail
device=$1
shift
"$device" --port 0 "$@" >/dev/null 2>&1 &
pid=$!
trap 'kill -TERM "$pid" 2>/dev/null || true' EXIT
sleep 1  # let it start; the measurement is of the idle state only
read -r run0 _ < "/proc/$pid/schedstat"
switches0=$(awk '/ctxt_switches/ {s += $2} END {print s}' "/proc/$pid/status")
sleep 5
read -r run1 _ < "/proc/$pid/schedstat"
switches1=$(awk '/ctxt_switches/ {s += $2} END {print s}' "/proc/$pid/status")
awk -v ns=$((run1 - run0)) -v wakes=$((switches1 - switches0)) 'BEGIN {
    printf "on-CPU time in 5 s: %.2f ms (%.4f %% of one core), %d wake-ups\n",
        ns / 1e6, ns / 5e9 * 100, wakes }'
