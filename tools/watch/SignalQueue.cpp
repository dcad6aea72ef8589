// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/SignalQueue.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "common/Failure.h"

namespace tools {

SignalQueue::SignalQueue() {
    for (const int number : {SIGPIPE, SIGTSTP, SIGTTIN, SIGTTOU}) {
        std::signal(number, SIG_IGN);
    }
    sigset_t awaited;
    sigemptyset(&awaited);
    for (const int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGCHLD, SIGWINCH}) {
        sigaddset(&awaited, number);
    }
    if (sigprocmask(SIG_BLOCK, &awaited, nullptr) != 0) {
        throw common::ErrnoFailure("blocking signals", errno);
    }
    descriptor_.Reset(signalfd(-1, &awaited, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor_) {
        throw common::ErrnoFailure("waiting for signals", errno);
    }
}

std::optional<int> SignalQueue::Next() {
    signalfd_siginfo signal = {};
    if (read(descriptor_.Get(), &signal, sizeof signal) != sizeof signal) {
        return std::nullopt;
    }
    return static_cast<int>(signal.ssi_signo);
}

}  // namespace tools
