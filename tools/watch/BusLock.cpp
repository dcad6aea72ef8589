// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/BusLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace tools {

namespace {

// A lock file that another user has made may be one to read only; that is enough for a lock.
int OpenLockFile(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0644);
    if (descriptor == -1 && (errno == EACCES || errno == EROFS)) {
        return open(path.c_str(), O_RDONLY | O_NOFOLLOW);
    }
    return descriptor;
}

}  // namespace

BusLock::BusLock(const std::string& path) : descriptor_(OpenLockFile(path)) {
    if (descriptor_ == -1) {
        throw std::system_error(errno, std::generic_category(), "opening the lock file " + path);
    }
    if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        close(descriptor_);
        if (error == EWOULDBLOCK) {
            throw BusIsTaken("an update is running on this bus (" + path + " is locked)");
        }
        throw std::system_error(error, std::generic_category(), "locking " + path);
    }
}

BusLock::~BusLock() {
    close(descriptor_);
}

std::string BusLock::DefaultPath() {
    const char name[] = "/bbpwatch-i2c1.lock";
    for (const char* folder : {"/run/lock", "/var/lock"}) {
        std::error_code error;
        if (std::filesystem::is_directory(folder, error)) {
            return std::string(folder) + name;
        }
    }
    return std::string("/tmp") + name;
}

}  // namespace tools
