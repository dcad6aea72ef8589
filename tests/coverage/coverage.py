#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Sums up the counts that the suites left, writes an HTML report, and fails below 100 per cent.

Each place of the core that no test reaches is named with its file and line.
"""

import argparse
import json
import pathlib
import subprocess
import sys

KINDS = {"lines": "line", "branches": "branch", "mcdc": "MC/DC"}
THRESHOLD = 100


def run(*command):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True,
                          text=True).stdout


def unreached_lines(file):
    """The first line of each region of code that was never executed."""
    return {line for line, _, count, counted, begins, gap in file["segments"]
            if counted and begins and not gap and count == 0}


def unreached_branches(file):
    """(line, column, outcome) of each condition that never had that outcome."""
    for line, column, _, _, true_count, false_count, *_ in file["branches"]:
        if true_count == 0:
            yield line, column, "never true"
        if false_count == 0:
            yield line, column, "never false"


def unreached_conditions(file):
    """(line, column, number) of each condition never shown to decide its decision on its own."""
    for line, column, *_, independent in file["mcdc_records"]:
        for number, covered in enumerate(independent, 1):
            if not covered:
                yield line, column, f"condition {number} never decides"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("llvm-cov", "llvm-profdata", "program", "sources", "folder"):
        parser.add_argument(f"--{name}", type=pathlib.Path, required=True)
    args = parser.parse_args()

    raw = sorted((args.folder / "raw").glob("*.profraw"))
    if not raw:
        sys.exit("no suite has left its counts")
    profile = args.folder / "all.profdata"
    run(args.llvm_profdata, "merge", "-sparse", "-o", profile, *raw)
    common = [args.program, f"-instr-profile={profile}", f"-compilation-dir={args.sources}"]
    run(args.llvm_cov, "show", *common, "-format=html", "-show-branches=count", "-show-mcdc",
        "-show-mcdc-summary", f"-output-dir={args.folder / 'html'}")
    print(run(args.llvm_cov, "report", *common, "-show-branch-summary", "-show-mcdc-summary"))
    data = json.loads(run(args.llvm_cov, "export", *common))["data"][0]

    for file in data["files"]:
        name = pathlib.Path(file["filename"]).relative_to(args.sources)
        if file["summary"]["functions"]["count"] == 0:
            continue
        for line in sorted(unreached_lines(file)):
            print(f"{name}:{line}: not executed")
        for line, column, what in (*unreached_branches(file), *unreached_conditions(file)):
            print(f"{name}:{line}:{column}: {what}")
    for kind, name in KINDS.items():
        print(f"{name} coverage: {data['totals'][kind]['percent']:.2f} %")
    print(f"HTML report: {args.folder / 'html' / 'index.html'}")
    if any(data["totals"][kind]["percent"] < THRESHOLD for kind in KINDS):
        sys.exit(f"below {THRESHOLD} %")


if __name__ == "__main__":
    main()
