// SPDX-License-Identifier: Apache-2.0
#ifndef SIM_HOST_IOCTL_CONNECTION_H
#define SIM_HOST_IOCTL_CONNECTION_H

#include <sys/types.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/UniqueFd.h"
#include "sim/host/ClientMemory.h"
#include "sim/host/NodeCall.h"

namespace sim {

// A program that has a device node open: takes its calls, one at a time, and answers each when the
// devices release it. No method waits for the program. That it goes ends the connection; whatever
// else fails throws common::Failure.
class IoctlConnection {
  public:
    using Clock = DeviceHandler::Clock;

    // The socket never blocks, and tells who sends (SO_PASSCRED).
    IoctlConnection(common::UniqueFd socket, Node node) : socket_(std::move(socket)), node_(node) {}

    int Descriptor() const { return socket_.Get(); }

    // The events of poll() for which OnEvents() is to be called, beside those that always are.
    short Events() const;
    void OnEvents(short events, DeviceHandler& handler);

    // When Answer() is to be called: a call has been carried out.
    std::optional<Clock::time_point> AnswerDue() const { return due_; }
    void Answer();

    bool IsOver() const { return over_; }

  private:
    // What is being received: a request or, for its call, one of the pieces that this still needs.
    MemoryPiece Expected();
    bool Receive();
    void OnRequest(DeviceHandler& handler);
    void OnPiece(DeviceHandler& handler);
    void Advance(DeviceHandler& handler);
    void Ask();
    void Complete(const CallResult& result, Clock::time_point due);
    void Flush();

    common::UniqueFd socket_;
    const Node node_;
    bool over_ = false;
    std::size_t received_ = 0;

    IoctlMessage request_ = {};
    pid_t process_ = 0;  // whose request it is
    std::unique_ptr<NodeCall> call_;
    std::vector<MemoryPiece> needed_;
    std::size_t sent_pieces_ = 0;  // by the process itself
    ClientMemory memory_;

    // What is to be sent, each part whole, and until when it is held back.
    std::deque<std::string> parts_;
    std::optional<Clock::time_point> due_;
};

}  // namespace sim

#endif
