// SPDX-License-Identifier: Apache-2.0
#include "common/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "common/Failure.h"
#include "common/Pipe.h"

namespace common {

namespace {

// What the process's mask leaves of the mode of a new file.
mode_t NewFileMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return static_cast<mode_t>(0666) & ~mask;
}

void RequireRegularFile(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        if (errno != ENOENT) {
            throw ErrnoFailure("looking at " + path, errno);
        }
    } else if (!S_ISREG(status.st_mode)) {
        throw Failure(path + " is no regular file: it stays as it is");
    }
}

}  // namespace

std::string FollowLinks(const std::string& path) {
    constexpr int MOST_LINKS = 40;  // as the kernel follows
    std::filesystem::path target = path;
    for (int i = 0; i < MOST_LINKS; ++i) {
        char next[PATH_MAX];
        const ssize_t size = readlink(target.c_str(), next, sizeof next);
        if (size >= 0) {
            target = target.parent_path() / std::string(next, static_cast<std::size_t>(size));
        } else if (errno == EINVAL || errno == ENOENT) {
            // It is no link, or not there yet.
            return target.string();
        } else {
            throw ErrnoFailure("looking at " + target.string(), errno);
        }
    }
    throw ErrnoFailure("looking at " + path, ELOOP);
}

AtomicFile::AtomicFile(const std::string& path) {
    RequireRegularFile(path);
    target_ = FollowLinks(path);
    const std::string parent = std::filesystem::path(target_).parent_path().string();
    folder_ = parent.empty() ? "." : parent;
    temporary_ = target_ + ".XXXXXX";
    file_.Reset(mkostemp(temporary_.data(), O_CLOEXEC));
    if (!file_) {
        throw ErrnoFailure("creating a temporary file beside " + target_, errno);
    }
}

AtomicFile::~AtomicFile() {
    if (!committed_ && unlink(temporary_.c_str()) != 0 && errno != ENOENT) {
        Warn(ErrnoFailure(temporary_ + " cannot be removed", errno).what());
    }
}

void AtomicFile::Write(std::string_view bytes) {
    WriteAll(file_.Get(), bytes, temporary_);
}

void AtomicFile::KeepModeAndOwner() {
    struct stat now;
    if (stat(target_.c_str(), &now) != 0) {
        if (errno != ENOENT) {
            throw ErrnoFailure("looking at " + target_, errno);
        }
        if (fchmod(file_.Get(), NewFileMode()) != 0) {
            throw ErrnoFailure("setting the mode of " + temporary_, errno);
        }
        return;
    }
    struct stat ours;
    if (fstat(file_.Get(), &ours) != 0) {
        throw ErrnoFailure("looking at " + temporary_, errno);
    }
    const bool same_owner = ours.st_uid == now.st_uid && ours.st_gid == now.st_gid;
    if (!same_owner && fchown(file_.Get(), now.st_uid, now.st_gid) != 0) {
        throw ErrnoFailure("keeping the owner of " + target_, errno);
    }
    // After the owner, whose change clears the set-id bits.
    if (fchmod(file_.Get(), now.st_mode & 07777) != 0) {
        throw ErrnoFailure("keeping the mode of " + target_, errno);
    }
}

void AtomicFile::Commit() {
    KeepModeAndOwner();
    // Before the file is replaced: nothing may fail afterwards.
    const UniqueFd folder(open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        throw ErrnoFailure("opening the folder of " + target_, errno);
    }
    if (fsync(file_.Get()) != 0) {
        throw ErrnoFailure("writing " + temporary_ + " to the disk", errno);
    }
    if (!file_.Close()) {
        throw ErrnoFailure("closing " + temporary_, errno);
    }
    if (std::rename(temporary_.c_str(), target_.c_str()) != 0) {
        throw ErrnoFailure("replacing " + target_, errno);
    }
    committed_ = true;
    // The new file is there and complete; only a loss of power soon could bring the old one back.
    // A file system that cannot synchronise a folder says EINVAL.
    if (fsync(folder.Get()) != 0 && errno != EINVAL) {
        Warn(ErrnoFailure(target_ + " is replaced, but perhaps not on the disk yet", errno).what());
    }
}

}  // namespace common
