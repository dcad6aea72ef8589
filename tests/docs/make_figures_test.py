#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Sees that the figures of a log reach the page, and that a log without figures does not.

usage: make_figures_test.py FAULT_ENGINE
"""

import contextlib
import io
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCRIPT = ROOT / "docs" / "make_figures.py"
sys.path.insert(0, str(ROOT / "tests" / "faultcalls"))

# pylint: disable=wrong-import-position
from catalogue import Fault
from faultcalls import Tally
from image import Looking
from judging import Verdict

ENGINE = pathlib.Path(sys.argv.pop(1)) if len(sys.argv) > 1 else None

# What libFuzzer says at the end with -print_final_stats=1.
FUZZ = """#2\tINITED cov: 5 ft: 6 corp: 1/1b exec/s: 0 rss: 30Mb
Done 1234567 runs in 601 second(s)
stat::number_of_executed_units: 1234567
stat::average_exec_per_sec:     2054
"""

KERNEL = """== building release
kernel 6.1.0-56-amd64
ok: the update succeeds
ok: the flash holds the image
== the kernel test succeeded; the guest's console: build/kernel/console.log
"""

MUTANTS = f"""{'breakage':58} {'engine':>7} {'runs':>7} {'units':>7}
{'a wait is shorter':58} {'red':>7} {'red':>7} {'-':>7}     3 s
{'a bit is ignored':58} {'red':>7} {'green':>7} {'-':>7}     3 s
2 breakages, 0 survive: none
"""

TOOL_MUTANTS = f"""sim   {'the chip takes anything':66} quick
tools {'the end is not heard':66} slow
2 breakages, 0 stale, 0 survive: none
"""


def sweep(*hows):
    """The log of a sweep in which a file's reading failed in these ways."""
    tally = Tally()
    with contextlib.redirect_stdout(io.StringIO()) as log:
        for how in hows:
            wrong = ["it does not end"] if how == "ENOMEM" else []
            tally.take(Looking("info", [], []), Fault("read", 1, how), True,
                       Verdict("status 2, not all shown", wrong))
        tally.show()
    return log.getvalue()


class PageTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def make(self, name, *logs):
        """The page after the script, or what it says instead."""
        page = self.folder / "page.md"
        page.write_text(f"before\n<!-- figures: {name} -->\nno figures yet\n<!-- end of figures -->\nafter\n")
        words = []
        for log_name, text in logs:
            (self.folder / log_name).write_text(text)
            words.append(f"{name}={self.folder / log_name}")
        done = subprocess.run([sys.executable, SCRIPT, "--page", page, *words], check=False,
                              stderr=subprocess.PIPE, text=True)
        text = page.read_text()
        self.assertTrue(text.startswith("before\n") and text.endswith("\nafter\n"), text)
        self.assertEqual("no figures yet" in text, done.returncode != 0)
        return text if done.returncode == 0 else done.stderr

    def test_fault(self):
        log = subprocess.run([ENGINE, "--jobs", "1", "--every", "5000"], check=True,
                             stdout=subprocess.PIPE, text=True).stdout
        runs = log.splitlines()[-1].split()[0]
        page = self.make("fault", ("fault.log", log))
        self.assertIn(f"{runs} distinct runs", page)
        self.assertIn("| `ERROR`, status 1 |", page)
        self.assertIn("| bus |", page)
        failed = log.replace(" 0 failed", " 1 failed")
        self.assertIn("1 runs of fault.log failed", self.make("fault", ("fault.log", failed)))
        self.assertIn("not come to its end", self.make("fault-all", ("fault.log", log[:-60])))

    def test_faultcalls(self):
        page = self.make("faultcalls", ("a.log", sweep("EIO", "SIGKILL")), ("b.log", sweep("EINTR")))
        self.assertIn("3 distinct runs; none of them broke", page)
        self.assertIn("| an error | 2 | 0 | 0 |", page)
        self.assertIn("| killed | 1 | 0 | 0 |", page)
        self.assertIn("| bbpimage | status 2, not all shown | 3 |", page)
        page = self.make("faultcalls", ("a.log", sweep("EIO", "ENOMEM")))
        self.assertIn("2 distinct runs; 1 of them broke", page)
        self.assertIn("not come to its end", self.make("faultcalls", ("a.log", "runs 7\n")))

    def test_fuzz(self):
        page = self.make("fuzz", ("fuzz-watch.log", FUZZ), ("fuzz-hostile_chip.log", FUZZ))
        self.assertIn("| `hostile_chip` | 1,234,567 | 10 |\n| `watch` | 1,234,567 | 10 |", page)
        found = FUZZ + "SUMMARY: libFuzzer: timeout\n"
        self.assertIn("has a finding", self.make("fuzz", ("fuzz-watch.log", found)))
        self.assertIn("not come to its end", self.make("fuzz", ("fuzz-watch.log", FUZZ[:50])))
        # Somebody had it end in order, before its time.
        ended = FUZZ.replace("Done 1234567 runs in 601 second(s)",
                             "==7== INFO: libFuzzer: exiting as requested")
        self.assertIn("| `watch` | 1,234,567 | 10 |", self.make("fuzz", ("fuzz-watch.log", ended)))
        self.assertIn("not come to its end",
                      self.make("fuzz", ("fuzz-watch.log", ended.replace("INFO", "interrupted"))))

    def test_kernel(self):
        page = self.make("kernel", ("kernel.log", KERNEL))
        self.assertIn("All 2 checks passed on kernel 6.1.0-56-amd64:\n\n- the update succeeds\n", page)
        failed = KERNEL.replace("ok: the flash", "not ok: the flash")
        self.assertIn("failed check", self.make("kernel", ("kernel.log", failed)))

    def test_mutants(self):
        self.assertIn("2 breakages, 0 survive. The engine sees 2, the suites of whole runs alone 1.",
                      self.make("mutants", ("m.log", MUTANTS)))
        self.assertIn("2 breakages, 0 survive. The unit tests alone see 1.",
                      self.make("mutants-tools", ("m.log", TOOL_MUTANTS)))
        stale = TOOL_MUTANTS.replace("0 stale", "1 stale")
        self.assertIn("do not fit", self.make("mutants-tools", ("m.log", stale)))
        text = "1490 mutants, 7 survive (0.5 %); 30 are equivalent, 12 do not compile\n"
        self.assertIn("1,490 mutants, 7 survive (0.5 %). 30 more change nothing",
                      self.make("generated", ("g.log", text)))
        rest = "510 mutants, 9 survive (1.8 %); 2 are equivalent, 3 do not compile\n"
        self.assertIn("2,000 mutants, 16 survive (0.8 %). 32 more change nothing that can be "
                      "observed, 15 do not compile.",
                      self.make("generated", ("a.log", text), ("b.log", rest)))
        self.assertIn("not come to its end",
                      self.make("generated", ("a.log", text), ("b.log", "Terminated\n")))

    def test_coverage(self):
        text = "simulator and tools: 5700 of 5997 lines, 95.05 %\n"
        self.assertIn("\n5,700 of 5,997 lines, 95.05 %.\n", self.make("coverage-tools", ("c.log", text)))

    def test_page_without_a_place(self):
        log = self.folder / "k.log"
        log.write_text(KERNEL)
        done = subprocess.run([sys.executable, SCRIPT, "--page", __file__, f"kernel={log}"],
                              check=False, stderr=subprocess.PIPE, text=True)
        self.assertIn("no place for the figures of kernel", done.stderr)

    def test_the_page_has_every_place(self):
        page = (ROOT / "docs" / "testing.md").read_text()
        names = ["fault", "fault-all", "faultcalls", "fuzz", "kernel", "mutants", "mutants-tools",
                 "generated", "coverage-tools"]
        for name in names:
            self.assertEqual(page.count(f"<!-- figures: {name} -->"), 1, name)
        self.assertEqual(page.count("<!-- end of figures -->"), len(names))


if __name__ == "__main__":
    unittest.main()
