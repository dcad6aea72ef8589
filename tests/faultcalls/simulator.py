# SPDX-License-Identifier: Apache-2.0
"""bbpsim: the command's status or 125 and a reason, nothing left behind, no half file."""

import json
import shutil

from judging import Verdict, ends, is_whole, others, signals, tells
from running import guarded

COMMANDS_STATUS = 7
OWN_FAILURE = 125
NOT_STARTED = (126, 127)
SMALL_IMAGE = b"U" * 100  # what "bus_client burn" puts into the chip
VIEWS = ["--json", "r.json", "--log-file", "r.log", "--pcap", "r.pcap", "--vcd", "r.vcd"]
FILES = ["r.json", "r.log", "r.pcap", "r.vcd", "flash.bin", "faults", ".bashrc"]


class Simulator:
    """`bbpsim OPTIONS -- COMMAND`; `burns` when the command puts SMALL_IMAGE into the chip."""

    signals = ("SIGTERM",)
    is_alone = False

    def __init__(self, name, options, command, status=COMMANDS_STATUS, shell="/bin/sh"):
        self.name, self.options, self.words = "sim-" + name, options, command
        self.status, self.shell = status, shell
        self.burns = any("bus_client" in word for word in command)
        self.old = None

    def environment(self, folder):
        return {"SHELL": self.shell}

    def prepare(self, tools, folder):
        if self.name.endswith("-again"):
            shutil.copyfile(tools.materials / "old.bin", folder / "flash.bin")
            self.old = (tools.materials / "old.bin").read_bytes()
        (folder / "faults").write_text("read 3 flip 12:7 # a comment\n")

    def command(self, tools, folder, faulty):
        words = [str(tools.programs / "bbpsim"), "--pace", "none", "--burn", "0,0,0",
                 *self.options, *(["--", *self.words] if self.words else [])]
        return guarded(tools, folder / "result", faulty(words))

    def learn(self, seen):
        if self.judge(seen).wrong or seen.status != self.status:
            raise SystemExit(f"{self.name} does not work without a fault: {seen}")

    def check_left(self, seen):
        folders = sorted(path.name for path in (seen.folder / "tmp").iterdir())
        # Who cleans up when bbpsim cannot was struck as well.
        if folders and seen.struck_tasks < 2:
            yield f"it leaves {', '.join(folders)} in TMPDIR"
        left = others(seen.folder, FILES)
        temporary = len(left) == 1 and left[0].rpartition(".")[0] in FILES
        unremovable = temporary and seen.fault is not None and seen.fault.call == "unlink" and \
            f"{left[0]} cannot be removed" in seen.err
        if left and not (seen.is_killed() and temporary) and not unremovable:
            yield f"it leaves {', '.join(left)}"

    def check_flash(self, seen):
        if "--flash" not in self.options:
            return
        flash = seen.folder / "flash.bin"
        if not is_whole(flash, self.old, SMALL_IMAGE):
            yield "the flash file is neither the old one nor the new one"
        if self.burns and seen.status == COMMANDS_STATUS and "status 1\n" in seen.out and \
                "flash.bin" not in seen.err and not is_whole(flash, SMALL_IMAGE):
            yield "the flash file is not what the chip holds, and nobody says so"

    def check_report(self, seen):
        """The report is whole, and a failure elsewhere does not take it along."""
        if "r.json" not in self.options:
            return
        report = seen.folder / "r.json"
        text = report.read_text() if report.exists() else ""
        try:
            json.loads(text)
        except ValueError:
            ran = "status 1\n" in seen.out and seen.status is not None
            if text and not seen.is_killed():
                yield "the report is cut off"
            elif ran and "r.json" not in seen.struck + seen.err:
                yield "the command ran, and there is no report"
            elif seen.status == self.status:
                yield "no report, and nobody says so"

    def check_status(self, seen):
        if seen.status in (self.status, None) or seen.never_started():
            return
        # The signal came in the fork that was to become the command, or was passed on to it: a
        # shell is sent a hang-up instead.
        if seen.fault and seen.status in {"SIGKILL": (137,), "SIGTERM": (143, 129)}.get(
                seen.fault.how, ()):
            return
        # The fork did not become the command.
        is_unstarted = seen.fault and seen.fault.call == "execve" and seen.status in NOT_STARTED
        if seen.status != OWN_FAILURE and not is_unstarted:
            yield f"status {seen.status} is neither the command's nor {OWN_FAILURE}"
        elif "bbpsim: " not in seen.err and "r.json" not in seen.err:
            yield from tells(seen, "bbpsim")

    def judge(self, seen):
        wrong = [*ends(seen), *signals(seen), *self.check_left(seen), *self.check_flash(seen),
                 *self.check_report(seen), *self.check_status(seen)]
        if seen.never_started():
            return Verdict("not started", wrong)
        return Verdict("killed" if seen.status is None else "the command's status"
                       if seen.status == self.status else f"status {seen.status}", wrong)


def scenarios():
    ends_with = ["sh", "-c", "exit 7"]
    burns = ["sh", "-c", "bus_client burn; exit 7"]
    return [
        Simulator("plain", [], ends_with),
        Simulator("views", [*VIEWS, "--flash", "flash.bin", "--report"], burns),
        Simulator("again", ["--flash", "flash.bin", "--faults", "faults", "--json", "r.json"],
                  burns),
        Simulator("shell", [], [], 0, "/bin/bash"),
        Simulator("missing", [], ["no-such-program"], 127),
    ]
