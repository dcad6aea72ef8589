# SPDX-License-Identifier: Apache-2.0
"""Runs a scenario's command under strace, with or without a fault, and gathers what came of it."""

import collections
import contextlib
import dataclasses
import errno
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

from catalogue import Fault

SECONDS = 30  # for a command that takes less than one
LINGER = 15   # for what it leaves behind

_CALL = re.compile(r"^(\d*) *([a-z_0-9]+)\(")
_WORDS = re.compile(r"\bwritev?\(2<")


@dataclasses.dataclass
class Tools:
    """Where the programs are."""

    programs: pathlib.Path   # bbpimage and the others
    helpers: pathlib.Path    # the sweep's own, and bus_client
    materials: pathlib.Path  # images: old.bin, new.bin, full.bin


@dataclasses.dataclass
class Seen:
    """What came of a run. `status` is None after a signal."""

    folder: pathlib.Path
    fault: Fault | None = None
    status: int | None = None
    signal: int = 0
    late: bool = False
    left: list = dataclasses.field(default_factory=list)  # processes that had to be ended
    struck: str = ""  # strace's line of the call that the fault befell; empty if none was
    struck_tasks: int = 0  # threads and forks that made so many of these calls
    is_mute: bool = False  # what would have been said on standard error was struck, too
    out: str = ""
    err: str = ""

    def read_result(self, path):
        """Takes what the guard has written there."""
        for line in path.read_text().splitlines():
            what, _, value = line.partition(" ")
            if what == "status":
                self.status = int(value)
            elif what == "signal":
                self.signal = int(value)
            elif what == "late":
                self.late = True
            else:
                self.left.append(value)

    def read_trace(self, path):
        """Takes what strace or bend tells of the fault, if it happened."""
        lines = path.read_text(errors="replace").splitlines() if path.exists() else []
        struck = [line for line in lines if _is_struck(line, self.fault)]
        self.struck = struck[0] if struck else ""
        self.is_mute = any(_WORDS.search(line) for line in struck)
        each = collections.Counter()
        for line in lines:
            if (found := _CALL.match(line)) and found[2] == self.fault.call:
                each[found[1]] += 1
        self.struck_tasks = sum(count >= self.fault.nth for count in each.values())

    def is_killed(self):
        return self.fault is not None and self.fault.how == "SIGKILL" and bool(self.struck)

    def never_started(self):
        """The loader could not even start the program, and said so."""
        return self.status == 127 and "error while loading shared libraries" in self.err


def guarded(tools, result, words, seconds=SECONDS, linger=LINGER):
    return [str(tools.helpers / "faultcalls_guard"), str(seconds), str(linger), str(result), *words]


def faulty(tools, folder, fault, words, alone=False):
    """The command in which the fault happens; without one, in which all calls are noted. It befalls
    the program and what it forks, up to the start of another, or only its first thread, alone."""
    trace = str(folder / "trace")
    strace = ["strace", *([] if alone else ["-f", "-b", "execve"]), "-o", trace]
    if fault is None:
        return [*strace, *words]
    if fault.is_bent():
        how = "half" if fault.how == "HALF" else str(getattr(errno, fault.how))
        bend = [str(tools.helpers / "faultcalls_bend"), how, fault.call, str(fault.nth)]
        return ["sh", "-c", 'exec "$@" 9>"$0"', trace, *bend, *words]
    return [*strace, "-y", *fault.injection(), *words]


def environment(tools, folder, scenario):
    return {"PATH": f"{tools.programs}:{tools.helpers}:/usr/local/bin:/usr/bin:/bin",
            "LC_ALL": "C", "HOME": str(folder), "SHELL": "/bin/sh", "TMPDIR": str(folder / "tmp"),
            **scenario.environment(folder)}


def counts(trace):
    """The calls of the busiest threads: of each name, the first that is the program's own and the
    last. What the loader does before the program's start is left out."""
    each = collections.Counter()
    loader = collections.Counter()
    is_loading = lacks_limits = True
    for line in trace.read_text(errors="replace").splitlines():
        if not (found := _CALL.match(line)):
            continue
        each[found.groups()] += 1
        if is_loading:
            loader[found[2]] += 1
            # The loader ends by letting go of its cache.
            lacks_limits = lacks_limits and found[2] != "prlimit64"
            is_loading = lacks_limits or found[2] != "munmap"
    last = collections.Counter()
    for (_, call), count in each.items():
        last[call] = max(last[call], count)
    return {call: (loader[call] + 1, count) for call, count in last.items()
            if count > loader[call]}


def _is_struck(line, fault):
    return "(INJECTED)" in line or line == "bent" or f"killed by {fault.how}" in line or \
        (fault.how.startswith("SIG") and f"--- {fault.how} " in line)


def run(tools, scenario, fault, folder):
    """Runs the scenario in `folder`, which is empty."""
    (folder / "tmp").mkdir()
    scenario.prepare(tools, folder)
    words = scenario.command(
        tools, folder, lambda inner: faulty(tools, folder, fault, inner, scenario.is_alone))
    with (folder / "out").open("wb") as out, (folder / "err").open("wb") as err:
        subprocess.run(words, cwd=folder, env=environment(tools, folder, scenario), check=False,
                       stdin=subprocess.DEVNULL, stdout=out, stderr=err)
    seen = Seen(folder, fault)
    seen.read_result(folder / "result")
    if fault is not None:
        seen.read_trace(folder / "trace")
    seen.out = (folder / "out").read_text(errors="replace")
    seen.err = (folder / "err").read_text(errors="replace")
    return seen


@contextlib.contextmanager
def run_folder():
    """A folder for one run, which is gone afterwards."""
    path = tempfile.mkdtemp(prefix="faultcalls.")
    try:
        yield pathlib.Path(path)
    finally:
        shutil.rmtree(path, ignore_errors=True)


def error_text(name):
    return os.strerror(getattr(errno, name))
