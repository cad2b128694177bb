"""Gets per second from Python (Client.get) against the same loop in C++,
both against one in-process Device, in one run.

    PYTHONPATH=build/release/python python3 python/bench/get_rate.py [GETS] [ROUNDS]

Rounds alternate Python and C++; the medians and their ratio are printed.
"""
import statistics
import sys
import time

import chanlink
from chanlink._chanlink import _reference_get_loop

gets = int(sys.argv[1]) if len(sys.argv) > 1 else 20000
rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 5
python_rates, cpp_rates = [], []
with chanlink.Device([chanlink.Channel(1)]) as device:
    with chanlink.Client("127.0.0.1", device.port, "admin", "secret") as client:
        for _ in range(rounds):
            start = time.perf_counter()
            for _ in range(gets):
                client.get(1)
            python_rates.append(gets / (time.perf_counter() - start))
            seconds = _reference_get_loop("127.0.0.1", device.port, "admin", "secret", 1, gets)
            if seconds <= 0:
                sys.exit("the C++ loop failed")
            cpp_rates.append(gets / seconds)

python_rate, cpp_rate = statistics.median(python_rates), statistics.median(cpp_rates)
print(f"Python Client.get:          {python_rate:10.0f} gets/s")
print(f"C++ blockingGet (same run): {cpp_rate:10.0f} gets/s")
print(f"Python / C++:               {python_rate / cpp_rate:10.2f}")
