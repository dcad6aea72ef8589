# SPDX-License-Identifier: Apache-2.0
"""What holds for a run of any of the programs, and what its judges need."""

import dataclasses

from running import error_text


@dataclasses.dataclass
class Verdict:
    """How a run ended, in a few words, and what is wrong with that."""

    outcome: str
    wrong: list


def ends(seen):
    """A run ends, and leaves no process."""
    if seen.late:
        yield "it does not end"
    elif seen.left:
        yield f"it leaves {', '.join(seen.left)} running"


def signals(seen):
    """Nothing but the signal that it is sent ends a program abnormally."""
    if seen.signal and not (seen.fault and seen.fault.how.startswith("SIG") and seen.struck):
        yield f"signal {seen.signal} ends it"


def tells(seen, name, finding=None):
    """A failure has a reason: the failed call's own where a call failed. It stands on standard
    error, or with the word `finding` on standard output. Words that were struck are not missed."""
    if seen.is_mute:
        return
    told = seen.err
    if finding and finding in seen.out:
        told += f"{name}: {seen.out}"
    if f"{name}: " not in told:
        yield "it fails without a word"
    elif seen.struck and seen.fault.kind() == "an error":
        reason = error_text(seen.fault.how)
        if not any(word in told for word in (reason, "bad_alloc", "emory")):
            yield f"its message does not say \"{reason}\""


def is_whole(path, *wholes):
    """Whether the file holds exactly one of these; None stands for no file."""
    try:
        return path.read_bytes() in wholes
    except FileNotFoundError:
        return None in wholes


def others(folder, known):
    """What is in the folder besides what the run itself and its scenario put there."""
    own = {"result", "trace", "out", "err", "tmp"}
    return sorted(path.name for path in folder.iterdir() if path.name not in own | set(known))
