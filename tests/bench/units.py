#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""How many simulated head units one machine carries at the same time.

  units.py --build BUILD wire N...   N units at the pace of a real bus, side by side, each against the
                                     least time that bus and chip allow
  units.py --build BUILD none N...   N units as fast as they go: units a minute
"""

import argparse
import concurrent.futures
import json
import os
import pathlib
import resource
import subprocess
import sys
import tempfile
import time

import bench
import measure


def update_seconds(bench_folder, pace, name):
    """Updates one unit, whose chip burns in no time. Returns what the update took."""
    run = subprocess.run(
        [bench_folder.program("bbpsim"), "--pace", pace, "--burn", "0,0,0", "bash", "-c",
         'TIMEFORMAT=%R; time "$0" "$1" >/dev/null', bench_folder.program("bbpflash"),
         bench_folder.image(bench.IMAGE)],
        check=True, capture_output=True, text=True, timeout=600, stdin=subprocess.DEVNULL)
    print(f"{name} ", end="", file=sys.stderr, flush=True)
    return float(run.stderr.split()[-1])


def side_by_side(bench_folder, pace, count):
    """Updates `count` units at the same time. Returns the figures by name."""
    bench_folder.image(bench.IMAGE)
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    begin = time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(count) as pool:
        units = [pool.submit(update_seconds, bench_folder, pace, number)
                 for number in range(count)]
        seconds = sorted(unit.result() for unit in units)
    wall = time.monotonic() - begin
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    print(file=sys.stderr)
    limit = bench.limit_us(bench.IMAGE) / 1e6
    cpu = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    return {
        "units": count,
        "fastest": seconds[0],
        "slowest": seconds[-1],
        "within_2_percent": sum(1 for unit in seconds if unit <= 1.02 * limit),
        "slowest_by_limit": seconds[-1] / limit,
        "units_a_minute": 60 * count / wall,
        "cpu_seconds_a_unit": cpu / count,
    }


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help="folder of the programs")
    parser.add_argument("--json", type=pathlib.Path, help="file for the figures")
    parser.add_argument("pace", choices=("wire", "none"))
    parser.add_argument("counts", type=int, nargs="+", metavar="N")
    options = parser.parse_args()
    figures = []
    print(f"load of the {os.cpu_count()} cores before: {os.getloadavg()[0]:.2f}")
    print(f"{'units':>6}{'fastest':>10}{'slowest':>10}{'by limit':>10}{'in 2 %':>8}"
          f"{'a minute':>10}{'CPU s a unit':>14}")
    with tempfile.TemporaryDirectory() as folder:
        bench_folder = measure.Bench(options.build.resolve(), folder)
        for count in options.counts:
            row = side_by_side(bench_folder, options.pace, count)
            figures.append(row)
            print(f"{count:6}{row['fastest']:10.2f}{row['slowest']:10.2f}"
                  f"{row['slowest_by_limit']:10.4f}{row['within_2_percent']:8}"
                  f"{row['units_a_minute']:10.1f}{row['cpu_seconds_a_unit']:14.3f}", flush=True)
    if options.json:
        options.json.write_text(json.dumps({"pace": options.pace, "units": figures}, indent=2) + "\n")


if __name__ == "__main__":
    main()
