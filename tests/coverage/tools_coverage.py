#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Tells how many lines of the simulator and the tools the suites reach, file by file.

It names every place that none reaches and fails below the goal for all of them together.
"""

import argparse
import json
import pathlib
import sys

from coverage import run, unreached_lines

GOAL = 95  # per cent of lines
MEASURED = ("common/", "sim/", "tools/")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for name in ("llvm-cov", "llvm-profdata", "sources", "folder"):
        parser.add_argument(f"--{name}", type=pathlib.Path, required=True)
    parser.add_argument("programs", nargs="+", type=pathlib.Path)
    args = parser.parse_args()

    raw = sorted((args.folder / "raw").glob("*.profraw"))
    if not raw:
        sys.exit("no suite has left its counts")
    profile = args.folder / "tools.profdata"
    # A process that a test kills may leave half a file.
    run(args.llvm_profdata, "merge", "-sparse", "-failure-mode=all", "-o", profile, *raw)
    objects = [word for program in args.programs[1:] for word in ("-object", program)]
    exported = run(args.llvm_cov, "export", args.programs[0], *objects,
                   f"-instr-profile={profile}", f"-compilation-dir={args.sources}")

    covered = count = 0
    for file in json.loads(exported)["data"][0]["files"]:
        path = pathlib.Path(file["filename"])
        if not path.is_relative_to(args.sources):
            continue
        name = str(path.relative_to(args.sources))
        if not name.startswith(MEASURED):
            continue
        lines = file["summary"]["lines"]
        covered += lines["covered"]
        count += lines["count"]
        print(f"{name:40} {lines['covered']:5} of {lines['count']:5} lines")
        for line in sorted(unreached_lines(file)):
            print(f"{name}:{line}: not executed")
    percent = 100 * covered / max(count, 1)
    print(f"simulator and tools: {covered} of {count} lines, {percent:.2f} %")
    if percent < GOAL:
        sys.exit(f"below {GOAL} %")


if __name__ == "__main__":
    main()
