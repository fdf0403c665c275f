#!/usr/bin/env python3
"""Runs rokbench (or reads its JSON) and prints one table: rokIP time, OpenCV
time, memcpy bound, and the ratios rok/cv and rok/memcpy, with geometric means.

Usage: report.py BUILD_DIR [extra rokbench arguments, e.g. --benchmark_filter=Add]

Each timing is the median of three repetitions (pass --benchmark_repetitions=N
to change it), so one disturbed repetition does not decide a ratio.
"""
import json
import math
import subprocess
import sys
from collections import defaultdict


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build-bench"
    cmd = [f"{build}/bench/rokbench", "--benchmark_format=json", "--benchmark_min_time=0.1",
           "--benchmark_repetitions=3", "--benchmark_report_aggregates_only=true"] + sys.argv[2:]
    data = json.loads(subprocess.run(cmd, check=True, capture_output=True, text=True).stdout)
    times = defaultdict(dict)
    errors = []
    for b in data["benchmarks"]:
        if b.get("aggregate_name", "median") != "median":
            continue
        name = b.get("run_name", b["name"]).removesuffix("/real_time")  # added by UseRealTime()
        case, _, impl = name.rpartition("/")
        if b.get("error_occurred"):
            errors.append(f"{case}: {b.get('error_message')}")
            continue
        times[case][impl] = b["real_time"]
    print(f"{'case':52} {'rok us':>10} {'cv us':>10} {'memcpy us':>10} {'rok/cv':>7} {'rok/mem':>8}")
    vs_cv, vs_mem = [], []
    for case, t in times.items():
        if "rok" not in t or "cv" not in t:
            continue
        rc = t["rok"] / t["cv"]
        vs_cv.append(rc)
        mem_case = case.rsplit("/", 1)[0] + "/t1"
        mem = times.get(mem_case, {}).get("memcpy")
        rm = ""
        if mem and case.endswith("/t1"):
            vs_mem.append(t["rok"] / mem)
            rm = f"{t['rok'] / mem:8.2f}"
        mem_text = f"{mem:10.1f}" if mem else f"{'':10}"
        print(f"{case:52} {t['rok']:10.1f} {t['cv']:10.1f} {mem_text} {rc:7.2f} {rm:>8}")

    def geo(xs):
        return math.exp(sum(math.log(x) for x in xs) / len(xs)) if xs else float("nan")

    print(f"geometric mean rok/cv: {geo(vs_cv):.2f} over {len(vs_cv)} cases; "
          f"rok/memcpy at 1 thread: {geo(vs_mem):.2f} over {len(vs_mem)} cases")
    for e in errors:
        print("ERROR " + e)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
