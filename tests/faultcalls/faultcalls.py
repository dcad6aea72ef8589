#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every system call of bbpimage, bbpsim and bbpwatch fails once, in every way its manual names.

A run's id is SCENARIO/CALL@N:HOW: the Nth call of that name, in each thread, fails with an error,
is carried out in part (HALF), or a signal comes in it.
"""

import argparse
import collections
import concurrent.futures
import os
import pathlib
import subprocess
import sys
import tempfile
import traceback

import image
import simulator
import watching
from catalogue import Fault, all_faults
from running import Tools, counts, run, run_folder


def all_scenarios():
    return [*image.scenarios(), *simulator.scenarios(), *watching.scenarios()]


def make_materials(tools):
    full = 457 * 2035 - 1  # with a command's byte before it, as many full segments
    for name, label, size in (("old.bin", "1.0.0", 930000), ("new.bin", "2.0.0", 930000),
                              ("full.bin", "1.0.0", full)):
        subprocess.run([tools.programs / "bbpimage", "make", "--force", "--version", label, "--size",
                        str(size), tools.materials / name], check=True)


def learn(tools, scenario):
    """Runs the scenario without a fault, and returns every fault that it can meet."""
    with run_folder() as folder:
        seen = run(tools, scenario, None, folder)
        scenario.learn(seen)
        return all_faults(counts(folder / "trace"), scenario.signals)


def try_fault(tools, scenario, fault, keep=None):
    """Returns whether the fault happened, and the verdict."""
    with run_folder() as folder:
        try:
            seen = run(tools, scenario, fault, folder)
            if keep:
                keep(seen)
            verdict = scenario.judge(seen)
        except (OSError, ValueError) as error:
            raise RuntimeError(f"{scenario.name}/{fault}: {error}") from error
        return bool(seen.struck), verdict


def replay(tools, scenarios, run_id):
    name, fault = run_id.split("/", 1)
    scenario = next((one for one in scenarios if one.name == name), None)
    if scenario is None:
        sys.exit(f"no scenario {name}; there are {' '.join(one.name for one in scenarios)}")
    learn(tools, scenario)

    def show(seen):
        print(f"--- standard output\n{seen.out}--- standard error\n{seen.err}--- the call")
        print(seen.struck or "(no such call)")
    _, verdict = try_fault(tools, scenario, Fault.parse(fault), show)
    print(f"--- {verdict.outcome}")
    for wrong in verdict.wrong:
        print(f"wrong: {wrong}")
    return 1 if verdict.wrong else 0


class Tally:
    """The counts of a campaign, and its findings."""

    def __init__(self):
        self.runs = 0
        self.unmet = 0
        self.kinds = collections.Counter()
        self.outcomes = collections.Counter()
        self.findings = []

    def take(self, scenario, fault, met, verdict):
        program = scenario.name.split("-")[0]
        if not met:
            self.unmet += 1
        else:
            self.runs += 1
            self.kinds[program, fault.kind()] += 1
            self.outcomes[program, verdict.outcome] += 1
        for wrong in verdict.wrong:
            self.findings.append(f"{scenario.name}/{fault}")
            print(f"FAILED {scenario.name}/{fault}: {wrong}", flush=True)

    def show(self):
        print(f"runs {self.runs}")
        print(f"never met {self.unmet}")
        for title, table in (("kind", self.kinds), ("outcome", self.outcomes)):
            for (program, what), count in sorted(table.items()):
                print(f"{title}\t{program}\t{what}\t{count}")
        print(f"wrong {len(set(self.findings))}", flush=True)


def campaign(tools, scenarios, options):
    tally = Tally()
    plan = [(scenario, fault) for scenario in scenarios for fault in learn(tools, scenario)]
    chosen = plan[options.offset::options.every]
    print(f"{len(plan)} faults, {len(chosen)} chosen", flush=True)
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        runs = {pool.submit(try_fault, tools, *one): one for one in chosen}
        for done in concurrent.futures.as_completed(runs):
            try:
                tally.take(*runs[done], *done.result())
            except RuntimeError:
                traceback.print_exc()
                tally.findings.append("the sweep itself")
    tally.show()
    if tally.runs < options.at_least:
        sys.exit(f"only {tally.runs} runs, not {options.at_least}")
    return 1 if tally.findings else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help="the build's folder")
    parser.add_argument("--scenario", action="append", help="only those whose name begins so")
    parser.add_argument("--replay", metavar="ID", help="make one run and show it")
    parser.add_argument("--every", type=int, default=1, help="make each such run")
    parser.add_argument("--offset", type=int, default=0, help="the first that is made")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--at-least", type=int, default=1, help="fewer runs are a failure")
    options = parser.parse_args()
    scenarios = [one for one in all_scenarios() if not options.scenario or
                 any(one.name.startswith(name) for name in options.scenario)]
    with tempfile.TemporaryDirectory(prefix="faultcalls.") as materials:
        build = options.build.resolve()
        tools = Tools(build / "bin", build / "tests" / "bin", pathlib.Path(materials))
        make_materials(tools)
        if options.replay:
            return replay(tools, scenarios, options.replay)
        return campaign(tools, scenarios, options)


if __name__ == "__main__":
    sys.exit(main())
