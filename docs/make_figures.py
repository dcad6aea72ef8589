#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the figures of long runs into docs/testing.md, from the logs that these runs left.

usage: make_figures.py NAME=LOG...

NAME is faultcalls (the log of ./dev faultcalls), fault (of ./dev fault --all) or fuzz (of ./dev fuzz
hostile_chip). The figures stand between the lines "<!-- figures: NAME -->" and "<!-- end of figures -->".
"""

import collections
import pathlib
import re
import sys

PAGE = pathlib.Path(__file__).with_name("testing.md")
END = "<!-- end of figures -->"


def number(text):
    return f"{int(text):,}"


def faultcalls(log):
    """The sweep's counts: a table by kind and one by outcome, a column for each program."""
    counts = {"kind": collections.defaultdict(dict), "outcome": collections.defaultdict(dict)}
    for line in log.splitlines():
        words = line.split("\t")
        if words[0] in counts:
            counts[words[0]][words[2]][words[1]] = words[3]
    runs = re.search(r"^runs (\d+)$", log, re.M).group(1)
    wrong = re.search(r"^wrong (\d+)$", log, re.M).group(1)
    lines = [f"{number(runs)} distinct runs; {number(wrong)} of them broke a promise.", ""]
    for title, table in counts.items():
        lines += [f"| {title} | bbpimage | bbpsim | bbpwatch |", "| --- | ---: | ---: | ---: |"]
        for what, columns in sorted(table.items()):
            cells = [number(columns.get(program, 0)) for program in ("image", "sim", "watch")]
            lines.append(f"| {what} | {' | '.join(cells)} |")
        lines.append("")
    return lines[:-1]


def fault(log):
    """The engine's own summary, as it is."""
    summary = [line for line in log.splitlines() if line.strip()]
    return ["```text", *summary[-40:], "```"]


def fuzz(log):
    done = re.search(r"stat::number_of_executed_units:\s*(\d+)", log)
    seconds = re.search(r"Done \d+ runs in (\d+) second", log)
    if done is None or seconds is None:
        sys.exit("the fuzz run has not come to its end")
    return [f"{number(done.group(1))} executions of `hostile_chip` in "
            f"{int(seconds.group(1)) // 60} minutes, no finding."]


def replace(page, name, lines):
    begin = f"<!-- figures: {name} -->"
    if page.count(begin) != 1:
        sys.exit(f"{PAGE.name} has no place for the figures of {name}")
    head, rest = page.split(begin)
    _, tail = rest.split(END, 1)
    return "\n".join([head + begin, *lines, END]) + tail


def main():
    makers = {"faultcalls": faultcalls, "fault": fault, "fuzz": fuzz}
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    page = PAGE.read_text()
    for word in sys.argv[1:]:
        name, _, path = word.partition("=")
        if name not in makers:
            sys.exit(f"no such figures: {name}")
        page = replace(page, name, makers[name](pathlib.Path(path).read_text()))
    PAGE.write_text(page)


if __name__ == "__main__":
    main()
