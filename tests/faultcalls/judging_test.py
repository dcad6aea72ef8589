#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Judges the judges: each invariant is broken on purpose, in what a run is made to look like."""

import json
import pathlib
import tempfile
import unittest

import image
import simulator
import watching
from catalogue import Fault, all_faults
from running import Seen, counts

ERROR = Fault("write", 3, "ENOSPC")
KILL = Fault("write", 3, "SIGKILL")
NO_SPACE = "bbpimage: writing: No space left on device\n"


class JudgeTest(unittest.TestCase):
    """A folder that looks as after a good run, and what was seen of it."""

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        (self.folder / "tmp").mkdir()

    def seen(self, **changes):
        seen = Seen(self.folder, status=0, struck="write(3, ...) (INJECTED)", fault=ERROR)
        for name, value in changes.items():
            setattr(seen, name, value)
        return seen

    def write(self, name, content):
        (self.folder / name).write_bytes(content)

    def holds(self, scenario, **changes):
        self.assertEqual(scenario.judge(self.seen(**changes)).wrong, [])

    def breaks(self, scenario, part, **changes):
        wrong = scenario.judge(self.seen(**changes)).wrong
        self.assertTrue(any(part in one for one in wrong), wrong)


class WritingTest(JudgeTest):
    def setUp(self):
        super().setUp()
        self.scenario = image.Writing("test", [], ["a.bin"], "a.bin")
        self.scenario.old, self.scenario.new = b"old", b"new"
        self.write("a.bin", b"new")
        self.scenario.kept = self.scenario.attributes(self.seen())

    def test_new_file(self):
        self.holds(self.scenario)
        self.breaks(self.scenario, "status 2 with the new file", status=2, err=NO_SPACE)
        self.breaks(self.scenario, "signal 11", status=None, signal=11)
        self.breaks(self.scenario, "does not end", status=None, late=True)
        self.breaks(self.scenario, "leaves sh running", left=["sh"])

    def test_old_file(self):
        self.write("a.bin", b"old")
        self.holds(self.scenario, status=2, err=NO_SPACE)
        self.breaks(self.scenario, "status 0 without", status=0)
        self.breaks(self.scenario, "without a word", status=2)
        self.breaks(self.scenario, "does not say", status=2, err="bbpimage: it failed\n")

    def test_half_file(self):
        self.write("a.bin", b"ne")
        self.breaks(self.scenario, "neither", status=2, err=NO_SPACE)
        (self.folder / "a.bin").unlink()
        self.breaks(self.scenario, "neither", status=2, err=NO_SPACE)

    def test_mode(self):
        (self.folder / "a.bin").chmod(0o600)
        self.breaks(self.scenario, "mode and owner")

    def test_words_that_cannot_be_said(self):
        self.write("a.bin", b"old")
        self.holds(self.scenario, status=2, is_mute=True)
        self.breaks(self.scenario, "status 0 without", status=0, is_mute=True)

    def test_link(self):
        self.scenario.link = "link"
        self.breaks(self.scenario, "the link is gone")

    def test_leftover(self):
        self.write("a.bin.x1", b"ne")
        self.breaks(self.scenario, "it leaves a.bin.x1")
        self.holds(self.scenario, status=None, signal=9, fault=KILL)
        self.write("a.bin.x2", b"ne")
        self.breaks(self.scenario, "it leaves", status=None, signal=9, fault=KILL)


class LookingTest(JudgeTest):
    def test_output(self):
        scenario = image.Looking("test", [], [])
        scenario.out, scenario.status = "all", 0
        self.holds(scenario, out="all")
        self.breaks(scenario, "without all", out="al")
        self.holds(scenario, out="al", status=2, err=NO_SPACE)
        self.breaks(scenario, "without a word", out="al", status=2)
        self.holds(scenario, status=2, out="unreadable: No space left on device")


class SimulatorTest(JudgeTest):
    def setUp(self):
        super().setUp()
        self.scenario = simulator.scenarios()[1]
        self.out = "status 1\n"
        self.write("flash.bin", simulator.SMALL_IMAGE)
        self.write("r.json", b"{}")

    def test_status(self):
        self.holds(self.scenario, out=self.out, status=7)
        self.breaks(self.scenario, "neither the command's", out=self.out, status=1)
        self.breaks(self.scenario, "without a word", out=self.out, status=125)
        self.holds(self.scenario, out=self.out, status=125, err="bbpsim: r.pcap: no")

    def test_start_of_the_command(self):
        execve = Fault("execve", 2, "EIO")
        told = "bbpsim: sh: Input/output error\n"
        self.holds(self.scenario, status=126, fault=execve, err=told)
        self.breaks(self.scenario, "neither the command's", status=126, err=told)
        self.breaks(self.scenario, "without a word", status=126, fault=execve)

    def test_leftovers(self):
        (self.folder / "tmp" / "umockdev.x").mkdir()
        self.breaks(self.scenario, "in TMPDIR", out=self.out, status=7)
        self.write("flash.bin.new", b"")
        self.breaks(self.scenario, "it leaves flash.bin.new", out=self.out, status=7)

    def test_temporary_file(self):
        killed = {"out": self.out, "status": None, "signal": 9, "fault": KILL}
        self.write("r.json.XyZ123", b"{")
        self.holds(self.scenario, **killed)
        self.breaks(self.scenario, "it leaves r.json.XyZ123", out=self.out, status=7)
        self.write("flash.bin.XyZ123", b"U")
        self.breaks(self.scenario, "it leaves", **killed)

    def test_file_that_cannot_be_removed(self):
        self.write("r.json.XyZ123", b"")
        stays = {"out": self.out, "status": 7, "fault": Fault("unlink", 2, "EIO"),
                 "struck": '7 unlink("r.json.XyZ123") = -1 EIO (Input/output error) (INJECTED)'}
        told = "r.json.XyZ123 cannot be removed: Input/output error\n"
        self.holds(self.scenario, **stays, err=told)
        self.breaks(self.scenario, "it leaves r.json.XyZ123", **stays)

    def test_flash(self):
        (self.folder / "flash.bin").unlink()
        self.breaks(self.scenario, "nobody says so", out=self.out, status=7)
        self.write("flash.bin", b"U")
        self.breaks(self.scenario, "neither the old", out=self.out, status=7)

    def test_report(self):
        self.write("r.json", b"{")
        self.breaks(self.scenario, "cut off", out=self.out, status=125, err="bbpsim: x")
        (self.folder / "r.json").unlink()
        self.breaks(self.scenario, "there is no report", out=self.out, status=125, err="bbpsim: x")
        self.holds(self.scenario, out=self.out, status=125, err="bbpsim: r.json: no")


class WatchingTest(JudgeTest):
    def setUp(self):
        super().setUp()
        self.scenario = watching.scenarios()[0]
        self.write("new.bin", b"new")
        self.head_unit(b"new", 1)

    def head_unit(self, flash, burns, resets=2):
        self.write("flash.bin", flash)
        self.write("r.json", json.dumps({"burns": burns, "resets": resets}).encode())

    def test_success(self):
        self.holds(self.scenario, out="bbpwatch: updated and verified after 0:40")
        self.breaks(self.scenario, "though the chip", status=1, out="bbpwatch: the update failed")
        self.breaks(self.scenario, "its display", status=71, err="bbpwatch: x",
                    struck='7 write(1</tmp/out>, "x", 1) = -1 EIO (INJECTED)')

    def test_false_success(self):
        self.head_unit(b"old", 0)
        self.breaks(self.scenario, "status 0 without", status=0)
        self.breaks(self.scenario, "says updated", status=71, err="bbpwatch: x",
                    out="updated and verified")

    def test_burn(self):
        self.head_unit(b"ne", 1)
        self.breaks(self.scenario, "cut off", status=143, out="ended on request")

    def test_death(self):
        self.head_unit(b"old", 0)
        self.breaks(self.scenario, "its death", status=None, signal=9, fault=KILL)
        self.head_unit(b"old", 0, 0)
        self.holds(self.scenario, status=None, signal=9, fault=KILL)


class CatalogueTest(unittest.TestCase):
    def test_every_call_of_the_program(self):
        trace = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory())) / "trace"
        trace.write_text("7 execve(...) = 0\n7 read(3) = 8\n7 prlimit64() = 0\n7 munmap() = 0\n"
                         "7 read(3 <unfinished ...>\n8 read(4) = 1\n7 <... read resumed>) = 1\n")
        self.assertEqual(counts(trace), {"read": (2, 2)})
        ids = [str(fault) for fault in all_faults({"read": (2, 2)}, ("SIGHUP",))]
        self.assertIn("read@2:EIO", ids)
        self.assertIn("read@2:HALF", ids)
        self.assertIn("read@2:SIGHUP", ids)
        for text in ids:
            self.assertEqual(str(Fault.parse(text)), text)


class RunTest(unittest.TestCase):
    def test_lost_words(self):
        trace = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory())) / "trace"
        fault = Fault("write", 1, "EIO")
        file = '8 write(5</tmp/x>, "1.0", 3) = -1 EIO (Input/output error) (INJECTED)\n'
        words = '7 write(2</tmp/err>, "bbpimage: no", 3) = -1 EIO (Input/output error) (INJECTED)\n'
        for text, is_mute in ((file, False), (file + words, True), (words, True)):
            trace.write_text(text)
            seen = Seen(trace.parent, fault)
            seen.read_trace(trace)
            self.assertEqual((seen.struck, seen.is_mute),
                             (text.splitlines()[0], is_mute))


if __name__ == "__main__":
    unittest.main()
