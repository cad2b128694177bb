#!/usr/bin/env python3
"""Prints ratios between benchmarks of one chanlink_bench run.

Usage: chanlink_bench --benchmark_format=json | bench/ratios.py
Ratios taken from a single run are what to compare: the machine is shared.
"""
import json
import sys

run = json.load(sys.stdin)
rate = {b["name"]: b.get("bytes_per_second") for b in run["benchmarks"]}
time = {b["name"]: b["real_time"] for b in run["benchmarks"]}


def show(label, value):
    print(f"{label:<58} {value:8.3f}")


memcpy = rate.get("BM_Memcpy/1048576")
for name in ("BM_Encode/1048576", "BM_Decode/1048576/2097152", "BM_Decode/1048576/1024"):
    if memcpy and rate.get(name):
        show(f"{name} GB/s", rate[name] / 1e9)
        show(f"{name} / memcpy", rate[name] / memcpy)
whole, chunked = time.get("BM_Decode/1048576/2097152"), time.get("BM_Decode/1048576/1024")
if whole and chunked:
    show("1 MiB frame: time in 1024-byte pieces / time in one piece", chunked / whole)
for small, large in (("BM_GetResponseBuild/1", "BM_GetResponseBuild/100"),
                     ("BM_GetResponseRead/1", "BM_GetResponseRead/100")):
    if small in time and large in time:
        show(f"{large} / {small} (per-message cost, 100 vs 1 values)", time[large] / time[small])
session, raw = (time.get(name + "/real_time_median", time.get(name + "/real_time"))
                for name in ("BM_RoundTripSessionGet", "BM_RoundTripRawPingPong"))
if session and raw:
    show("get round trip: raw ping-pong time / session get time", raw / session)
# With --benchmark_repetitions, the medians.
def pick(name):
    return time.get(name + "_median", time.get(name))


tcp, tls = pick("BM_GetRoundTrip/0"), pick("BM_GetRoundTrip/1")
if tcp and tls:
    show("get round trip: TLS / plain TCP (target <= 1.5)", tls / tcp)
if pick("BM_TlsHandshake"):
    show("TLS handshake, ms", pick("BM_TlsHandshake") / 1e6)
