#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Breaks a copy of the simulator and the tools in one place after the other and runs their suites.

Each block of sim.txt and tools.txt is a breakage. One that no suite notices, or only by not coming to
its end, survives, and the status is 1. The copy and its build are below build/mutants.
"""

import argparse
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).parent
ROOT = HERE.resolve().parents[1]
TREE = ROOT / "build" / "mutants" / "tools"
BUILD = TREE / "build" / "release"
# A broken program may loop for ever: this long, or so many times as long as without a breakage.
SUITE_SECONDS = 60
SUITE_TIMES = 4
HUNG = 124

PROGRAMS = ["bbp_programs", "bus_client"]

# Of each set the suites that are quick, and those that run whole programs in real time.
SETS = {
    "sim": (["unit_sim", "unit_sim_host"], ["system_update", "system_bench"]),
    "tools": (["tools_stream", "tools_image", "tools_watch"], ["tools_bbpimage", "tools_bbpwatch"]),
}


class Mutant:
    """One breakage: in `file`, `old` is replaced by `new`."""

    def __init__(self, kind, lines):
        self.kind, self.name, self.file = kind, lines[0], lines[1]
        self.old, self.new = (line[2:].replace("<nl>", "\n") for line in lines[2:4])
        # As it is now: it may change while the breakages are tried.
        path = ROOT / self.file
        self.text = path.read_text() if path.exists() else ""

    def is_stale(self):
        return self.text.count(self.old) != 1

    def apply(self):
        (TREE / self.file).write_text(self.text.replace(self.old, self.new))

    def undo(self):
        (TREE / self.file).write_text(self.text)


def read_mutants():
    for kind in SETS:
        for block in (HERE / f"{kind}.txt").read_text().split("\n\n"):
            lines = [line for line in block.splitlines() if line and not line.startswith("#")]
            if lines:
                yield Mutant(kind, lines)


def run(command, seconds=None):
    """The status of the command; HUNG when it took too long, and what it has started is ended."""
    # One test that notices is enough.
    variables = {**os.environ, "GTEST_FAIL_FAST": "1"}
    with subprocess.Popen(command, cwd=TREE, env=variables, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL, start_new_session=True) as process:
        try:
            return process.wait(seconds)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            return HUNG


def build(targets):
    return run(["cmake", "--build", str(BUILD), "--parallel", "1", "--target", *targets]) == 0


def prepare():
    """Copies what is known to git, and builds without optimisation: that is what takes the time."""
    shutil.rmtree(TREE, ignore_errors=True)
    names = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, stdout=subprocess.PIPE, text=True,
                           check=True).stdout.split("\0")
    for name in filter(None, names):
        (TREE / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(ROOT / name, TREE / name)
    subprocess.run(["cmake", "--preset", "release", "-DCMAKE_CXX_FLAGS_RELEASE=-O0"], cwd=TREE,
                   stdout=subprocess.DEVNULL, check=True)


def program(suite):
    return [str(BUILD / "tests" / "bin" / suite)]


def measure():
    """The seconds that each suite may take. It must be green without a breakage."""
    limits = {}
    for quick, slow in SETS.values():
        if not build([*quick, *slow, *PROGRAMS]):
            sys.exit("the suites cannot be built")
        for suite in [*quick, *slow]:
            begin = time.monotonic()
            if run(program(suite)) != 0:
                sys.exit(f"{suite} is red without any breakage")
            limits[suite] = max(SUITE_SECONDS, SUITE_TIMES * (time.monotonic() - begin))
    return limits


def see(suites, limits):
    """Whether one of the suites fails: "yes", "no", or "hung" where one only does not end."""
    answer = "no"
    for suite in suites:
        status = run(program(suite), limits[suite])
        if status not in (0, HUNG):
            return "yes"
        if status == HUNG:
            answer = "hung"
    return answer


def judge(mutant, limits):
    """Who notices: "quick", "slow", "compiler", nobody; or it is "hung"."""
    quick, slow = SETS[mutant.kind]
    mutant.apply()
    try:
        if not build(quick):
            return "compiler"
        seen = see(quick, limits)
        if seen == "yes":
            return "quick"
        if not build([*slow, *PROGRAMS]):
            return "compiler"
        seen_late = see(slow, limits)
        if seen_late == "yes":
            return "slow"
        return "hung" if "hung" in (seen, seen_late) else "nobody"
    finally:
        mutant.undo()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("names", nargs="*", help="only the breakages whose name has one of these")
    options = parser.parse_args()
    chosen = [mutant for mutant in read_mutants()
              if not options.names or any(name in mutant.name for name in options.names)]
    stale = [mutant.name for mutant in chosen if mutant.is_stale()]
    for name in stale:
        print(f"stale: {name}")
    prepare()
    limits = measure()
    seen = {}
    for mutant in chosen:
        if not mutant.is_stale():
            seen[mutant.name] = judge(mutant, limits)
            print(f"{mutant.kind:5} {mutant.name:66} {seen[mutant.name]}", flush=True)
    survivors = [name for name, who in seen.items() if who not in ("quick", "slow")]
    print(f"{len(seen)} breakages, {len(stale)} stale, {len(survivors)} survive: "
          f"{', '.join(survivors) or 'none'}")
    return 1 if survivors or stale else 0


if __name__ == "__main__":
    sys.exit(main())
