// SPDX-License-Identifier: Apache-2.0
#include "sim/host/IoctlServer.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "common/Failure.h"

namespace sim {

namespace {

constexpr std::chrono::milliseconds REST(20);
const char SERVING[] = "serving the simulated devices";

pollfd Watch(int descriptor, short events) {
    pollfd watched = {};
    watched.fd = descriptor;
    watched.events = events;
    return watched;
}

// Waits for events until the deadline.
void Wait(std::vector<pollfd>* watched, std::optional<DeviceHandler::Clock::time_point> deadline) {
    timespec time = {};
    if (deadline) {
        const std::chrono::nanoseconds left = *deadline - DeviceHandler::Clock::now();
        const std::int64_t nanoseconds = std::max<std::int64_t>(0, left.count());
        time.tv_sec = nanoseconds / 1000000000;
        time.tv_nsec = nanoseconds % 1000000000;
    }
    if (ppoll(watched->data(), watched->size(), deadline ? &time : nullptr, nullptr) < 0) {
        if (errno != EINTR) {
            throw common::ErrnoFailure(SERVING, errno);
        }
        for (pollfd& each : *watched) {
            each.revents = 0;
        }
    }
}

bool IsFull(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS;
}

bool HasGoneOrWaits(int error) {
    return error == EAGAIN || error == EINTR || error == ECONNABORTED;
}

}  // namespace

IoctlServer::IoctlServer(DeviceHandler& handler, ResetPipe& pipe, std::function<void()> on_failure)
    : handler_(handler),
      pipe_(pipe),
      on_failure_(std::move(on_failure)),
      end_(common::MakePipe()) {}

IoctlServer::~IoctlServer() {
    end_.write_end.Reset();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void IoctlServer::Listen(const std::string& path, Node node) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw common::ErrnoFailure(path, ENAMETOOLONG);
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    Listener listener;
    listener.node = node;
    listener.socket.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int yes = 1;
    // What is accepted from it tells who sends, as it does.
    if (!listener.socket ||
        setsockopt(listener.socket.Get(), SOL_SOCKET, SO_PASSCRED, &yes, sizeof yes) != 0 ||
        bind(listener.socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0 ||
        listen(listener.socket.Get(), SOMAXCONN) != 0) {
        throw common::ErrnoFailure(path, errno);
    }
    listeners_.push_back(std::move(listener));
}

void IoctlServer::Start() {
    thread_ = std::thread([this] { Run(); });
}

void IoctlServer::Stop() {
    end_.write_end.Reset();
    if (thread_.joinable()) {
        thread_.join();
    }
    if (failure_) {
        throw common::Failure(*std::exchange(failure_, std::nullopt));
    }
}

void IoctlServer::Run() {
    // The kernel rounds waits up by 50 microseconds unless told otherwise.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    try {
        Serve();
        End();
    } catch (const std::exception& error) {
        failure_ = error.what();
    }
    // Programs that use the devices later, or wait for an answer, are told so.
    connections_.clear();
    listeners_.clear();
    if (failure_) {
        on_failure_();
    }
}

void IoctlServer::Serve() {
    for (;;) {
        std::vector<pollfd> watched = Watched();
        Wait(&watched, NextDeadline());
        if (watched.front().revents != 0) {
            return;
        }
        HandleEvents(watched);
        HandleTime();
        connections_.remove_if([](const IoctlConnection& each) { return each.IsOver(); });
    }
}

void IoctlServer::End() {
    // What was written before the end still counts.
    pipe_.Read(handler_);
    for (IoctlConnection& connection : connections_) {
        if (connection.AnswerDue()) {
            connection.Answer();
        }
    }
}

// The end, the connections, the listeners, the pipe: it is last because, where a call is seen, what
// was written to the pipe before it is seen then as well.
std::vector<pollfd> IoctlServer::Watched() const {
    std::vector<pollfd> watched = {Watch(end_.read_end.Get(), POLLIN)};
    for (const IoctlConnection& connection : connections_) {
        watched.push_back(Watch(connection.Descriptor(), connection.Events()));
    }
    for (const Listener& listener : listeners_) {
        watched.push_back(Watch(listener.socket.Get(), closed_until_ ? 0 : POLLIN));
    }
    watched.push_back(Watch(pipe_.Descriptor(), POLLIN));
    return watched;
}

std::optional<IoctlServer::Clock::time_point> IoctlServer::NextDeadline() const {
    std::optional<Clock::time_point> next = handler_.NextEvent();
    const auto take = [&next](std::optional<Clock::time_point> other) {
        if (other && (!next || *other < *next)) {
            next = other;
        }
    };
    take(closed_until_);
    for (const IoctlConnection& connection : connections_) {
        take(connection.AnswerDue());
    }
    return next;
}

void IoctlServer::HandleEvents(const std::vector<pollfd>& watched) {
    if (watched.back().revents != 0) {
        pipe_.Read(handler_);
    }
    auto events = watched.begin() + 1;
    for (IoctlConnection& connection : connections_) {
        connection.OnEvents(events->revents, handler_);
        ++events;
    }
    for (const Listener& listener : listeners_) {
        if ((events->revents & POLLIN) != 0) {
            Accept(listener);
        }
        ++events;
    }
}

void IoctlServer::HandleTime() {
    const Clock::time_point now = Clock::now();
    const std::optional<Clock::time_point> event = handler_.NextEvent();
    if (event && *event <= now) {
        handler_.KeepTime();
    }
    for (IoctlConnection& connection : connections_) {
        if (connection.AnswerDue() && *connection.AnswerDue() <= now) {
            connection.Answer();
        }
    }
    if (closed_until_ && *closed_until_ <= now) {
        closed_until_.reset();
    }
}

void IoctlServer::Accept(const Listener& listener) {
    common::UniqueFd socket(
        accept4(listener.socket.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket) {
        connections_.emplace_back(std::move(socket), listener.node);
    } else if (IsFull(errno)) {
        closed_until_ = Clock::now() + REST;
    } else if (!HasGoneOrWaits(errno)) {
        throw common::ErrnoFailure(SERVING, errno);
    }
}

}  // namespace sim
