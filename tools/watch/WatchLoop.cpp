// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/WatchLoop.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace tools {

namespace {

constexpr int TICK = 200;  // milliseconds

constexpr Milliseconds LAST_OUTPUT(2000);

const char* NameOf(int signal) {
    switch (signal) {
        case SIGINT:
            return "interrupt";
        case SIGQUIT:
            return "quit";
        default:
            return "terminate";
    }
}

}  // namespace

Milliseconds WatchLoop::Now() const {
    return std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - start_);
}

// Until something can be read from one of the descriptors (-1 for none), a signal has come, or a
// tick has passed.
void WatchLoop::Wait(int first, int second) {
    std::array<pollfd, 4> entries = {
        {{signals_.Descriptor(), POLLIN, 0},
         {first, POLLIN, 0},
         {second, POLLIN, 0},
         {output_.IsPending() ? output_.Descriptor() : -1, POLLOUT, 0}}};
    poll(entries.data(), entries.size(), TICK);
    output_.Flush();
    TakeSignals();
}

void WatchLoop::TakeSignals() {
    while (const std::optional<int> number = signals_.Next()) {
        switch (*number) {
            case SIGHUP:
                watch_.HangUp(Now());
                break;
            case SIGINT:
            case SIGQUIT:
            case SIGTERM:
                request_ = *number;
                watch_.Request(NameOf(*number), Now());
                break;
            default:
                break;
        }
    }
}

// Takes all that the updater has written so far.
void WatchLoop::Drain(UpdaterProcess& updater) {
    char bytes[4096];
    ssize_t count;
    while ((count = read(updater.Output(), bytes, sizeof bytes)) > 0) {
        watch_.Take(bytes, static_cast<std::size_t>(count), Now());
    }
    while ((count = read(updater.ErrorOutput(), bytes, sizeof bytes)) > 0) {
        watch_.TakeError(bytes, static_cast<std::size_t>(count), Now());
    }
}

// The updater is held still while it is judged: what it has said is then all that it has done.
bool WatchLoop::TryToEnd(UpdaterProcess& updater) {
    updater.Stop();
    Drain(updater);
    const bool may_end = !updater.Status() && watch_.MayEnd(Now());
    if (may_end) {
        updater.Kill();
    } else {
        updater.Continue();
    }
    return may_end;
}

int WatchLoop::Run(UpdaterProcess& updater) {
    bool is_ended = false;
    std::optional<int> status;
    while (!status) {
        Wait(updater.Output(), updater.ErrorOutput());
        status = updater.Status();
        Drain(updater);
        watch_.Tick(Now());
        if (!status && watch_.IsRequested()) {
            is_ended = TryToEnd(updater);
            status = updater.Status();
        }
    }
    Drain(updater);
    const int result = watch_.Finish(is_ended ? 128 + request_ : *status, is_ended, Now());
    output_.Drain(LAST_OUTPUT);
    return result;
}

int WatchLoop::Read(int descriptor) {
    char bytes[4096];
    bool is_over = false;
    while (!is_over && request_ == 0) {
        pollfd entry = {descriptor, POLLIN, 0};
        Wait(descriptor, -1);
        if (poll(&entry, 1, 0) == 1) {
            const ssize_t count = read(descriptor, bytes, sizeof bytes);
            is_over = count == 0 || (count == -1 && errno != EINTR && errno != EAGAIN);
            if (count > 0) {
                watch_.Take(bytes, static_cast<std::size_t>(count), Now());
            }
        }
        watch_.Tick(Now());
    }
    const int result = watch_.Finish(request_ == 0 ? BBPFLASH_STATUS_UNKNOWN : 128 + request_,
                                     request_ != 0, Now());
    output_.Drain(LAST_OUTPUT);
    return result;
}

}  // namespace tools
