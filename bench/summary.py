#!/usr/bin/env python3
"""summary.py FILE...: from Google Benchmark's JSON files, prints how the hash map compares with the better of two
others, what a message of the ring trace costs, and what a copy of a counted pointer costs beside an increment."""
import collections
import json
import statistics
import sys

OPERATIONS = ["find-hit", "find-miss", "insert", "erase", "iterate"]
SIZES = [1000, 100000, 1000000]
MESSAGES = ["no arguments", "two integers", "a text"]


def medians(paths):
    """The median processor time of each benchmark's repetitions, in nanoseconds."""
    times = collections.defaultdict(list)
    for path in paths:
        with open(path) as file:
            for run in json.load(file)["benchmarks"]:
                if run["run_type"] == "iteration" and not run.get("error_occurred"):
                    times[run["run_name"]].append(run["cpu_time"])
    return {name: statistics.median(each) for name, each in times.items()}


def ratio(times, ours, others):
    """How many times the best of the others ours takes; None where one was not run."""
    if ours not in times or not all(other in times for other in others):
        return None
    return times[ours] / min(times[other] for other in others)


def shown(value, unit=""):
    return "-" if value is None else f"{value:.2f}{unit}"


def main():
    times = medians(sys.argv[1:])
    print("Hash map: time over the best of std::unordered_map and absl::flat_hash_map")
    print("  " + " " * 10 + "".join(f"{size:>10}" for size in SIZES))
    for operation in OPERATIONS:
        ratios = [ratio(times, f"{operation}/ours/{size}", [f"{operation}/{other}/{size}" for other in ("std", "absl")])
                  for size in SIZES]
        print(f"  {operation:<10}" + "".join(f"{shown(each):>10}" for each in ratios))
    print("Ring trace, each message")
    for message in MESSAGES:
        print(f"  {message:<12}{shown(times.get('mirelog/' + message), ' ns'):>12}")
    print("Counted pointer: time of a copy and its end over an increment and a decrement of memory")
    print(f"  {shown(ratio(times, 'pointer/copy', ['pointer/increment']))}")


main()
