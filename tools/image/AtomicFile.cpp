// SPDX-License-Identifier: Apache-2.0
#include "tools/image/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tools {

namespace {

[[noreturn]] void Throw(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::string Resolve(const std::string& path) {
    std::error_code error;
    const std::filesystem::path resolved = std::filesystem::canonical(path, error);
    return error ? path : resolved.string();
}

// What the process's mask leaves of the mode of a new file.
mode_t NewFileMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return static_cast<mode_t>(0666) & ~mask;
}

}  // namespace

AtomicFile::AtomicFile(const std::string& path) : target(Resolve(path)) {
    const std::string parent = std::filesystem::path(target).parent_path().string();
    folder = parent.empty() ? "." : parent;
    temporary = target + ".XXXXXX";
    descriptor = mkstemp(temporary.data());
    if (descriptor == -1) {
        Throw("creating a temporary file beside " + target);
    }
}

AtomicFile::~AtomicFile() {
    if (descriptor != -1) {
        close(descriptor);
    }
    if (!committed) {
        unlink(temporary.c_str());
    }
}

void AtomicFile::Write(const std::string& bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = write(descriptor, bytes.data() + written, bytes.size() - written);
        if (count == -1 && errno != EINTR) {
            Throw("writing " + temporary);
        }
        if (count > 0) {
            written += static_cast<std::size_t>(count);
        }
    }
}

void AtomicFile::KeepModeAndOwner() {
    struct stat now;
    if (stat(target.c_str(), &now) != 0) {
        if (errno != ENOENT) {
            Throw("looking at " + target);
        }
        if (fchmod(descriptor, NewFileMode()) != 0) {
            Throw("setting the mode of " + temporary);
        }
        return;
    }
    struct stat ours;
    if (fstat(descriptor, &ours) != 0) {
        Throw("looking at " + temporary);
    }
    const bool same_owner = ours.st_uid == now.st_uid && ours.st_gid == now.st_gid;
    if (!same_owner && fchown(descriptor, now.st_uid, now.st_gid) != 0) {
        Throw("keeping the owner of " + target);
    }
    // After the owner, whose change clears the set-id bits.
    if (fchmod(descriptor, now.st_mode & 07777) != 0) {
        Throw("keeping the mode of " + target);
    }
}

void AtomicFile::Commit() {
    KeepModeAndOwner();
    if (fsync(descriptor) != 0) {
        Throw("writing " + temporary + " to the disk");
    }
    const int closed = close(descriptor);
    descriptor = -1;
    if (closed != 0) {
        Throw("closing " + temporary);
    }
    if (std::rename(temporary.c_str(), target.c_str()) != 0) {
        Throw("replacing " + target);
    }
    committed = true;
    const int parent = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (parent == -1) {
        Throw("opening " + folder);
    }
    const int synced = fsync(parent);
    const int error = errno;
    close(parent);
    // A file system that cannot synchronise a folder says so; the new file is complete all the
    // same.
    if (synced != 0 && error != EINVAL) {
        errno = error;
        Throw("writing " + folder + " to the disk");
    }
}

}  // namespace tools
