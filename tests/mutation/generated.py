#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Breaks a copy of the updater by generated mutants and runs the unit and run tests on each.

A mutant is one small change of src: a constant, a comparison, an operator, a text, a deleted
statement. One that no test notices survives; the status is 1 when more than one in a hundred does.
Those that change nothing that can be observed stand in equivalent.txt, with the reason.
Only what a mutant changes is compiled; the tests are always those of the sound program.
"""

import argparse
import filecmp
import json
import os
import pathlib
import re
import resource
import shlex
import shutil
import subprocess
import sys

import generate

ROOT = pathlib.Path(__file__).resolve().parents[2]
EQUIVALENT = pathlib.Path(__file__).with_name("equivalent.txt")
COPIED = ["CMakeLists.txt", "CMakePresets.json", "cmake", "common", "docs", "packaging", "sim",
          "src", "tests", "tools"]
TESTS = r"(unit_(?!sim|common)\w+|run_\w+)"
CPU_SECONDS = 10
MEMORY = 4 << 30
# A mutant may wait for what never comes; a busy machine must not look like that.
WALL_SECONDS = 300
SURVIVING_PERCENT = 1.0
LINK_SECONDS = 0.3  # about what it takes to link a test
# As with the sanitizers, a test sees an index behind the end of an array.
BOUNDS = "-fsanitize=bounds -fsanitize-undefined-trap-on-error"
# What nearly every source reads first, read once.
COMMON_HEADERS = ["algorithm", "new", "string", "vector"]


class Equivalents:
    """The mutants that are known to change nothing, and which of them were met."""

    def __init__(self):
        self.reasons = {}
        self.met = set()
        for block in EQUIVALENT.read_text().split("\n\n"):
            lines = [line for line in block.splitlines() if not line.startswith("#")]
            if lines:
                self.add(lines)

    def add(self, lines):
        file, reason = lines[0], " ".join(line[2:] for line in lines if line.startswith("= "))
        old = [line[2:] for line in lines if line.startswith("- ")]
        new = [line[2:] for line in lines if line.startswith("+ ")]
        if len(old) not in (1, 2) or not new or not reason:
            sys.exit(f"{EQUIVALENT.name}: no block of a file, a line, what it becomes, a reason: "
                     f"{lines}")
        for line in new:
            self.reasons[(file, tuple(old), line)] = reason

    def knows(self, file, before, old, new):
        """Whether the change is listed, by the line itself or with the one before it."""
        keys = {(file, (old,), new), (file, (before, old), new)}
        self.met |= keys
        return not keys.isdisjoint(self.reasons)

    def report_gone(self):
        """Whether a listed mutant is none of those that were met."""
        gone = sorted(set(self.reasons) - self.met)
        for file, old, new in gone:
            print(f"{EQUIVALENT.name}: {file} has no such mutant any more: {old[-1]} -> {new}")
        return bool(gone)


def copy_changed(source, copy):
    """Copies a file that differs, with the time of now: it is newer than what was built of it."""
    if not pathlib.Path(copy).exists() or not filecmp.cmp(source, copy, shallow=False):
        shutil.copy(source, copy)


class Workshop:
    """The copy of the project in which the mutants are built."""

    def __init__(self):
        self.tree = ROOT / "build" / "mutants" / "generated"
        self.build = self.tree / "build"
        self.seconds = {}  # of each test
        self.seen = {}     # by file: how many mutants each test has seen

    def prepare(self):
        for name in COPIED:
            source, copy = ROOT / name, self.tree / name
            if source.is_dir():
                shutil.copytree(source, copy, copy_function=copy_changed, dirs_exist_ok=True)
            elif source.exists():
                self.tree.mkdir(parents=True, exist_ok=True)
                copy_changed(source, copy)
        self.call("cmake", "-S", str(self.tree), "-B", str(self.build), "-G", "Ninja",
                  "-DBBP_PRESET=mutants", "-DCMAKE_BUILD_TYPE=Debug",
                  "-DCMAKE_CXX_FLAGS=-O0 -g0 " + BOUNDS, "-DCMAKE_CXX_FLAGS_DEBUG=",
                  "-DBBP_WERROR=OFF", "-DBBP_TOOLS=OFF", "-DBBP_SIM=OFF", "-DBBP_TESTS=ON",
                  "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold")
        self.go_by_times()
        listed = self.call("ninja", "-C", str(self.build), "-t", "targets", "all")
        self.tests = re.findall(rf"^{TESTS}: phony$", listed, re.MULTILINE)
        # An earlier run may have ended with a mutant's object in place.
        for source in (self.tree / "src").rglob("*.cpp"):
            source.touch()
        self.call("ninja", "-C", str(self.build), *self.tests)
        entries = json.loads((self.build / "compile_commands.json").read_text())
        self.units = [entry for entry in entries
                      if pathlib.Path(entry["file"]).is_relative_to(self.tree / "src")]
        self.precompile()
        for unit in self.units:
            unit["depends"] = self.depends(unit)

    def call(self, *command):
        done = subprocess.run(command, cwd=self.tree, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode != 0:
            sys.exit(f"{' '.join(command)}\n{done.stdout[-3000:]}")
        return done.stdout

    def go_by_times(self):
        """Makes ninja take an object that it has not made itself, where it would compile again."""
        rules = self.build / "CMakeFiles" / "rules.ninja"
        rules.write_text(rules.read_text().replace("  deps = gcc\n", ""))

    def precompile(self):
        header = self.tree / "common_headers.h"
        header.write_text("".join(f"#include <{name}>\n" for name in COMMON_HEADERS))
        words = shlex.split(self.units[0]["command"])
        options = [word for word in words if word.startswith(("-D", "-f", "-g", "-O", "-std"))]
        subprocess.run(["g++", *options, "-x", "c++-header", str(header), "-o", f"{header}.gch"],
                       check=True)
        for unit in self.units:
            unit["command"] += f" -w -include {header}"

    def depends(self, unit):
        command = re.sub(r" -o \S+", "", unit["command"]) + " -MM"
        made = subprocess.run(command, shell=True, cwd=unit["directory"], stdout=subprocess.PIPE,
                              text=True, check=True).stdout
        source = str(self.tree / "src") + "/"
        return {word[len(source):] for word in made.split() if word.startswith(source)}

    def object_of(self, unit):
        return self.build / re.search(r" -o (\S+)", unit["command"]).group(1)

    def compiles(self, file):
        """Makes the objects of all units that read the file; ninja must not know that it changed."""
        for unit in self.units:
            if file in unit["depends"] and subprocess.run(
                    unit["command"], shell=True, cwd=unit["directory"], stdout=subprocess.DEVNULL,
                    stderr=subprocess.DEVNULL, check=False).returncode != 0:
                return False
        return True

    def links(self, test):
        return subprocess.run(["ninja", "-C", str(self.build), test], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False).returncode == 0

    def is_green(self, test):
        """Whether the test, which is linked, passes."""
        command = [str(self.build / "tests" / "bin" / test), "--gtest_fail_fast", "--gtest_brief=1"]
        try:
            return subprocess.run(command, cwd=self.build, stdin=subprocess.DEVNULL,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                  preexec_fn=limit, timeout=WALL_SECONDS,
                                  check=False).returncode == 0
        except subprocess.TimeoutExpired:
            return False

    def red_test(self, file):
        """A test that fails, None when all pass. What is quick and saw much before is asked first,
        at the beginning what has the name of the file's folder.

        "invalid" when a test cannot be linked.
        """
        folder = file.partition("/")[0]
        seen = self.seen.setdefault(
            file, {test: 1.0 if folder in test else 0.1 for test in self.tests})
        for test in sorted(self.tests,
                           key=lambda name: -seen[name] / (self.seconds[name] + LINK_SECONDS)):
            if not self.links(test):
                return "invalid"
            if not self.is_green(test):
                seen[test] += 1
                return test
        return None

    def check_tests(self):
        """All tests pass on the sound program; how long they take decides their order."""
        for test in self.tests:
            start = processor_seconds()
            if not self.is_green(test):
                sys.exit(f"{test} is red without any mutant")
            self.seconds[test] = processor_seconds() - start

    def meet(self, file, mutant):
        """What becomes of a mutant: "invalid", the name of a test that fails, or None."""
        path = self.tree / "src" / file
        times = path.stat()
        sound = path.read_text()
        units = [unit for unit in self.units if file in unit["depends"]]
        objects = {self.object_of(unit): self.object_of(unit).read_bytes() for unit in units}
        path.write_text(generate.apply(sound, mutant))
        os.utime(path, ns=(times.st_atime_ns, times.st_mtime_ns))
        try:
            return self.red_test(file) if self.compiles(file) else "invalid"
        finally:
            path.write_text(sound)
            os.utime(path, ns=(times.st_atime_ns, times.st_mtime_ns))
            for place, content in objects.items():
                place.write_bytes(content)


def processor_seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def limit():
    resource.setrlimit(resource.RLIMIT_CPU, (CPU_SECONDS, CPU_SECONDS))
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def chosen(options):
    """The mutants that were asked for, as (file, text, mutant)."""
    files = sorted(path.relative_to(ROOT / "src").as_posix() for path in (ROOT / "src").rglob("*")
                   if path.suffix in (".h", ".cpp"))
    made = []
    for file in files:
        text = (ROOT / "src" / file).read_text()
        made += [(file, text, mutant) for mutant in generate.mutants_of(text)]
    made = [one for index, one in enumerate(made) if index % options.every == options.first]
    if options.names:
        made = [one for one in made if any(name in one[0] for name in options.names)]
    return made


def as_lines(text, mutant):
    """The line that the mutant changes: its number, the line before, itself, what it becomes."""
    number, old = generate.line_of(text, mutant.where)
    changed = generate.apply(text, mutant)
    before = text.split("\n")[number - 2].strip() if number > 1 else ""
    return number, before, old, generate.line_of(changed, mutant.where)[1]


def judge(workshop, known, mutants):
    """How many of the mutants have which fate; those that survive are printed."""
    counts = {"invalid": 0, "equivalent": 0, "killed": 0, "survives": 0}
    for file, text, mutant in mutants:
        number, before, old, new = as_lines(text, mutant)
        if known.knows(file, before, old, new):
            counts["equivalent"] += 1
            continue
        test = workshop.meet(file, mutant)
        fate = "survives" if test is None else "invalid" if test == "invalid" else "killed"
        counts[fate] += 1
        if fate == "survives":
            print(f"{file}:{number}: {mutant.kind}\n- {old}\n+ {new}", flush=True)
    return counts


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("names", nargs="*", help="only files whose name has one of these")
    parser.add_argument("--every", type=int, default=1, help="only each such mutant")
    parser.add_argument("--first", type=int, default=0, help="of these, from this one on")
    parser.add_argument("--check", action="store_true",
                        help="only see that what equivalent.txt lists are still mutants")
    options = parser.parse_args()
    known = Equivalents()
    if options.check:
        for file, text, mutant in chosen(options):
            known.knows(file, *as_lines(text, mutant)[1:])
        return 1 if known.report_gone() else 0
    # Each object is made once: remembering it would only take time.
    os.environ["CCACHE_DISABLE"] = "1"
    workshop = Workshop()
    workshop.prepare()
    workshop.check_tests()
    counts = judge(workshop, known, chosen(options))
    judged = counts["killed"] + counts["survives"]
    percent = 100.0 * counts["survives"] / max(judged, 1)
    print(f"{judged} mutants, {counts['survives']} survive ({percent:.1f} %); "
          f"{counts['equivalent']} are equivalent, {counts['invalid']} do not compile")
    if options.every == 1 and not options.names and known.report_gone():
        return 1
    return 1 if judged == 0 or percent > SURVIVING_PERCENT else 0


if __name__ == "__main__":
    sys.exit(main())
