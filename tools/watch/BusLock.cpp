// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/BusLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "common/Failure.h"
#include "common/Text.h"
#include "tools/watch/HeadUnitPaths.h"

namespace tools {

namespace {

// Not closed on exec: the updater inherits it. A lock file that another user has made may be one to
// read only; that is enough for a lock.
int OpenLockFile(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0644);
    if (descriptor == -1 && (errno == EACCES || errno == EROFS)) {
        return open(path.c_str(), O_RDONLY | O_NOFOLLOW);
    }
    return descriptor;
}

bool IsAlive(pid_t process) {
    return kill(process, 0) == 0 || errno == EPERM;
}

// Those in the lock file that still live. An old entry may name a process that is gone.
std::string Holders(const std::string& path) {
    std::vector<std::string> holders;
    std::ifstream file(path);
    for (pid_t process = 0; file >> process;) {
        if (process > 0 && IsAlive(process)) {
            holders.push_back(std::to_string(process));
        }
    }
    if (holders.empty()) {
        return "a process that left no number there";
    }
    return (holders.size() == 1 ? "process " : "processes ") + common::Join(holders, " and ");
}

std::string LockFolder() {
    for (const char* folder : {"/run/lock", "/var/lock"}) {
        std::error_code error;
        if (std::filesystem::is_directory(folder, error)) {
            return folder;
        }
    }
    return "/tmp";
}

}  // namespace

BusLock::BusLock(const std::string& path) : descriptor_(OpenLockFile(path)) {
    if (!descriptor_) {
        throw common::ErrnoFailure("opening the lock file " + path, errno);
    }
    if (flock(descriptor_.Get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw common::Failure(
                "another update runs on this bus: " + path + " is locked by " + Holders(path),
                STATUS_TAKEN);
        }
        throw common::ErrnoFailure("locking " + path, errno);
    }
    // Where the file cannot be written, the lock holds as well, and only the message knows less.
    if (ftruncate(descriptor_.Get(), 0) == 0) {
        Note(getpid());
    }
}

void BusLock::AddHolder(pid_t updater) {
    Note(updater);
}

void BusLock::Note(pid_t process) {
    const std::string line = std::to_string(process) + "\n";
    // The numbers are for people; the lock does not need them.
    [[maybe_unused]] const ssize_t count = write(descriptor_.Get(), line.data(), line.size());
}

std::string BusLock::DefaultPath() {
    struct stat bus = {};
    const std::string simulated = SimulatedUnitFolder();
    if (!simulated.empty()) {
        return simulated + "/bbpwatch.lock";
    }
    const std::string beginning = LockFolder() + "/bbpwatch-i2c";
    if (stat(BUS_NODE, &bus) != 0) {
        return beginning + "1.lock";
    }
    const bool is_device = S_ISCHR(bus.st_mode);
    const dev_t device = is_device ? bus.st_rdev : bus.st_dev;
    return beginning + "-" + std::to_string(major(device)) + "-" + std::to_string(minor(device)) +
           (is_device ? "" : "-" + std::to_string(bus.st_ino)) + ".lock";
}

}  // namespace tools
