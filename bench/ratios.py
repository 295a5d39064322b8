#!/usr/bin/env python3
"""Prints the runtime's performance goals as measured in one benchmark run.

Reads the Google Benchmark JSON of fabvxlan-bench-runtime. With repetitions,
each benchmark's figure is its fastest repetition: on a shared machine the
noise only ever adds time.
"""

import json
import sys


def figures(path):
    with open(path) as f:
        runs = json.load(f)["benchmarks"]
    best = {}
    for run in runs:
        if run.get("run_type") == "aggregate":
            continue
        name = run["run_name"] if "run_name" in run else run["name"]
        best[name] = min(best.get(name, float("inf")), run["real_time"])
    return best, {r["run_name"]: r for r in runs if r.get("run_type") != "aggregate"}


def main(path):
    best, runs = figures(path)
    goals = [
        ("BM_ScalarAttrNotify/1 / BM_DirectVirtualCall", best["BM_ScalarAttrNotify/1"] / best["BM_DirectVirtualCall"], "<=", 3.0),
        ("BM_KeyedInsertDeleteNotify/1 / BM_StdUnorderedMapInsertErase",
         best["BM_KeyedInsertDeleteNotify/1"] / best["BM_StdUnorderedMapInsertErase"], "<=", 1.5),
        ("BM_BoostSignals2Emit/1 / BM_ScalarAttrNotify/1", best["BM_BoostSignals2Emit/1"] / best["BM_ScalarAttrNotify/1"], ">=", 5.0),
        ("BM_ClockRearmZero (ns)", best["BM_ClockRearmZero"], "<", 100.0),
    ]
    sizes = runs["BM_ReactorCollectionAddRemove"]
    goals.append(("sizeof reactor without attributes (bytes)", sizes["reactor_bytes"], "<=", 48))
    goals.append(("sizeof entity without attributes (bytes)", sizes["entity_bytes"], "<=", 128))
    failed = 0
    for name, value, op, limit in goals:
        ok = value <= limit if op == "<=" else value >= limit if op == ">=" else value < limit
        failed += not ok
        print(f"{'ok  ' if ok else 'MISS'} {name:66s} {value:8.2f} {op} {limit}")
    for name in sorted(best):
        print(f"     {name:66s} {best[name]:8.2f} ns")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
