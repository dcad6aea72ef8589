# SPDX-License-Identifier: Apache-2.0
"""bbpimage: a file is the old one or the new one, whole, and the status says which."""

import os
import shutil

from judging import Verdict, ends, is_whole, others, signals, tells
from running import guarded

MODE = 0o640
OWNER = (1000, 1001)  # given to a file where this process may


class Image:
    """What the scenarios of bbpimage share: they run `bbpimage WORDS` in a folder with `files`."""

    signals = ()
    is_alone = False
    material = "old.bin"

    def __init__(self, name, words, files):
        self.name, self.words, self.files = "image-" + name, words, files

    def environment(self, folder):
        return {}

    def prepare(self, tools, folder):
        for name in self.files:
            shutil.copyfile(tools.materials / self.material, folder / name)
            os.chmod(folder / name, MODE)
            if os.geteuid() == 0:
                os.chown(folder / name, *OWNER)

    def command(self, tools, folder, faulty):
        return guarded(tools, folder / "result",
                       faulty([str(tools.programs / "bbpimage"), *self.words]))


class Writing(Image):
    """A command that writes `target`, which may be there already, and may be reached by a link."""

    def __init__(self, name, words, files, target, link=None):
        super().__init__(name, words, files)
        self.target, self.link = target, link

    def prepare(self, tools, folder):
        super().prepare(tools, folder)
        if self.link:
            os.symlink(self.target, folder / self.link)
        self.old = (tools.materials / self.material).read_bytes() if self.target in self.files \
            else None

    def learn(self, seen):
        new = (seen.folder / self.target).read_bytes()
        if seen.status != 0 or new == self.old:
            raise SystemExit(f"{self.name} does not work without a fault: {seen.err}")
        self.new = new
        self.kept = self.attributes(seen)

    def attributes(self, seen):
        found = (seen.folder / self.target).stat()
        return found.st_mode, found.st_uid, found.st_gid

    def check_file(self, seen, is_new):
        target = seen.folder / self.target
        if not is_new and not is_whole(target, self.old):
            yield "the file is neither the old one nor the new one"
        if target.exists() and self.attributes(seen) != self.kept:
            yield f"mode and owner are {self.attributes(seen)}, not {self.kept}"
        if self.link and not (seen.folder / self.link).is_symlink():
            yield "the link is gone"
        left = others(seen.folder, [*self.files, self.target, self.link])
        temporaries = [name for name in left if name.startswith(self.target + ".")]
        if left and not (seen.is_killed() and left == temporaries and len(left) == 1):
            yield f"it leaves {', '.join(left)}"

    def check_status(self, seen, is_new):
        if seen.status == 0 and not is_new:
            yield "status 0 without the new file"
        if seen.status not in (0, None):
            if is_new:
                yield f"status {seen.status} with the new file"
            if not seen.never_started():
                yield from tells(seen, "bbpimage")

    def judge(self, seen):
        is_new = is_whole(seen.folder / self.target, self.new)
        wrong = [*ends(seen), *signals(seen), *self.check_file(seen, is_new),
                 *self.check_status(seen, is_new)]
        state = "the new file" if is_new else "the old file"
        if seen.never_started():
            return Verdict("not started", wrong)
        return Verdict(f"killed, {state}" if seen.status is None else
                       f"status {seen.status}, {state}", wrong)


class Padding(Writing):
    """The image's last segment is full."""

    material = "full.bin"


class Looking(Image):
    """A command that shows something: all of it with its status, or another status and why."""

    def __init__(self, name, words, files, is_alone=False):
        super().__init__(name, words, files)
        self.is_alone = is_alone

    def learn(self, seen):
        if not seen.out:
            raise SystemExit(f"{self.name} shows nothing without a fault: {seen.err}")
        self.out, self.status = seen.out, seen.status

    def judge(self, seen):
        wrong = [*ends(seen), *signals(seen)]
        wrong += [f"it leaves {name}" for name in others(seen.folder, self.files)]
        if seen.never_started():
            return Verdict("not started", wrong)
        is_all = seen.out == self.out
        if seen.status == self.status and not is_all:
            wrong.append(f"status {seen.status} without all that is to be shown")
        if seen.status not in (self.status, None):
            wrong += tells(seen, "bbpimage", "unreadable")
        return Verdict("killed" if seen.status is None else
                       f"status {seen.status}, {'all' if is_all else 'not all'} shown", wrong)


def scenarios():
    label = ["label", "a.bin", "3.0.0"]
    return [
        Writing("label", label, ["a.bin"], "a.bin"),
        Writing("label-link", ["label", "link", "3.0.0"], ["a.bin"], "a.bin", "link"),
        Writing("label-output", [*label, "-o", "b.bin"], ["a.bin"], "b.bin"),
        Writing("make", ["make", "--version", "3.0.0", "--size", "930001", "b.bin"], [], "b.bin"),
        Writing("make-over", ["make", "--force", "--version", "3.0.0", "--size", "930001", "b.bin"],
                ["b.bin"], "b.bin"),
        Writing("make-link", ["make", "--force", "--version", "3.0.0", "--size", "930001", "link"],
                ["b.bin"], "b.bin", "link"),
        Padding("pad", ["pad", "a.bin"], ["a.bin"], "a.bin"),
        Padding("pad-output", ["pad", "a.bin", "-o", "b.bin"], ["a.bin"], "b.bin"),
        Looking("info", ["info", "a.bin"], ["a.bin"]),
        Looking("info-alone", ["info", "a.bin"], ["a.bin"], True),
        Looking("info-expect", ["info", "--expect", "1.0.0", "a.bin"], ["a.bin"]),
        Looking("label-stdout", [*label, "-o", "-"], ["a.bin"]),
        Looking("info-json", ["info", "--json", "a.bin", "b.bin"], ["a.bin", "b.bin"]),
    ]
