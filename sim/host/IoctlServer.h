// SPDX-License-Identifier: Apache-2.0
#ifndef SIM_HOST_IOCTL_SERVER_H
#define SIM_HOST_IOCTL_SERVER_H

#include <poll.h>

#include <functional>
#include <list>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "common/Pipe.h"
#include "common/UniqueFd.h"
#include "sim/host/DeviceHandler.h"
#include "sim/host/IoctlConnection.h"
#include "sim/host/NodeCall.h"
#include "sim/host/ResetPipe.h"

namespace sim {

// Serves device nodes in one thread: what programs call there, what comes through the reset line's
// pipe, and the time of the devices themselves.
class IoctlServer {
  public:
    // The handler and the pipe are not owned. From Start() to Stop() the handler is the thread's.
    // `on_failure` is called in the thread when it cannot go on.
    IoctlServer(DeviceHandler& handler, ResetPipe& pipe, std::function<void()> on_failure);
    ~IoctlServer();
    IoctlServer(const IoctlServer&) = delete;
    IoctlServer& operator=(const IoctlServer&) = delete;

    // Makes the socket `path` for a node. To be called before Start(). Throws common::Failure.
    void Listen(const std::string& path, Node node);

    void Start();

    // Answers what has been carried out and ends. Throws the common::Failure with which the thread
    // ended before, once.
    void Stop();

  private:
    using Clock = DeviceHandler::Clock;

    struct Listener {
        common::UniqueFd socket;
        Node node;
    };

    void Run();
    void Serve();
    void End();
    std::vector<pollfd> Watched() const;
    std::optional<Clock::time_point> NextDeadline() const;
    void HandleEvents(const std::vector<pollfd>& watched);
    void HandleTime();
    void Accept(const Listener& listener);

    DeviceHandler& handler_;
    ResetPipe& pipe_;
    const std::function<void()> on_failure_;
    common::Pipe end_;
    std::vector<Listener> listeners_;
    std::list<IoctlConnection> connections_;
    // Until when no program is let in: there is no room for one.
    std::optional<Clock::time_point> closed_until_;
    std::optional<std::string> failure_;
    std::thread thread_;
};

}  // namespace sim

#endif
