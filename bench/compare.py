#!/usr/bin/env python3
"""compare.py FOLDER [--json] ...: runs the programs of the job in FOLDER, library, floor and kernel in turn, each as a
process of its own, and prints what they cost and the ratios of the medians beside bar and aim."""
import argparse
import collections
import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile

SIDES = ["library", "floor", "kernel"]
SETS = [4, 16, 64]
GROUPS_END = 10000  # beyond, a block's base does not fit the 16 bits that a group has for it
KERNEL_END = 100000
GROWTH = (10000, 1000000)

# What each step is called, and the ratio of library over floor that it should stay below: bar and aim.
STEPS = {
    "new": ("new destination, new next hops and set", 6, 2.5),
    "known": ("new destination, known set", 4, 1.5),
    "change": ("change of one via, acknowledged", 6, 3),
    "withdraw": ("withdrawal to empty", 6, 3),
}
BYTES_BAR = (4, 2)
KERNEL_BAR = (10, 30)
GROWTH_BAR = (1.5, 1.1)
ROWS_BAR = (1.0, 1.0)

Case = collections.namedtuple("Case", "next_hops set groups")


class Runner:
    def __init__(self, folder):
        self.folder = pathlib.Path(folder)

    def arguments(self, side, case, *more):
        words = [str(self.folder / side), "--next-hops", str(case.next_hops), "--set", str(case.set), *more]
        return words if case.groups else words + ["--no-groups"]

    def run(self, side, case, *more):
        done = subprocess.run(self.arguments(side, case, *more), stdout=subprocess.PIPE, text=True)
        if done.returncode != 0:
            sys.exit(f"{side} failed: {' '.join(map(str, done.args))}")
        return json.loads(done.stdout)

    def counted(self, side, case):
        """Instructions per operation of each step, by callgrind."""
        with tempfile.TemporaryDirectory() as folder:
            words = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={folder}/out",
                     *self.arguments(side, case)]
            done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            if done.returncode != 0:
                sys.exit(f"{side} failed under callgrind: {done.stderr}")
            operations = {name: step["operations"] for name, step in json.loads(done.stdout)["steps"].items()}
            # The last dump of a name is the job's; those before are of the warming up.
            counts = {}
            dumps = sorted(pathlib.Path(folder).glob("out.*"), key=lambda path: int(path.suffix[1:]))
            for path in dumps:
                name, total = dump_of(path)
                if name in operations:
                    counts[name] = total / operations[name]
            return counts


def dump_of(path):
    """The step of one of callgrind's dumps, and its instructions."""
    name, total = None, 0
    with open(path) as file:
        for line in file:
            if line.startswith("desc: Trigger: Client Request:"):
                name = line.split(":")[-1].strip()
            elif line.startswith(("summary:", "totals:")):
                total = int(line.split()[1])
    return name, total


def cases(sizes):
    """A block is measured with a group where a group can name it, and without one where sizes are compared."""
    for size in sizes:
        for each in SETS:
            if size <= GROUPS_END:
                yield Case(size, each, True)
            if size > GROUPS_END or size == GROWTH[0]:
                yield Case(size, each, False)


class Results:
    def __init__(self):
        self.ns = collections.defaultdict(list)  # by side, case, step
        self.rows = {}
        self.bytes = {}  # by side, case
        self.instructions = {}  # by side, case, step
        self.not_measured = {}  # by side: why

    def take(self, side, case, result):
        if "notMeasured" in result:
            self.not_measured[side] = result["notMeasured"]
            return
        for step, cost in result["steps"].items():
            self.ns[side, case, step] += cost["ns"]
            self.rows[side, case, step] = cost["rows"]
            counted = [each for each in cost["instructions"] if each is not None]
            if counted:
                self.instructions[side, case, step] = statistics.median(counted)

    def median(self, *key):
        return statistics.median(self.ns[key]) if self.ns.get(key) else None

    def spread(self, *key):
        """How far apart the middle half of the samples is, over the median."""
        samples = self.ns[key]
        if len(samples) < 4:
            return (max(samples) - min(samples)) / statistics.median(samples)
        low, middle, high = statistics.quantiles(samples, n=4)
        return (high - low) / middle


def measured(options):
    runner, results = Runner(options.folder), Results()
    plan = [case for case in cases(options.sizes)]
    for turn in range(options.rounds):
        for case in plan:
            if turn >= 3 and case.next_hops > 100000:
                continue
            cycles = max(1, min(20, 30000 // case.next_hops))
            for side in SIDES:
                if side == "kernel" and (case.next_hops > KERNEL_END or "kernel" in results.not_measured or
                                         (not case.groups and case.next_hops <= GROUPS_END)):
                    continue
                note(f"round {turn + 1}: {side}, {case.next_hops} next hops in sets of {case.set}")
                results.take(side, case, runner.run(side, case, "--cycles", str(cycles)))
    for case in plan:
        for side in ["library", "floor"]:
            note(f"bytes: {side}, {case.next_hops} next hops in sets of {case.set}")
            results.bytes[side, case] = runner.run(side, case, "--bytes")["bytes"]
    if not results.instructions:
        for each in SETS:
            case = Case(options.count_at, each, True)
            for side in ["library", "floor"]:
                note(f"callgrind: {side}, {case.next_hops} next hops in sets of {case.set}")
                for step, count in runner.counted(side, case).items():
                    results.instructions[side, case, step] = count
    note("")
    return results


def note(text):
    if sys.stderr.isatty():
        print(f"\r{text:<78}", end="" if text else "\r", file=sys.stderr, flush=True)


def over(a, b):
    return None if a is None or not b else a / b


def line(what, case, unit, library, floor, kernel, ratio, bar, aim, instructions=(None, None), least=False):
    """One line of the table; with `least` a ratio should be at least bar and aim, not at most."""
    misses = lambda limit: ratio is not None and (ratio < limit if least else ratio > limit * 1.0005)
    verdict = "-" if ratio is None else "MISSED" if misses(bar) else "bar" if misses(aim) else "aim"
    return {"what": what, "nextHops": case.next_hops if case else None, "set": case.set if case else None,
            "groups": case.groups if case else None, "unit": unit, "library": library, "floor": floor,
            "kernel": kernel, "ratio": ratio, "bar": bar, "aim": aim, "verdict": verdict,
            "libraryInstructions": instructions[0], "floorInstructions": instructions[1],
            "instructionsRatio": over(*instructions)}


def lines_of(results, sizes):
    plan = list(cases(sizes))
    for step, (what, bar, aim) in STEPS.items():
        for case in plan:
            library, floor = results.median("library", case, step), results.median("floor", case, step)
            counts = [results.instructions.get((side, case, step)) for side in ["library", "floor"]]
            yield line(what, case, "ns", library, floor, None, over(library, floor), bar, aim, counts)
    for case in plan:
        if case.groups or case.next_hops > GROUPS_END:
            for part, what in [("nextHop", "bytes per next hop"), ("member", "bytes per member")]:
                library, floor = (results.bytes[side, case][part] for side in ["library", "floor"])
                yield line(what, case, "bytes", library, floor, None, over(library, floor), *BYTES_BAR)
    for case in plan:
        kernel = results.median("kernel", case, "new")
        library = results.median("library", case, "new")
        if case.next_hops <= KERNEL_END and (case.groups or case.next_hops > GROUPS_END):
            yield line("the same next hops and groups: kernel over library", case, "ns", library, None, kernel,
                       over(kernel, library), *KERNEL_BAR, least=True)
    if set(GROWTH) <= set(sizes):
        for step, (what, _, _) in STEPS.items():
            for each in SETS:
                grown = [over(*(results.median(side, Case(size, each, False), step) for size in reversed(GROWTH)))
                         for side in ["library", "floor"]]
                yield line(f"growth from 10^4 to 10^6: {what}", Case(GROWTH[1], each, False), "times",
                           *grown, None, over(*grown), *GROWTH_BAR)
    for case in plan:
        library, floor = (results.rows[side, case, "change"] for side in ["library", "floor"])
        yield line("rows written per change", case, "rows", library, floor, None, over(library, floor), *ROWS_BAR)


def shown(value, digits=0):
    return "-" if value is None else f"{value:,.{digits}f}"


def print_table(lines, results):
    red, plain = ("\033[31m", "\033[0m") if sys.stdout.isatty() else ("", "")
    head = (f"{'next hops':>9} {'set':>3}  {'library':>10} {'floor':>8} {'kernel':>8} {'unit':<5} {'ratio':>7}"
            f" {'bar':>5} {'aim':>5}  {'verdict':<7}  {'instructions':>12} {'floor':>7} {'ratio':>6}")
    what = None
    for each in lines:
        if each["what"] != what:
            what = each["what"]
            print(f"\n{what}\n{head}")
        digits = 0 if each["unit"] == "ns" else 1 if each["unit"] != "times" else 2
        bare = "" if each["groups"] or each["nextHops"] != GROUPS_END else "  without groups"
        missed = each["verdict"] == "MISSED"
        print(f"{red if missed else ''}{each['nextHops']:>9} {each['set']:>3}  {shown(each['library'], digits):>10} "
              f"{shown(each['floor'], digits):>8} {shown(each['kernel'], digits):>8} {each['unit']:<5} "
              f"{shown(each['ratio'], 2):>7} {each['bar']:>5} {each['aim']:>5}  {each['verdict']:<7}  "
              f"{shown(each['libraryInstructions']):>12} {shown(each['floorInstructions']):>7} "
              f"{shown(each['instructionsRatio'], 1):>6}{bare}{plain if missed else ''}")
    for side, reason in results.not_measured.items():
        print(f"\n{side}: not measured ({reason})")


def noise_of(results):
    spreads = sorted(results.spread(*key) for key in results.ns)
    return {"median": statistics.median(spreads), "worst": spreads[-1], "load": os.getloadavg()[0]}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folder", help="where the programs are")
    parser.add_argument("--json", action="store_true", help="print it all for machines")
    parser.add_argument("--sizes", type=int, nargs="+", default=[10**3, 10**4, 10**5, 10**6], metavar="N",
                        help="numbers of next hops")
    parser.add_argument("--rounds", type=int, default=5, help="how often each side has its turn; 3 at most at 10^6")
    parser.add_argument("--count-at", type=int, default=1000, metavar="N",
                        help="number of next hops for callgrind, where the machine counts no instructions")
    options = parser.parse_args()
    results = measured(options)
    lines, noise = list(lines_of(results, options.sizes)), noise_of(results)
    if options.json:
        json.dump({"lines": lines, "noise": noise, "notMeasured": results.not_measured}, sys.stdout, indent=1)
        print()
        return
    print("Each figure is per destination, or per next hop or member for bytes; medians, in processor time.")
    print_table(lines, results)
    missed = sum(each["verdict"] == "MISSED" for each in lines)
    print(f"\n{missed} of {len(lines)} lines miss their bar.")
    print(f"Noise: the middle half of a line's samples spans {noise['median']:.0%} of their median (half of the lines),"
          f" {noise['worst']:.0%} at the worst; load of the machine {noise['load']:.1f}.")


main()
