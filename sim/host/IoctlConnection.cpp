// SPDX-License-Identifier: Apache-2.0
#include "sim/host/IoctlConnection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/Failure.h"

namespace sim {

namespace {

const char SOCKET[] = "the socket of a simulated device";

bool IsForLater(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

bool HasGone(int error) {
    return error == EPIPE || error == ECONNRESET;
}

std::string Bytes(const IoctlMessage& message) {
    return std::string(reinterpret_cast<const char*>(&message), sizeof message);
}

IoctlMessage Message(IoctlWord word, unsigned long first, unsigned long second) {
    IoctlMessage message;
    message.word = word;
    message.first = first;
    message.second = second;
    return message;
}

IoctlMessage Message(IoctlWord word, const MemoryPiece& piece) {
    return Message(word, piece.address, piece.size);
}

// Receives what has come, into `piece`, and who has sent it.
ssize_t ReceiveFrom(int socket, const MemoryPiece& piece, pid_t* sender) {
    iovec bytes = {piece.here, piece.size};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    msghdr message = {};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(socket, &message, 0);
    const cmsghdr* const header = size > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    *sender = 0;
    if (header != nullptr && header->cmsg_level == SOL_SOCKET &&
        header->cmsg_type == SCM_CREDENTIALS) {
        ucred credentials;
        std::memcpy(&credentials, CMSG_DATA(header), sizeof credentials);
        *sender = credentials.pid;
    }
    return size;
}

}  // namespace

short IoctlConnection::Events() const {
    if (due_) {
        return 0;
    }
    return parts_.empty() ? POLLIN : POLLOUT;
}

void IoctlConnection::OnEvents(short events, DeviceHandler& handler) {
    if ((events & Events()) == 0) {
        over_ = over_ || events != 0;
    } else if (!parts_.empty()) {
        Flush();
    } else if (Receive()) {
        received_ = 0;
        if (call_) {
            OnPiece(handler);
        } else {
            OnRequest(handler);
        }
    }
}

MemoryPiece IoctlConnection::Expected() {
    MemoryPiece whole;
    if (call_) {
        whole = needed_[sent_pieces_];
    } else {
        whole.here = &request_;
        whole.size = sizeof request_;
    }
    whole.here = static_cast<char*>(whole.here) + received_;
    whole.size -= received_;
    return whole;
}

// Whether all that is expected is here.
bool IoctlConnection::Receive() {
    const MemoryPiece expected = Expected();
    const ssize_t size = ReceiveFrom(socket_.Get(), expected, &process_);
    if (size > 0) {
        received_ += static_cast<std::size_t>(size);
        return static_cast<std::size_t>(size) == expected.size;
    }
    if (size == 0 || HasGone(errno)) {
        over_ = true;
    } else if (!IsForLater(errno)) {
        throw common::ErrnoFailure(SOCKET, errno);
    }
    return false;
}

void IoctlConnection::OnRequest(DeviceHandler& handler) {
    call_ = MakeCall(node_, request_);
    if (!call_) {
        throw common::Failure(
            "a program's libumockdev-preload.so.0 is of a version unknown here: "
            "it makes a request of the kind " +
            std::to_string(static_cast<unsigned long>(request_.word)));
    }
    Advance(handler);
}

void IoctlConnection::OnPiece(DeviceHandler& handler) {
    ++sent_pieces_;
    if (sent_pieces_ < needed_.size()) {
        Ask();
        return;
    }
    memory_.Learn(process_, needed_);
    Advance(handler);
}

// Goes on with the call until it is carried out, or needs memory that its process has to send.
void IoctlConnection::Advance(DeviceHandler& handler) {
    CallResult bad_address;
    bad_address.value = -1;
    bad_address.error = EFAULT;
    for (;;) {
        needed_ = call_->Need();
        if (needed_.empty()) {
            const CallResult result = call_->Make(handler);
            Complete(result, handler.Release());
            return;
        }
        const bool null = std::any_of(needed_.begin(), needed_.end(),
                                      [](const MemoryPiece& piece) { return piece.address == 0; });
        switch (null ? ClientMemory::Copied::BadAddress : memory_.Copy(process_, needed_)) {
            case ClientMemory::Copied::All:
                break;
            case ClientMemory::Copied::BadAddress:
                Complete(bad_address, Clock::now());
                return;
            case ClientMemory::Copied::NotPossible:
                sent_pieces_ = 0;
                Ask();
                return;
        }
    }
}

void IoctlConnection::Ask() {
    parts_.push_back(Bytes(Message(IoctlWord::Ask, needed_[sent_pieces_])));
    Flush();
}

void IoctlConnection::Complete(const CallResult& result, Clock::time_point due) {
    for (const MemoryPiece& piece : result.given) {
        parts_.push_back(Bytes(Message(IoctlWord::Give, piece)));
        parts_.back().append(static_cast<const char*>(piece.here), piece.size);
    }
    if (parts_.empty()) {
        parts_.emplace_back();
    }
    parts_.back() += Bytes(Message(IoctlWord::Done, static_cast<unsigned long>(result.value),
                                   static_cast<unsigned long>(result.error)));
    call_.reset();
    due_ = due;
    if (due <= Clock::now()) {
        Answer();
    }
}

void IoctlConnection::Answer() {
    due_.reset();
    Flush();
}

// A part is so small that the socket takes the whole of it or nothing.
void IoctlConnection::Flush() {
    while (!parts_.empty() && !over_) {
        const std::string& part = parts_.front();
        if (send(socket_.Get(), part.data(), part.size(), MSG_NOSIGNAL) >= 0) {
            parts_.pop_front();
        } else if (HasGone(errno)) {
            over_ = true;
        } else if (IsForLater(errno)) {
            return;
        } else {
            throw common::ErrnoFailure(SOCKET, errno);
        }
    }
}

}  // namespace sim
