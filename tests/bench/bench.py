#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What the updater costs beyond the bus: as a table, as JSON, and as a gate against a baseline.

  bench.py table     all figures, of the updater and of the least program that could do the work
  bench.py gate      fails where a figure that does not depend on the machine left the baseline
  bench.py baseline  takes this build's figures as the baseline
  bench.py scale     the cost of a segment from the smallest images to the largest
"""

import argparse
import json
import pathlib
import statistics
import subprocess
import sys
import tempfile

import measure

BASELINE = pathlib.Path(__file__).with_name("baseline.json")

PAYLOAD = 2035            # bytes of an image in a segment
SEGMENT = 2048            # bytes of a segment on the bus
READ = 65                 # bytes of every read
COMMAND = 14              # bytes of a short command on the bus
BUS_HZ = 400000
IMAGE = 1 << 20           # bytes of the image that is measured
MORE = 512                # segments that the second image of a measurement has more
LARGEST = 133363723       # bytes: the most that the segments' numbers take

# What the bus counts that is the same in every run.
BUS_COUNTS = ("locks_and_unlocks", "writes", "reads", "bytes_written", "bytes_read", "sleeps",
              "slept_us", "resets")

INSTRUCTION_TOLERANCE = 0.02
RUNS = 5


def segments(size):
    return -(-(size + 1) // PAYLOAD)


def wire_us(transfers, size):
    """The bus's time for transfers of `size` bytes in all: address, acknowledge bits, conditions."""
    return (9 * (size + transfers) + 2 * transfers) * 1e6 / BUS_HZ


def query_us(wait):
    return wire_us(1, COMMAND) + wait + wire_us(1, READ)


def download_us(size):
    """The least time in which an image can be sent: what the bus and the chip's wait take."""
    count = segments(size)
    sent = size + 1 + 13 * count
    return wire_us(count, sent) + count * 750 + wire_us(count, READ * count)


def limit_us(size):
    """The least time of a run whose chip has burnt the image when it is asked first."""
    reset = 200e3 + 3000e3 + query_us(5000)
    return reset + query_us(5000) + download_us(size) + 350e3 + query_us(1000) + reset


def spent_us(counts):
    """The time of a run on a bus that takes its time, when the program itself takes none."""
    return (wire_us(counts["writes"], counts["bytes_written"]) +
            wire_us(counts["reads"], counts["bytes_read"]) + counts["slept_us"])


def costs(bench, name, *options):
    """The costs of a run with a usual image, and of a segment."""
    smaller = bench.profile(name, IMAGE, *options)
    larger = bench.profile(name, IMAGE + MORE * PAYLOAD, *options)
    return smaller, larger.per_segment(smaller)


def status_system_calls(bench, plain):
    """System calls of a segment with -s: the percentages are written beside what it costs alone."""
    more = bench.profile("bbpflash", IMAGE, "-s").costs["system_calls"]
    return (more - plain.costs["system_calls"]) / segments(IMAGE)


def gated(bench):
    """The figures that are the same wherever this compiler's programs run."""
    run, segment = costs(bench, "bbpflash")
    exact = {f"{name} of a run": run.counts[name] for name in BUS_COUNTS}
    for name in (*BUS_COUNTS, "heap_bytes", "allocations", "file_reads"):
        exact[f"{name} of a segment"] = round(segment[name], 3)
    exact["time of a run over the limit"] = round(spent_us(run.counts) / limit_us(IMAGE), 4)
    near = {"own instructions of a run": run.costs["own_instructions"],
            "own instructions of a segment": round(segment["own_instructions"])}
    return {"exact": exact, "instructions": near}


def gate(bench):
    expected, found = json.loads(BASELINE.read_text(encoding="utf-8")), gated(bench)
    bad = []
    for kind, tolerance in (("exact", 0), ("instructions", INSTRUCTION_TOLERANCE)):
        for name in expected[kind] | found[kind]:
            before, now = expected[kind].get(name), found[kind].get(name)
            print(f"{name:38} {before} {now}")
            if None in (before, now) or abs(now - before) > tolerance * before:
                bad.append(f"{name}: {now} where the baseline has {before}")
    for line in bad:
        print(f"bench: {line}", file=sys.stderr)
    if bad:
        print("bench: what is meant to change goes into the baseline: ./dev bench baseline",
              file=sys.stderr)
    return bool(bad)


def checksum(instructions, program):
    """Instructions for each byte of a segment's checksum."""
    few, many = (instructions(program, str(rounds)) for rounds in (1, 21))
    return (many - few) / 20 / (SEGMENT - 1)


def emulated_segment(arm, name, *options):
    """Instructions for a segment on 32-bit ARM; the bus's few are among them."""
    few, many = (measure.emulated(arm.program(name), *options, arm.image(count * PAYLOAD),
                                  preload=arm.bus) for count in (64, 128))
    return (many - few) / 64


def median(measure_once):
    return statistics.median(measure_once() for _ in range(RUNS))


def undisturbed():
    """What goes in front of a command to run it before all other work, where that is allowed."""
    first = ("chrt", "--fifo", "1")
    allowed = subprocess.run([*first, "true"], check=False, stderr=subprocess.DEVNULL)
    return first if allowed.returncode == 0 else ()


def paced_download_us(bench):
    """The time of a download on a bus that takes its time."""
    run = bench.run("bbpflash", IMAGE, under=undisturbed(), paced=True)
    return run.counts["download_us"]


def simulated_run_us(bench):
    """The time of a run on the simulated head unit, whose chip burns in no time."""
    run = subprocess.run(
        [*undisturbed(), bench.program("bbpsim"), "--burn", "0,0,0", "bash", "-c",
         'TIMEFORMAT=%R; time "$0" "$1" >/dev/null', bench.program("bbpflash"),
         bench.image(IMAGE)], check=True, capture_output=True, text=True)
    return float(run.stderr.split()[-1]) * 1e6


def stripped(program, strip):
    with tempfile.NamedTemporaryFile() as file:
        subprocess.run([strip, "-o", file.name, program], check=True)
        return pathlib.Path(file.name).stat().st_size


class Table:
    """Figures by name: the updater's, the floor's and the most that it may be."""

    def __init__(self):
        self.rows = {}
        print(f"{'':46}{'updater':>12}{'floor':>12}{'at most':>12}")

    def add(self, name, value, floor=None, limit=None, digits=0):
        def text(number):
            return "" if number is None else f"{number:,.{digits}f}"

        self.rows[name] = {"updater": value, "floor": floor, "at most": limit}
        over = limit is not None and round(value, 4) > limit
        print(f"{name:46}{text(value):>12}{text(floor):>12}{text(limit):>12}"
              f"{'  OVER' if over else ''}", flush=True)


def call_rows(rows, run, segment, least):
    """What the program asks of the system."""
    def bus_calls(cost):
        return cost["locks_and_unlocks"] + cost["writes"] + cost["reads"]

    rows.add("time of a run / limit, virtual time",
             spent_us(run.counts) / limit_us(IMAGE), limit=1.0, digits=4)
    rows.add("bus calls of a segment", bus_calls(segment), bus_calls(least), bus_calls(least))
    rows.add("waits of a segment", segment["sleeps"], least["sleeps"], least["sleeps"])
    rows.add("other system calls of a segment", segment["system_calls"], least["system_calls"],
             0.6, digits=2)


def cost_rows(rows, bench):
    """What the program spends itself."""
    run, segment = costs(bench, "bbpflash")
    least_run, least = costs(bench, "bench_floor")
    call_rows(rows, run, segment, least)
    rows.add("other system calls of a segment, -s",
             segment["system_calls"] + status_system_calls(bench, run), limit=0.75, digits=2)
    rows.add("heap allocations of a segment", segment["allocations"], least["allocations"], 3)
    rows.add("heap bytes kept for a segment", segment["heap_bytes"], least["heap_bytes"])
    rows.add("instructions of a segment", segment["instructions"], least["instructions"], 2500)
    rows.add("  of which in the program's own code", segment["own_instructions"],
             least["own_instructions"])
    rows.add("instructions of a run, from main on", run.costs["instructions"],
             least_run.costs["instructions"], 1.4e6)
    rows.add("instructions before main", bench.start_up("bbpflash"), bench.start_up("bench_floor"))
    rows.add("checksum, instructions a byte, x86-64",
             checksum(measure.counted, bench.program("bench_checksum")), limit=0.5, digits=2)

    def cpu(name):
        return median(lambda: bench.run(name, IMAGE).cpu_ms)

    def peak(name):
        return bench.run(name, IMAGE).counts["peak_kib"]

    rows.add("processor time of a run, ms", cpu("bbpflash"), cpu("bench_floor"), digits=1)
    rows.add("peak memory of a run, KiB", peak("bbpflash"), peak("bench_floor"))
    rows.add("stripped program, bytes, x86-64", stripped(bench.program("bbpflash"), "strip"),
             stripped(bench.program("bench_floor"), "strip"))


def arm_rows(rows, arm):
    """The same for 32-bit ARM, where the difference is worth a word."""
    strip = "arm-linux-gnueabihf-strip"
    rows.add("stripped program, bytes, armhf", stripped(arm.program("bbpflash"), strip),
             stripped(arm.program("bench_floor"), strip), 36000)
    rows.add("instructions of a segment, armhf", emulated_segment(arm, "bbpflash", "-f"),
             emulated_segment(arm, "bench_floor"))
    rows.add("checksum, instructions a byte, armhf",
             checksum(measure.emulated, arm.program("bench_checksum")), limit=2.5, digits=2)
    rows.add("checksum, instructions a byte, armhf NEON",
             checksum(measure.emulated, arm.program("bench_checksum_neon")), limit=0.5, digits=2)


def real_time_rows(rows, bench):
    rows.add("time of a download / limit, real time",
             median(lambda: paced_download_us(bench)) / download_us(IMAGE), limit=1.005, digits=4)
    rows.add("time of a run / limit, simulated head unit",
             median(lambda: simulated_run_us(bench)) / limit_us(IMAGE), digits=4)


def table(bench, arm, real_time):
    rows = Table()
    cost_rows(rows, bench)
    if arm is not None:
        arm_rows(rows, arm)
    if real_time:
        real_time_rows(rows, bench)
    return rows.rows


def scale(bench):
    """A segment's cost where images are small and where they are as large as they can be."""
    rows = []
    print(f"{'bytes':>12}{'segments':>10}{'instructions':>14}{'allocations':>13}"
          f"{'heap bytes':>12}{'system calls':>14}{'peak KiB':>10}")
    for size in (256 << 10, 1 << 20, 4 << 20, 16 << 20, 64 << 20, LARGEST):
        # Forced: the smallest images have no label.
        smaller, larger = (bench.profile("bbpflash", each, "-f") for each in
                           (size - size // 16, size))
        segment = larger.per_segment(smaller)
        peak = bench.run("bbpflash", size, "-f").counts["peak_kib"]
        rows.append({"bytes": size, "segments": segments(size), "peak_kib": peak} | segment)
        print(f"{size:12,}{segments(size):10,}{segment['instructions']:14,.0f}"
              f"{segment['allocations']:13.2f}{segment['heap_bytes']:12.1f}"
              f"{segment['system_calls']:14.2f}{peak:10,}", flush=True)
    return rows


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="folder of the programs")
    parser.add_argument("--armhf", type=pathlib.Path, help="folder of the 32-bit ARM programs")
    parser.add_argument("--json", type=pathlib.Path, help="file for the figures")
    parser.add_argument("--real-time", action="store_true",
                        help="also download at the bus's pace, which takes minutes")
    parser.add_argument("what", choices=("table", "gate", "baseline", "scale"))
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        bench = measure.Bench(options.build.resolve(), folder)
        arm = options.armhf and measure.Bench(options.armhf.resolve(), folder)
        if options.what == "gate":
            return gate(bench)
        figures = {"baseline": lambda: gated(bench), "scale": lambda: scale(bench),
                   "table": lambda: table(bench, arm, options.real_time)}[options.what]()
        target = BASELINE if options.what == "baseline" else options.json
        if target is not None:
            target.write_text(json.dumps(figures, indent=4) + "\n", encoding="utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main())
