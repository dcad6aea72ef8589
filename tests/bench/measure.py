# SPDX-License-Identifier: Apache-2.0
"""Runs a program against the bench's bus and tells what it spent."""

import collections
import dataclasses
import os
import pathlib
import re
import subprocess
import tempfile

# Where an image keeps its label, and the version that the instant bus reports once programmed.
LABEL_OFFSET = 925630
LABEL = b"BENCH_2__".ljust(37)

IMAGE_OF_START_UP = 1 << 16

# Every block of the heap comes from one of these, whichever way the program asks.
ALLOCATORS = {"malloc", "calloc", "realloc"}


def write_image(path, size):
    """Writes an image of `size` bytes, with a label where it is long enough for one."""
    pattern = bytes((7 * i + (i >> 8)) & 0xFF for i in range(1 << 16))
    with open(path, "wb") as file:
        for start in range(0, size, len(pattern)):
            file.write(pattern[:size - start])
        if size >= LABEL_OFFSET + len(LABEL):
            file.seek(LABEL_OFFSET)
            file.write(LABEL)


@dataclasses.dataclass
class Run:
    """One run at full speed: what the bus counted, and the processor's time."""
    counts: dict
    cpu_ms: float


@dataclasses.dataclass
class Profile:
    """One run under callgrind. The bus's own instructions are never among the figures."""
    costs: dict   # of the run, from main's first instruction to its last
    counts: dict  # of the bus

    def per_segment(self, smaller):
        """What each segment costs that this run sent beyond those of a `smaller` one."""
        segments = self.counts["writes"] - smaller.counts["writes"]
        mine, others = self.costs | self.counts, smaller.costs | smaller.counts
        return {name: (mine[name] - others[name]) / segments for name in mine}


class Bench:
    """The programs of one build folder, and a folder for images and results."""

    def __init__(self, build, folder):
        self.build = pathlib.Path(build)
        self.folder = pathlib.Path(folder)
        self.bus = self.build / "tests/bench/libbench_bus.so"

    def program(self, name):
        return self.build / ("tests/bin" if name.startswith("bench_") else "bin") / name

    def image(self, size):
        path = self.folder / f"{size}.bin"
        if not path.exists():
            write_image(path, size)
        return path

    def run(self, name, size, *options, under=(), paced=False):
        """Sends an image of `size` bytes, through a bus without or with its time on the wire."""
        counts = self.folder / "counts"
        environment = dict(os.environ, LD_PRELOAD=self.bus, BENCH_BUS_COUNTS=counts)
        if paced:
            environment["BENCH_BUS_PACED"] = "1"
        command = [*under, self.program(name), *options, self.image(size)]
        with subprocess.Popen(command, env=environment, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL) as process:
            _, status, used = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode not in (0, 1):
            raise RuntimeError(f"{command} ended with {process.returncode}")
        lines = counts.read_text(encoding="utf-8").splitlines()
        return Run({key: int(value) for key, value in map(str.split, lines)},
                   (used.ru_utime + used.ru_stime) * 1000)

    def profile(self, name, size, *options, inside="main"):
        """The same under callgrind, for what happens inside the function `inside`."""
        result, log = self.folder / "callgrind", self.folder / "log"
        run = self.run(name, size, *options, under=(
            "valgrind", "--tool=callgrind", f"--toggle-collect={inside}", "--trace-syscalls=yes",
            f"--callgrind-out-file={result}", f"--log-file={log}"))
        cost, calls = read_callgrind(result)
        # A call that blocks is logged once more, as "...", when it is done.
        system_calls = re.findall(r"^SYSCALL\S+ (\w+)", log.read_text(encoding="utf-8"),
                                  re.MULTILINE)
        own, bus = str(self.program(name)), str(self.bus)
        return Profile({
            "instructions": sum(cost.values()) - cost[bus],
            "own_instructions": cost[own],
            "allocations": sum(calls[function] for function in ALLOCATORS),
            "system_calls": len(system_calls),
            "file_reads": system_calls.count("sys_read"),
        }, run.counts)

    def start_up(self, name):
        """Instructions before main, and after it: the loader's, for the most part."""
        result = self.folder / "callgrind"
        self.run(name, IMAGE_OF_START_UP, under=(
            "valgrind", "--tool=callgrind", f"--callgrind-out-file={result}"))
        cost, _ = read_callgrind(result)
        inside = self.profile(name, IMAGE_OF_START_UP).costs["instructions"]
        return sum(cost.values()) - cost[str(self.bus)] - inside


def counted(program, *arguments):
    """All instructions of a program, the bus left alone."""
    with tempfile.NamedTemporaryFile() as result:
        subprocess.run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={result.name}",
                        program, *arguments], check=True, stderr=subprocess.DEVNULL)
        return sum(read_callgrind(result.name)[0].values())


def emulated(program, *arguments, preload=""):
    """All instructions of a program for 32-bit ARM. The emulator logs one line for each."""
    with subprocess.Popen(["qemu-arm-static", "-L", "/usr/arm-linux-gnueabihf", "-singlestep",
                           "-E", f"LD_PRELOAD={preload}", "-d", "nochain,exec", "-D",
                           "/dev/stderr", program, *arguments], stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE) as process:
        return sum(line.startswith(b"Trace") for line in process.stderr)


def read_callgrind(path):
    """The instructions of each object file, and the calls of each function."""
    names = collections.defaultdict(dict)

    def name(kind, text):
        # "(3) text" says what 3 stands for from then on.
        number, text = re.match(r"(\(\d+\)) ?(.*)", text).groups()
        return names[kind].setdefault(number, text)

    cost, calls = collections.Counter(), collections.Counter()
    objects = ""
    called = ""
    inclusive = False
    with open(path, encoding="utf-8") as file:
        for line in file:
            key, _, value = line.rstrip("\n").partition("=")
            if key == "ob":
                objects = name("ob", value)
            elif key == "cob":
                name("ob", value)
            elif key == "fn":
                name("fn", value)
            elif key == "cfn":
                called = name("fn", value)
            elif key == "calls":
                calls[called.partition("'")[0]] += int(value.split()[0])
                inclusive = True
            elif line[0] in "0123456789+-*":
                # The line behind a call is the cost of what was called, counted there.
                if not inclusive:
                    cost[objects] += int(line.split()[1])
                inclusive = False
    return cost, calls
