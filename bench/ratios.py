"""Print how many times longer each peer takes than the library.

    build/bench/bench/bench_vector_summary --benchmark_out=ours.json
    python3 bench/vector/numpy_peer.py >numpy.json
    python3 bench/ratios.py ours.json numpy.json

Reads what Google Benchmark writes. The last part of a name tells who did the work. Of repetitions
the shortest counts. Processor time is compared: other programs may run beside.
"""

import collections
import json
import sys

UNITS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}

times = collections.defaultdict(dict)
for path in sys.argv[1:]:
    with open(path, encoding="utf-8") as file:
        for run in json.load(file)["benchmarks"]:
            if run.get("run_type") == "aggregate" or run.get("error_occurred"):
                continue
            subject, _, who = run["name"].rpartition("/")
            time = run["cpu_time"] * UNITS[run["time_unit"]]
            times[subject][who] = min(time, times[subject].get(who, time))

peers = sorted({who for row in times.values() for who in row} - {"memblock"})
print(f"{'':36}{'memblock us':>14}" + "".join(f"{who:>10}" for who in peers))
for subject, row in times.items():
    if "memblock" in row:
        ours = row["memblock"]
        print(f"{subject:36}{ours / 1e3:14.3f}" + "".join(
            f"{row[who] / ours:10.2f}" if who in row else f"{'':10}" for who in peers))
