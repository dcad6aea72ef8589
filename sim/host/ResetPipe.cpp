// SPDX-License-Identifier: Apache-2.0
#include "sim/host/ResetPipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "common/Failure.h"
#include "common/Text.h"

namespace sim {

ResetPipe::ResetPipe(const std::string& path, Write write)
    : write_(std::move(write)), end_(common::MakePipe()) {
    unlink(path.c_str());
    if (mkfifo(path.c_str(), 0600) != 0) {
        throw common::ErrnoFailure("the reset line's node", errno);
    }
    // With a writer of its own it is never at its end.
    pipe_.Reset(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!pipe_) {
        throw common::ErrnoFailure("the reset line's node", errno);
    }
    server_ = std::thread([this] { Serve(); });
}

ResetPipe::~ResetPipe() {
    end_.write_end.Reset();
    server_.join();
}

void ResetPipe::Serve() {
    pollfd waiting[2] = {};
    waiting[0].fd = pipe_.Get();
    waiting[1].fd = end_.read_end.Get();
    waiting[0].events = waiting[1].events = POLLIN;
    char buffer[256];
    // What was written before the end still counts.
    while (poll(waiting, 2, -1) >= 0) {
        const ssize_t size = read(pipe_.Get(), buffer, sizeof buffer);
        if (size > 0) {
            Take(std::string(buffer, static_cast<std::size_t>(size)));
        } else if (waiting[1].revents != 0) {
            return;
        }
    }
}

void ResetPipe::Take(const std::string& text) {
    for (const char& level : text) {
        if (level == '0' || level == '1') {
            write_(&level, 1);
        } else if (level != '\n' && level != ' ') {
            // Who wrote it cannot be told by an error.
            std::fprintf(stderr, "bbpsim: the reset line takes 0 or 1, not \"%s\"\n",
                         common::Escape(text).c_str());
            return;
        }
    }
}

}  // namespace sim
