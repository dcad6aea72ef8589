// SPDX-License-Identifier: Apache-2.0
#include "common/Pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "common/Failure.h"

namespace common {

Pipe MakePipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw ErrnoFailure("making a pipe", errno);
    }
    Pipe made;
    made.read_end.Reset(ends[0]);
    made.write_end.Reset(ends[1]);
    return made;
}

std::string ReadAll(int descriptor, const std::string& what) {
    std::string all;
    char buffer[4096];
    for (;;) {
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count == 0) {
            return all;
        }
        if (count > 0) {
            all.append(buffer, static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            throw ErrnoFailure("reading " + what, errno);
        }
    }
}

std::string ReadFile(const std::string& path, const std::string& what) {
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        throw ErrnoFailure("opening " + what, errno);
    }
    return ReadAll(file.Get(), what);
}

void WriteAll(int descriptor, std::string_view bytes, const std::string& what) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            throw ErrnoFailure("writing " + what, errno);
        }
    }
}

}  // namespace common
