// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/WatchLoop.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "common/Failure.h"
#include "tools/watch/Standstill.h"

namespace tools {

namespace {

constexpr Milliseconds TICK(200);

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
    poll(entries.data(), entries.size(), static_cast<int>(TICK.count()));
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

// Takes all that there is to read now. Returns false at the stream's end.
bool WatchLoop::TakeOutput(int descriptor, bool is_error_output) {
    char bytes[4096];
    ssize_t count;
    while ((count = read(descriptor, bytes, sizeof bytes)) > 0) {
        const std::size_t size = static_cast<std::size_t>(count);
        if (is_error_output) {
            watch_.TakeError(bytes, size, Now());
        } else {
            watch_.Take(bytes, size, Now());
        }
    }
    return count != 0;
}

// A stream that is at its end would be readable for ever, and is asked no more.
void WatchLoop::Drain(UpdaterProcess& updater) {
    has_output_ = has_output_ && TakeOutput(updater.Output(), false);
    has_error_output_ = has_error_output_ && TakeOutput(updater.ErrorOutput(), true);
}

// What is known decides first. What is still unread decides last: the updater is held still then,
// so that what it has said is all that it has done.
bool WatchLoop::TryToEnd(UpdaterProcess& updater) {
    Drain(updater);
    if (!watch_.MayEnd(Now())) {
        return false;
    }
    try {
        const Standstill standstill(updater.Id());
        Drain(updater);
        if (updater.Status() || !watch_.MayEnd(Now())) {
            return false;
        }
        updater.Kill();
        return true;
    } catch (const common::Failure& failure) {
        watch_.CannotEnd(failure.what(), Now());
        // Nothing can come of an update that is over, even if it must be left alone.
        return watch_.IsOver(Now());
    }
}

void WatchLoop::Tick() {
    if (Now() >= next_tick_) {
        watch_.Tick(Now());
        next_tick_ = Now() + TICK;
    }
}

int WatchLoop::Run(UpdaterProcess& updater) {
    bool is_ended = false;
    std::optional<int> status;
    while (!status) {
        Wait(has_output_ ? updater.Output() : -1, has_error_output_ ? updater.ErrorOutput() : -1);
        status = updater.Status();
        Drain(updater);
        Tick();
        if (!status && (watch_.IsRequested() || watch_.IsOver(Now()))) {
            is_ended = TryToEnd(updater);
            status = is_ended ? 128 + request_ : updater.Status();
        }
    }
    Drain(updater);
    const int result = watch_.Finish(*status, is_ended, Now());
    output_.Drain(LAST_OUTPUT);
    return result;
}

int WatchLoop::Read(int descriptor) {
    char bytes[4096];
    bool is_over = false;
    while (!is_over && request_ == 0 && !watch_.IsOver(Now())) {
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
