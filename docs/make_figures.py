#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the figures of long runs into docs/testing.md, from the logs that these runs left.

NAME says which run it was; where several logs have the same one, they are put together:

  fault           ./dev fault
  fault-all       ./dev fault --all
  faultcalls      ./dev faultcalls, whole or in parts (--scenario image, watch, sim)
  fuzz            ./dev fuzz TARGET SECONDS; the log is called fuzz-TARGET.log
  kernel          ./dev kernel-test
  mutants         ./dev mutants
  mutants-tools   ./dev mutants --tools
  generated       ./dev mutants generated, whole or in parts (lm/, chip/ and so on)
  coverage-tools  ./dev coverage --tools

A log holds what the command wrote to standard output and standard error. One of a run that has not
come to its end, or has failed, is refused. On the page the figures stand between the lines
"<!-- figures: NAME -->" and "<!-- end of figures -->".
"""

import argparse
import collections
import itertools
import pathlib
import re
import sys

PAGE = pathlib.Path(__file__).with_name("testing.md")
END = "<!-- end of figures -->"

PROGRAMS = {"image": "bbpimage", "sim": "bbpsim", "watch": "bbpwatch"}
OUTCOMES = {
    "ERROR": "`ERROR`, status 1",
    "SIGPIPE": "SIGPIPE",
    "blocked": "a lock that is never granted",
    "endless": "polling without end",
    "hint": "the hint",
    "lines lost": "lines lost",
    "no message object": "no memory for the message objects",
    "success": "success",
    "uncaught bad_alloc": "no memory for a text",
    "uncaught out_of_range": "an empty label or version",
}


class Refused(Exception):
    """The log cannot give figures; says why."""


def number(text):
    return f"{int(text):,}"


def find(log, pattern, what):
    found = re.search(pattern, log.text, re.MULTILINE)
    if found is None:
        raise Refused(f"{log.name} has no {what}: the run has not come to its end")
    return found


def table(title, rows):
    """`title` names the columns; all but the first column of a row are right-aligned figures."""
    lines = ["| " + " | ".join(title) + " |", "| --- |" + " ---: |" * (len(title) - 1)]
    return lines + ["| " + " | ".join(row) + " |" for row in rows]


def only(logs):
    if len(logs) != 1:
        raise Refused(f"one log is wanted, not {len(logs)}")
    return logs[0]


def fault(logs):
    """The engine's own summary: how many runs of each kind, and how they ended."""
    log = only(logs)
    total = find(log, r"^(\d+) distinct runs, in (\d+) the fault has struck, (\d+) failed$",
                 "summary")
    if total[3] != "0":
        raise Refused(f"{total[3]} runs of {log.name} failed")
    kinds, outcomes = [], []
    for line in log.text.splitlines():
        if line.startswith("by outcome"):
            kinds, outcomes = outcomes, []
        elif row := re.fullmatch(r"  (\w.*?) +(\d+) +([\d.]+ %)", line):
            outcomes.append((int(row[2]), [OUTCOMES.get(row[1], row[1]), number(row[2]), row[3]]))
    outcomes.sort(key=lambda row: -row[0])
    both = itertools.zip_longest(kinds, outcomes, fillvalue=(0, ["", "", ""]))
    rows = [[*kind, *outcome] for (_, kind), (_, outcome) in both]
    return [f"{number(total[1])} distinct runs; in {number(total[2])} the fault has struck; none "
            "is unexplained.", "",
            "| kind | runs | | outcome | runs | |", "| --- | ---: | ---: | --- | ---: | ---: |",
            *("| " + " | ".join(row) + " |" for row in rows)]


def faultcalls(logs):
    """The sweep's counts by kind and by outcome."""
    kinds = collections.defaultdict(collections.Counter)
    outcomes = collections.Counter()
    runs = wrong = 0
    for log in logs:
        runs += int(find(log, r"^runs (\d+)$", "count of runs")[1])
        wrong += int(find(log, r"^wrong (\d+)$", "count of findings")[1])
        for line in log.text.splitlines():
            words = line.split("\t")
            if words[0] == "kind":
                kinds[words[2]][words[1]] += int(words[3])
            elif words[0] == "outcome":
                outcomes[PROGRAMS[words[1]], words[2]] += int(words[3])
    lines = [f"{number(runs)} distinct runs; {wrong or 'none'} of them broke a promise."]
    lines += ["", *table(["kind", *PROGRAMS.values()],
                         [[kind, *(number(row[program]) for program in PROGRAMS)]
                          for kind, row in sorted(kinds.items())])]
    lines += ["", "| program | outcome | runs |", "| --- | --- | ---: |"]
    return lines + [f"| {program} | {outcome} | {number(count)} |"
                    for (program, outcome), count in sorted(outcomes.items())]


def fuzz(logs):
    rows = []
    for log in logs:
        target = log.name.removesuffix(".log").removeprefix("fuzz-")
        if re.search(r"^SUMMARY: |^==\d+== ?ERROR", log.text, re.MULTILINE):
            raise Refused(f"{log.name} has a finding")
        # Its time is up, or somebody had it end in order.
        find(log, r"^Done \d+ runs in|^==\d+== INFO: libFuzzer: exiting as requested$", "end")
        done = find(log, r"^stat::number_of_executed_units:\s*(\d+)", "statistics")[1]
        rate = find(log, r"^stat::average_exec_per_sec:\s*([1-9]\d*)", "rate")[1]
        rows.append([f"`{target}`", number(done), number(int(done) // int(rate) // 60)])
    return [*table(["target", "executions", "minutes"], sorted(rows)), "",
            "None of them found anything."]


def kernel(logs):
    log = only(logs)
    release = find(log, r"^kernel (\S+)$", "kernel's release")[1]
    if re.search(r"^not ok: |kernel test failed", log.text, re.MULTILINE):
        raise Refused(f"{log.name} has a failed check")
    find(log, r"kernel test succeeded", "end")
    checks = re.findall(r"^ok: (.*)$", log.text, re.MULTILINE)
    if not checks:
        raise Refused(f"{log.name} has no checks")
    return [f"All {len(checks)} checks passed on kernel {release}:", "",
            *(f"- {check}" for check in checks)]


def mutants(logs):
    log = only(logs)
    end = find(log, r"^(\d+) breakages, (?:(\d+) stale, )?(\d+) survive", "end")
    if end[2] not in (None, "0"):
        raise Refused(f"{end[2]} breakages of {log.name} do not fit the sources")
    lines = [f"{end[1]} breakages, {end[3]} survive."]
    verdicts = re.findall(r"^.{58} +(red|green) +(red|green) +(red|green|-) ", log.text,
                          re.MULTILINE)
    if verdicts:
        engine = sum(words[0] == "red" for words in verdicts)
        runs = sum(words[1] == "red" for words in verdicts)
        lines[0] += f" The engine sees {engine}, the suites of whole runs alone {runs}."
    quick = len(re.findall(r"^(?:sim|tools) .* quick$", log.text, re.MULTILINE))
    if quick:
        lines[0] += f" The unit tests alone see {quick}."
    return lines


def generated(logs):
    ends = [find(log, r"^(\d+) mutants, (\d+) survive \([\d.]+ %\); (\d+) are equivalent, "
                 r"(\d+) do not", "end").groups() for log in logs]
    made, survive, equivalent, invalid = (sum(map(int, column)) for column in zip(*ends))
    return [f"{number(made)} mutants, {survive} survive ({100 * survive / max(made, 1):.1f} %). "
            f"{number(equivalent)} more change nothing that can be observed, {number(invalid)} do "
            "not compile."]


def coverage_tools(logs):
    end = find(only(logs), r"^simulator and tools: (\d+) of (\d+) lines, ([\d.]+) %$", "end")
    return [f"{number(end[1])} of {number(end[2])} lines, {end[3]} %."]


MAKERS = {"fault": fault, "fault-all": fault, "faultcalls": faultcalls, "fuzz": fuzz,
          "kernel": kernel, "mutants": mutants, "mutants-tools": mutants, "generated": generated,
          "coverage-tools": coverage_tools}

Log = collections.namedtuple("Log", "name text")


def replace(page, name, lines):
    begin = f"<!-- figures: {name} -->"
    if page.count(begin) != 1:
        raise Refused(f"the page has no place for the figures of {name}")
    head, rest = page.split(begin)
    if END not in rest:
        raise Refused(f"the figures of {name} have no end on the page")
    return "\n".join([head + begin, *lines, END]) + rest.split(END, 1)[1]


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--page", type=pathlib.Path, default=PAGE)
    parser.add_argument("logs", metavar="NAME=LOG", nargs="+")
    options = parser.parse_args()
    logs = collections.defaultdict(list)
    for word in options.logs:
        name, _, path = word.partition("=")
        if name not in MAKERS:
            parser.error(f"no such figures: {name}")
        log = pathlib.Path(path)
        logs[name].append(Log(log.name, log.read_text(errors="replace")))
    try:
        page = options.page.read_text()
        for name, texts in logs.items():
            page = replace(page, name, MAKERS[name](texts))
    except Refused as reason:
        sys.exit(f"make_figures.py: {reason}")
    options.page.write_text(page)


if __name__ == "__main__":
    main()
