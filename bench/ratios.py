#!/usr/bin/env python3
"""Prints the runtime's performance goals as measured in one benchmark run.

Reads the Google Benchmark JSON of fabvxlan-bench-runtime. With repetitions,
each benchmark's time is its fastest repetition: on a shared machine the
noise only ever adds time. The slowest single operation of the collections
is the median of its repetitions.
"""

import json
import statistics
import sys

NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
SMALL, LARGE = 65536, 1048576
# Each operation of Rxn::HashMap2018, and the absl::flat_hash_map benchmark
# whose growth in cost per key from 2^16 to 2^20 keys it is held to.
SCALING = ["InsertRandom", "EraseRandom", "LookupHit", "FillInOtherMapsOrder", "Copy", "DrainInWalkOrder"]
TABLES = [("Rxn::HashMap2018", "BM_Map"), ("absl::flat_hash_map", "BM_AbslMap"), ("std::unordered_map", "BM_StdUnorderedMap")]


def load(path):
    with open(path) as f:
        runs = [r for r in json.load(f)["benchmarks"] if r.get("run_type") != "aggregate"]
    best, repetitions = {}, {}
    for run in runs:
        name = run["run_name"].replace("/manual_time", "").replace("/iterations:1", "")
        time = run["real_time"] * NANOSECONDS[run.get("time_unit", "ns")]
        best[name] = min(best.get(name, float("inf")), time)
        repetitions.setdefault(name, []).append(run)
    return best, repetitions


def per_key(best, name, keys):
    return best[f"{name}/{keys}"] / keys


def counter_median(repetitions, name, counter):
    return statistics.median(run[counter] for run in repetitions[name])


def landed_goals(best, repetitions):
    sizes = repetitions["BM_ReactorCollectionAddRemove"][0]
    return [
        ("BM_ScalarAttrNotify/1 / BM_DirectVirtualCall", best["BM_ScalarAttrNotify/1"] / best["BM_DirectVirtualCall"], "<=", 3.0),
        ("BM_KeyedInsertDeleteNotify/1 / BM_StdUnorderedMapInsertErase",
         best["BM_KeyedInsertDeleteNotify/1"] / best["BM_StdUnorderedMapInsertErase"], "<=", 1.5),
        ("BM_BoostSignals2Emit/1 / BM_ScalarAttrNotify/1", best["BM_BoostSignals2Emit/1"] / best["BM_ScalarAttrNotify/1"], ">=", 5.0),
        ("BM_ClockRearmZero (ns)", best["BM_ClockRearmZero"], "<", 100.0),
        ("sizeof reactor without attributes (bytes)", sizes["reactor_bytes"], "<=", 48),
        ("sizeof entity without attributes (bytes)", sizes["entity_bytes"], "<=", 128),
    ]


def collection_goals(best, repetitions):
    goals = []
    for op in SCALING:
        ours = per_key(best, f"BM_Map{op}", LARGE) / per_key(best, f"BM_Map{op}", SMALL)
        absl = per_key(best, f"BM_AbslMap{op}", LARGE) / per_key(best, f"BM_AbslMap{op}", SMALL)
        goals.append((f"{op}: growth 2^16 to 2^20 / absl's ({ours:.2f} / {absl:.2f})", ours / absl, "<=", 1.25))
    for keys in (SMALL, LARGE):
        goals.append((f"FillInOtherMapsOrder / InsertRandom at {keys}",
                      best[f"BM_MapFillInOtherMapsOrder/{keys}"] / best[f"BM_MapInsertRandom/{keys}"], "<=", 2.0))
    for op in ("InsertRandom", "EraseRandom", "LookupHit"):
        goals.append((f"{op} at {LARGE} / absl", best[f"BM_Map{op}/{LARGE}"] / best[f"BM_AbslMap{op}/{LARGE}"], "<=", 1.5))
    goals.append((f"worst single operation at {LARGE} (us, median)",
                  counter_median(repetitions, f"BM_MapWorstOp/{LARGE}", "worst_op_us"), "<", 1000.0))
    for keys in (786432, LARGE):
        ours = counter_median(repetitions, f"BM_MapMemory/{keys}", "bytes_per_entry")
        absl = counter_median(repetitions, f"BM_MapMemory/{keys}", "absl_bytes_per_entry")
        goals.append((f"heap bytes per entry at {keys} (record 88)", ours, "<=", 176.0))
        goals.append((f"heap bytes per entry at {keys} / absl's ({absl:.1f})", ours / absl, "<=", 1.0))
    return goals


def collection_figures(best, repetitions):
    print(f"\n     {'cost per key (ns)':40s} {'2^16 keys':>10s} {'2^20 keys':>10s} {'growth':>7s}")
    for table, prefix in TABLES:
        for op in SCALING:
            name = f"{prefix}{op}"
            if f"{name}/{SMALL}" not in best:
                continue
            small, large = per_key(best, name, SMALL), per_key(best, name, LARGE)
            print(f"     {table + ' ' + op:40s} {small:10.1f} {large:10.1f} {large / small:7.2f}")
    for keys in (SMALL, LARGE):
        print(f"     worst single operation at {keys}: {counter_median(repetitions, f'BM_MapWorstOp/{keys}', 'worst_op_us'):.0f} us")


def main(path):
    best, repetitions = load(path)
    failed = 0
    for name, value, op, limit in landed_goals(best, repetitions) + collection_goals(best, repetitions):
        ok = value <= limit if op == "<=" else value >= limit if op == ">=" else value < limit
        failed += not ok
        print(f"{'ok  ' if ok else 'MISS'} {name:66s} {value:8.2f} {op} {limit}")
    collection_figures(best, repetitions)
    print()
    for name in sorted(best):
        print(f"     {name:66s} {best[name]:14.1f} ns")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
