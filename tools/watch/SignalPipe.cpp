// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/SignalPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace tools {

namespace {

int g_ends[2] = {-1, -1};

extern "C" void NoteSignal(int number) {
    const int error = errno;
    const unsigned char byte = static_cast<unsigned char>(number);
    // When the pipe is full there is more than enough to look at already.
    if (write(g_ends[1], &byte, 1) == -1) {
        errno = error;
    }
    errno = error;
}

}  // namespace

SignalPipe::SignalPipe() {
    if (pipe2(g_ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "making a pipe");
    }
    struct sigaction action = {};
    action.sa_handler = NoteSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGCHLD, SIGWINCH}) {
        sigaction(number, &action, nullptr);
    }
    for (const int number : {SIGPIPE, SIGTSTP, SIGTTIN, SIGTTOU}) {
        std::signal(number, SIG_IGN);
    }
}

int SignalPipe::Descriptor() const {
    return g_ends[0];
}

std::optional<int> SignalPipe::Next() {
    unsigned char byte = 0;
    return read(g_ends[0], &byte, 1) == 1 ? std::optional<int>(byte) : std::nullopt;
}

}  // namespace tools
