// SPDX-License-Identifier: Apache-2.0
#include "sim/host/ResetPipe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "common/Failure.h"
#include "common/Text.h"

namespace sim {

namespace {

const char NODE[] = "the reset line's node";

// What the kernel keeps of it at most, unless told otherwise.
constexpr std::size_t LARGEST_PIPE = 65536;

}  // namespace

ResetPipe::ResetPipe(const std::string& path) {
    if (mkfifo(path.c_str(), 0600) != 0) {
        throw common::ErrnoFailure(NODE, errno);
    }
    // With a writer of its own it is never at its end.
    pipe_.Reset(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!pipe_) {
        throw common::ErrnoFailure(NODE, errno);
    }
}

void ResetPipe::Read(DeviceHandler& handler) {
    char buffer[LARGEST_PIPE];
    const ssize_t size = read(pipe_.Get(), buffer, sizeof buffer);
    if (size > 0) {
        Take(std::string(buffer, static_cast<std::size_t>(size)), handler);
    } else if (size < 0 && errno != EAGAIN && errno != EINTR) {
        throw common::ErrnoFailure(NODE, errno);
    }
}

void ResetPipe::Take(const std::string& text, DeviceHandler& handler) {
    for (const char& level : text) {
        if (level == '0' || level == '1') {
            handler.WriteReset(&level, 1);
        } else if (level != '\n' && level != ' ') {
            // Who wrote it cannot be told by an error.
            std::fprintf(stderr, "bbpsim: the reset line takes 0 or 1, not \"%s\"\n",
                         common::Escape(text).c_str());
            return;
        }
    }
}

}  // namespace sim
