#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Breaks a copy of the updater in one place after the other and runs the suites on it.

Each line of mutants.txt is a breakage. One that no suite notices survives, and the status is 1.
The copy and its build are below build/mutants; options choose some of the breakages.
"""

import argparse
import pathlib
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
TREE = ROOT / "build" / "mutants" / "tree"
BUILD = TREE / "build" / "release"
MUTANTS = pathlib.Path(__file__).with_name("mutants.txt")
COPIED = ["CMakeLists.txt", "CMakePresets.json", "cmake", "common", "docs", "packaging", "sim", "src",
          "tests", "tools"]
# A broken program may loop for ever.
ENGINE_SECONDS = 600
SUITE_SECONDS = 60
RUN_SUITES = ["whole"]


class Mutant:
    """One breakage: in `file`, `old` is replaced by `new`."""

    def __init__(self, name, file, old, new):
        self.name, self.file, self.old, self.new = name, file, old, new

    def source(self):
        return TREE / "src" / self.file

    def broken(self):
        """The source's text with the breakage in it."""
        text = (ROOT / "src" / self.file).read_text()
        if text.count(self.old) != 1:
            raise SystemExit(f"{self.name}: \"{self.old}\" stands {text.count(self.old)} times "
                             f"in {self.file}, not once")
        return text.replace(self.old, self.new)

    def apply(self):
        self.source().write_text(self.broken())

    def undo(self):
        shutil.copyfile(ROOT / "src" / self.file, self.source())


def read_mutants():
    mutants = []
    for block in MUTANTS.read_text().split("\n\n"):
        lines = [line for line in block.splitlines() if line and not line.startswith("#")]
        if not lines:
            continue
        name, file, old, new = lines[0], lines[1], lines[2], lines[3]
        mutants.append(Mutant(name, file, old[2:].replace("<nl>", "\n"),
                              new[2:].replace("<nl>", "\n")))
    return mutants


def misfits(mutants):
    """The breakages that the compiler would find."""
    for mutant in mutants:
        done = subprocess.run(["c++", "-std=c++11", "-Isrc", "-fsyntax-only", "-x", "c++", "-"],
                              cwd=ROOT, input=mutant.broken(), text=True, stderr=subprocess.PIPE,
                              check=False)
        if done.returncode != 0:
            yield f"{mutant.name}: {done.stderr}"


def run(command, seconds):
    """The status of the command; 124 when it took too long."""
    try:
        return subprocess.run(command, cwd=TREE, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=seconds, check=False).returncode
    except subprocess.TimeoutExpired:
        return 124


def build(*targets):
    done = subprocess.run(["cmake", "--build", str(BUILD), "--target", *targets], cwd=TREE,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        sys.exit(done.stdout[-3000:])


def prepare():
    for name in COPIED:
        source, copy = ROOT / name, TREE / name
        if source.is_dir():
            shutil.rmtree(copy, ignore_errors=True)
            shutil.copytree(source, copy)
        else:
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, copy)
    # An earlier run may have left a broken object behind, newer than the sound source.
    for source in (TREE / "src").rglob("*.cpp"):
        source.touch()
    subprocess.run(["cmake", "--preset", "release"], cwd=TREE, stdout=subprocess.DEVNULL,
                   check=True)


def engine_sees(every):
    return run([str(BUILD / "tests/bin/fault_engine"), "--every", str(every), "--first"],
               ENGINE_SECONDS) != 0


def runs_see():
    return any(run([str(BUILD / f"tests/bin/run_{suite}")], SUITE_SECONDS) != 0
               for suite in RUN_SUITES)


def unit_targets():
    listed = subprocess.run(["cmake", "--build", str(BUILD), "--target", "help"], cwd=TREE,
                            stdout=subprocess.PIPE, text=True, check=True).stdout
    names = {line.split(":")[0] for line in listed.splitlines()}
    return sorted(name for name in names if name.startswith("unit_") and not name.startswith("unit_sim"))


def units_see():
    status = run(["ctest", "--test-dir", str(BUILD), "-R", "/unit/[^s]", "--stop-on-failure",
                  "--timeout", str(SUITE_SECONDS)], ENGINE_SECONDS)
    return status != 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("names", nargs="*", help="only the breakages whose name has one of these")
    parser.add_argument("--every", type=int, default=40, help="the engine makes each such run")
    parser.add_argument("--check", action="store_true",
                        help="only whether each breakage fits the sources")
    options = parser.parse_args()
    if options.check:
        found = list(misfits(read_mutants()))
        print("\n".join(found), end="")
        return 1 if found else 0
    prepare()
    suites = [f"run_{suite}" for suite in RUN_SUITES]
    build("fault_engine", *suites)
    if engine_sees(options.every) or runs_see():
        sys.exit("the suites are red without any breakage")

    survivors = []
    chosen = [mutant for mutant in read_mutants()
              if not options.names or any(name in mutant.name for name in options.names)]
    print(f"{'breakage':58} {'engine':>7} {'runs':>7} {'units':>7}", flush=True)
    for mutant in chosen:
        start = time.time()
        mutant.apply()
        build("fault_engine", *suites)
        engine, runs = engine_sees(options.every), runs_see()
        units = None
        if not engine and not runs:
            build(*unit_targets())
            units = units_see()
        mutant.undo()
        words = ["red" if seen else "-" if seen is None else "green"
                 for seen in (engine, runs, units)]
        print(f"{mutant.name:58} {words[0]:>7} {words[1]:>7} {words[2]:>7} "
              f"{time.time() - start:5.0f} s", flush=True)
        if not engine and not runs and not units:
            survivors.append(mutant.name)
    print(f"{len(chosen)} breakages, {len(survivors)} survive: {', '.join(survivors) or 'none'}")
    return 1 if survivors else 0


if __name__ == "__main__":
    sys.exit(main())
