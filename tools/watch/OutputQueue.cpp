// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/OutputQueue.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tools {

namespace {

constexpr std::size_t MOST_KEPT = 1 << 20;  // bytes

// What a pipe that can be written to takes without blocking.
constexpr std::size_t AT_ONCE = 512;

}  // namespace

void OutputQueue::Put(const std::string& text) {
    if (error_ == 0 && pending_.size() + text.size() <= MOST_KEPT) {
        pending_ += text;
    }
    Flush();
}

// Returns whether it makes sense to try again.
bool OutputQueue::WriteSome(int timeout) {
    pollfd entry = {descriptor_, POLLOUT, 0};
    if (poll(&entry, 1, timeout) != 1) {
        return false;
    }
    const ssize_t count = write(descriptor_, pending_.data(), std::min(pending_.size(), AT_ONCE));
    if (count > 0) {
        pending_.erase(0, static_cast<std::size_t>(count));
        return true;
    }
    if (count == -1 && errno != EAGAIN && errno != EINTR) {
        error_ = errno;
        pending_.clear();
    }
    return false;
}

void OutputQueue::Flush() {
    while (!pending_.empty() && WriteSome(0)) {
    }
}

void OutputQueue::Drain(Milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!pending_.empty() && std::chrono::steady_clock::now() < end) {
        WriteSome(static_cast<int>(limit.count()));
    }
}

}  // namespace tools
