# SPDX-License-Identifier: Apache-2.0
"""bbpwatch: never success without the image in the chip, and never a burn that is cut off."""

import glob
import json
import re
import shutil

from judging import Verdict, ends, is_whole, signals, tells
from running import guarded

# For the updater and its chip time passes so much faster, or each run would wait for seconds.
SPEED = 40
FAKETIME = "/usr/lib/*/faketime/libfaketimeMT.so.1"
PRELOADED = "libumockdev-preload.so.0"
OWN_TROUBLE = (71, 76)  # a failure of the system, an outcome in doubt
EVENTS_LOST = 74
SUCCESS = re.compile(r"updated and verified|\"verdict\": ?\"success\"")
DISPLAY = re.compile(r" (write|writev|ioctl|poll)\((1|2)<| write\(\d+<[^>]*\.log>")


class Watching:
    """`bbpwatch OPTIONS -- bbpflash -s new.bin` in a simulated head unit with real burn times."""

    signals = ("SIGTERM", "SIGHUP")
    is_alone = False

    def __init__(self, name, options, installed="1.0.0"):
        self.name, self.options, self.installed = "watch-" + name, options, installed
        self.fast = next(iter(glob.glob(FAKETIME)), "")

    def environment(self, folder):
        return {"FAKETIME": f"+0 x{SPEED}"}

    def prepare(self, tools, folder):
        shutil.copyfile(tools.materials / "new.bin", folder / "new.bin")

    def command(self, tools, folder, faulty):
        # bbpwatch has the time and the calls that it has on a real unit.
        updater = ["env", f"LD_PRELOAD={PRELOADED}:{self.fast}", "bbpflash", "-s", "new.bin"]
        watch = [str(tools.programs / "bbpwatch"), "--lock", str(folder / "lock"), *self.options,
                 "--", *updater]
        inside = ["env", "-u", "LD_PRELOAD", *guarded(tools, folder / "inner", faulty(watch))]
        sim = ["env", f"LD_PRELOAD={self.fast}", str(tools.programs / "bbpsim"), "--pace", "none",
               "--burn", "2,4,2", "--installed", self.installed, "--flash", "flash.bin",
               "--json", "r.json", "--", *inside]
        return guarded(tools, folder / "result", sim, 60)

    def learn(self, seen):
        if not self.fast:
            raise SystemExit("libfaketime is not installed")
        if self.judge(seen).wrong or seen.status != 0:
            raise SystemExit(f"{self.name} does not work without a fault: {seen}")

    def check_claim(self, seen, holds):
        if seen.status == 0 and not holds:
            yield "status 0 without the image in the chip"
        if SUCCESS.search(seen.out) and not holds:
            yield "it says updated without the image in the chip"

    def check_burn(self, seen, holds, report):
        if report["burns"] > 0 and not holds:
            yield "the burn was cut off"
        if seen.is_killed() and report["resets"] > 0 and not holds:
            yield "its death ended the updater"

    def check_end(self, seen, holds, report):
        if seen.status in (0, None) or seen.never_started():
            return
        if "bbpwatch: " not in seen.err and "failed" not in seen.out + seen.err and \
                "request" not in seen.out and "doubt" not in seen.out:
            yield from tells(seen, "bbpwatch")
        if "--json" in self.options and seen.status == EVENTS_LOST and " write(1<" in seen.struck:
            return  # whoever reads the events must know that one is missing
        on_request = seen.fault is not None and seen.fault.how == "SIGTERM" and seen.status == 143
        if holds and report["resets"] > 0 and seen.status not in OWN_TROUBLE and not on_request:
            yield f"status {seen.status} though the chip has the image"
        if holds and DISPLAY.search(" " + seen.struck):
            yield "its display makes a good update a failure"

    def judge(self, seen):
        inner = seen.folder / "inner"
        if inner.exists():
            seen.status, seen.signal = None, 0
            seen.read_result(inner)
        report = json.loads((seen.folder / "r.json").read_text())
        installed = self.installed == "2.0.0"
        new = (seen.folder / "new.bin").read_bytes()
        holds = is_whole(seen.folder / "flash.bin", new) or \
            (installed and is_whole(seen.folder / "flash.bin", None))
        wrong = [*ends(seen), *signals(seen), *self.check_claim(seen, holds),
                 *self.check_burn(seen, holds, report), *self.check_end(seen, holds, report)]
        if seen.never_started():
            return Verdict("not started", wrong)
        state = "the chip has the image" if holds else "the chip is untouched"
        return Verdict(f"killed, {state}" if seen.status is None else
                       f"status {seen.status}, {state}", wrong)


def scenarios():
    return [
        Watching("plain", []),
        Watching("json-log", ["--json", "--log", "watch.log"]),
        Watching("up-to-date", [], "2.0.0"),
    ]
