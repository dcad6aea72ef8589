// SPDX-License-Identifier: Apache-2.0
#include "sim/host/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "common/AtomicFile.h"
#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/UniqueFd.h"

namespace sim {

namespace {

// Whether there is something other than a regular file: a device, a pipe, standard output.
bool IsSpecial(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

}  // namespace

void CheckReplaceable(const std::string& path, const std::string& what) {
    const std::string subject = what + " " + path;
    struct stat status;
    if (stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) {
            throw common::ErrnoFailure(subject, EISDIR);
        }
        if (!S_ISREG(status.st_mode)) {
            throw common::Failure(subject + " is no regular file");
        }
        if (access(path.c_str(), W_OK) != 0) {
            throw common::ErrnoFailure(subject, errno);
        }
    } else if (errno != ENOENT) {
        throw common::ErrnoFailure(subject, errno);
    }
    // Rights do not tell all: a folder may take no file from anybody.
    try {
        const common::AtomicFile attempt(path);
    } catch (const common::Failure& failure) {
        throw common::ErrnoFailure(subject + ": its folder", failure.Error());
    }
}

void CheckWritable(const std::string& path, const std::string& what) {
    if (!IsSpecial(path)) {
        CheckReplaceable(path, what);
    } else if (access(path.c_str(), W_OK) != 0) {
        throw common::ErrnoFailure(what + " " + path, errno);
    }
}

void WriteFile(const std::string& path, const std::string& what, const std::string& text) {
    if (!IsSpecial(path)) {
        common::AtomicFile file(path);
        file.Write(text);
        file.Commit();
        return;
    }
    const common::UniqueFd file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!file) {
        throw common::ErrnoFailure(what + " " + path, errno);
    }
    common::WriteAll(file.Get(), text, path);
}

}  // namespace sim
