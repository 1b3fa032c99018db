#!/usr/bin/env python3
"""files.py OUT OPERATIONS: instructions per operation in one of callgrind's dumps, by the part of the library whose
files they come from, so that inlined code counts where it was written. The job makes its dumps so:
valgrind --tool=callgrind --callgrind-out-file=OUT build/release/bench/job/library --next-hops 1000 --set 16
numbers them, and says in its output how many operations each step has."""
import collections
import re
import sys

# The first that fits counts.
PARTS = [
    ("memory", r"Pool|new_allocator|alloc_traits|allocated_ptr|unique_ptr|malloc"),
    ("hardware table", r"HwTable|RowWords|WriteResponse"),
    ("reference counts", r"Ptr\.(h|cpp)|Object\.(h|cpp)"),
    ("hashes and look-ups", r"Hash|HandleCollection"),
    ("accessor and handles", r"Accessor|TableEntryHandle|SwTable|Leaving|AllSteps|ResponseHandler|TableCore"),
    ("ring trace", r"trace/|clock_gettime"),
    ("model chip and loop", r"chip/|ReactionLoop"),
    ("observers", r"Notifiee"),
    ("index allocation", r"Allocator|IndexSource|IndexBitmap|RunMap"),
    ("merged table", r"L3NextHop2Table|MergedTable"),
    ("programmer, vias, entries", r"programmer/|types/|EntryB|EgrL3|Via"),
    ("waiting entries", r"Unresolved|Waiting"),
    ("the standard library", r"c\+\+|/string/"),
]


def costs_by_file(path):
    """Callgrind names a file once and numbers it from then on; the line after a call is what the call cost."""
    names, costs, file, is_call = {}, collections.Counter(), None, False
    with open(path) as lines:
        for line in lines:
            named = re.match(r"(c?f[ile])=\((\d+)\)(?: (.*))?$", line)
            if named:
                kind, number, name = named.groups()
                if name:
                    names[number] = name
                if not kind.startswith("c"):
                    file = names.get(number, "?")
            elif line.startswith("calls="):
                is_call = True
            elif re.match(r"[-+*\d]\S* \d+", line):
                if not is_call:
                    costs[file] += int(line.split()[1])
                is_call = False
    return costs


def main():
    path, operations = sys.argv[1], float(sys.argv[2])
    costs = costs_by_file(path)
    parts = collections.Counter()
    for file, cost in costs.items():
        parts[next((part for part, files in PARTS if re.search(files, file)), "the rest")] += cost
    print(f"{'all':<28}{sum(costs.values()) / operations:>10,.0f}")
    for part, cost in parts.most_common():
        print(f"{part:<28}{cost / operations:>10,.0f}")


main()
