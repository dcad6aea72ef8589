# SPDX-License-Identifier: Apache-2.0
"""What can befall a system call: the errors that its manual page names, and the rest."""

import dataclasses

# Not the errors that only a mistake in the program brings; nor brk, which returns none; nor a file
# that is said not to exist where it does.
_FILES = "EACCES EMFILE ENFILE ENOENT ENOMEM ENOSPC EIO"
_WHERE = "EACCES ENOMEM EIO"
_MEMORY = "ENOMEM EAGAIN"
_SOCKET = "ENOBUFS ENOMEM EINTR EAGAIN"

ERRORS = {call: errors.split() for call, errors in {
    "accept": "ECONNABORTED EMFILE ENFILE EINTR ENOMEM",
    "accept4": "ECONNABORTED EMFILE ENFILE EINTR ENOMEM",
    "access": "EACCES EROFS EIO ENOMEM",
    "bind": "EADDRINUSE EACCES ENAMETOOLONG ENOMEM EROFS",
    "chdir": _WHERE,
    "clock_nanosleep": "EINTR",
    "clone": _MEMORY,
    "clone3": _MEMORY,
    "close": "EIO EINTR ENOSPC",
    "connect": "EACCES ECONNREFUSED EAGAIN EINTR",
    "dup": "EMFILE",
    "dup2": "EBUSY EINTR EMFILE",
    "dup3": "EBUSY EINTR EMFILE",
    "execve": "EACCES ENOENT ENOMEM ETXTBSY EIO",
    "faccessat2": _WHERE,
    "fallocate": "EINTR EIO ENOSPC EOPNOTSUPP",
    "fchmod": "EIO EPERM EROFS",
    "fchmodat": _WHERE + " EPERM EROFS",
    "fchown": "EIO EPERM EROFS",
    "fdatasync": "EIO ENOSPC EINTR",
    "flock": "EINTR ENOLCK EAGAIN",
    "fork": _MEMORY,
    "fstat": "ENOMEM EIO",
    "fsync": "EIO ENOSPC EROFS EINTR EINVAL",
    "ftruncate": "EINTR EFBIG EIO EINVAL",
    "getcwd": "ENOENT ENOMEM",
    "getdents64": "ENOENT EIO",
    "getrandom": "EINTR EAGAIN",
    "ioctl": "ENOTTY EIO",
    "kill": "EPERM ESRCH",
    "linkat": _WHERE + " EPERM ENOSPC EXDEV",
    "listen": "EADDRINUSE",
    "lseek": "EINVAL ESPIPE",
    "mkdir": "EACCES ENOSPC EROFS ENOMEM",
    "mmap": "ENOMEM EACCES EAGAIN",
    "mprotect": "ENOMEM EACCES",
    "nanosleep": "EINTR",
    "newfstatat": _WHERE,
    "openat": _FILES,
    "pidfd_open": "EMFILE ENOMEM",
    "pipe2": "EMFILE ENFILE",
    "poll": "EINTR ENOMEM",
    "ppoll": "EINTR ENOMEM",
    "pread64": "EIO EINTR",
    "pwrite64": "EIO EINTR ENOSPC EFBIG",
    "read": "EIO EINTR EAGAIN EISDIR",
    "readlink": "EACCES EIO ENOMEM",
    "recvfrom": _SOCKET,
    "recvmsg": _SOCKET,
    "rename": "EACCES EBUSY ENOSPC EROFS EIO",
    "renameat2": "EACCES EBUSY ENOSPC EROFS EIO EINVAL",
    "rmdir": "EACCES EBUSY EROFS",
    "rt_sigtimedwait": "EINTR EAGAIN",
    "sendmsg": _SOCKET + " EPIPE",
    "sendto": _SOCKET + " EPIPE",
    "setsid": "EPERM",
    "signalfd4": "EMFILE ENFILE ENOMEM",
    "socket": "EACCES EMFILE ENFILE ENOMEM",
    "stat": _WHERE,
    "statx": _WHERE,
    "symlink": "EACCES ENOSPC EROFS EIO",
    "unlink": "EACCES EBUSY EROFS EIO",
    "unlinkat": "EACCES EBUSY EROFS EIO",
    "vfork": _MEMORY,
    "wait4": "EINTR",
    "waitid": "EINTR",
    "write": "EIO EINTR EAGAIN ENOSPC EPIPE EFBIG",
    "writev": "EIO EINTR EAGAIN ENOSPC EPIPE",
}.items()}

# A part of it only is carried out.
SHORTENED = ("read", "write", "pread64", "pwrite64")


@dataclasses.dataclass(frozen=True)
class Fault:
    """The `nth` call of its name, counted in each thread, meets `how`: an error, HALF or SIG..."""

    call: str
    nth: int
    how: str

    def __str__(self):
        return f"{self.call}@{self.nth}:{self.how}"

    @staticmethod
    def parse(text):
        place, how = text.rsplit(":", 1)
        call, nth = place.split("@")
        return Fault(call, int(nth), how)

    def kind(self):
        if self.how == "HALF":
            return "a part only"
        return "killed" if self.how == "SIGKILL" else \
            "a signal" if self.how.startswith("SIG") else "an error"

    def is_bent(self):
        """It needs more than strace does: a part of the call, or all of it and an error."""
        return self.how == "HALF" or (self.call == "close" and not self.how.startswith("SIG"))

    def injection(self):
        """The words of strace that bring it about."""
        how = f"signal={self.how[3:]}" if self.how.startswith("SIG") else f"error={self.how}"
        return ["-e", f"trace={self.call}", "-e", f"inject={self.call}:{how}:when={self.nth}"]


def all_faults(counts, signals=()):
    """Every fault of a run whose calls of each name are numbered (first, last)."""
    faults = []
    for call, (first, last) in sorted(counts.items()):
        hows = ERRORS.get(call, []) + ["SIGKILL", *signals]
        if call in SHORTENED:
            hows.append("HALF")
        faults += [Fault(call, nth, how) for nth in range(first, last + 1) for how in hows]
    return faults
