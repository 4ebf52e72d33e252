#!/usr/bin/env python3
"""Runs the benchmarks five times and prints the medians beside the machine's triad bandwidth of the same run.

  ./dev bench [--filter REGEX] [--json FILE] [--against FILE]

--json keeps the medians; --against prints the ratio of this run to such a file (below 1 is faster)."""
import argparse
import json
import subprocess
import sys

PROGRAM = "build/release/bin/orlix_bench"


def run(pattern):
    command = [PROGRAM, "--benchmark_format=json", "--benchmark_repetitions=5", "--benchmark_min_time=0.1",
               f"--benchmark_filter={pattern}"]
    result = subprocess.run(command, stdout=subprocess.PIPE, check=False)
    if not result.stdout:
        sys.exit(f"{PROGRAM} printed nothing: exit {result.returncode}")
    return json.loads(result.stdout)["benchmarks"]


def medians(rows):
    found = {}
    for row in rows:
        if row.get("error_occurred"):
            sys.exit(f"{row['name']}: {row['error_message']}")
        if row.get("aggregate_name") == "median" or row.get("repetitions") == 1:
            found[row["run_name"]] = row
    return found


SCALE = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}
KNOWN = {"name", "run_name", "run_type", "repetitions", "repetition_index", "threads", "iterations", "real_time",
         "cpu_time", "time_unit", "aggregate_name", "aggregate_unit", "family_index", "per_family_instance_index",
         "items_per_second", "bytes_per_second", "label"}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--filter", default=".")
    parser.add_argument("--json")
    parser.add_argument("--against")
    options = parser.parse_args()
    before = json.load(open(options.against)) if options.against else {}
    kept = {}
    print(f"{'benchmark':58} {'ms':>10} {'M/s':>8} {'GB/s':>7}  more")
    for name, row in medians(run(options.filter + "|BM_Triad")).items():
        ms = row["real_time"] * SCALE[row["time_unit"]]
        kept[name] = ms
        items = f"{row['items_per_second'] / 1e6:8.1f}" if "items_per_second" in row else " " * 8
        moved = f"{row['bytes_per_second'] / 1e9:7.1f}" if "bytes_per_second" in row else " " * 7
        more = [f"{key} {value:.4g}" for key, value in row.items() if key not in KNOWN and isinstance(value, float)]
        if name in before:
            more.insert(0, f"ratio {ms / before[name]:.3f}")
        print(f"{name[:58]:58} {ms:10.3f} {items} {moved}  {row.get('label', '')} {', '.join(more)}")
    if options.json:
        with open(options.json, "w") as out:
            json.dump(kept, out, indent=1)


main()
