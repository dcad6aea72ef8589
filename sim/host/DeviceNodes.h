// SPDX-License-Identifier: Apache-2.0
// The device nodes of a head unit, /dev/i2c1 and /dev/gpio/HD_DAB2Reset, for the processes that are
// started in their environment. They need no privilege and nothing of the kernel.
#ifndef SIM_HOST_DEVICE_NODES_H
#define SIM_HOST_DEVICE_NODES_H

#include <functional>
#include <string>

#include "sim/host/DeviceHandler.h"
#include "sim/host/IoctlServer.h"
#include "sim/host/ResetPipe.h"

namespace sim {

class DeviceNodes {
  public:
    // Keeps what they need on disk in `folder`. The handler is not owned; it is called in another
    // thread until Shut(). `on_failure` is called there when the nodes fail. Throws
    // common::Failure.
    DeviceNodes(const std::string& folder, DeviceHandler& handler,
                std::function<void()> on_failure);

    // No call reaches the handler any more. Throws common::Failure if the nodes failed before.
    void Shut() { server_.Stop(); }

    // The folder of the nodes themselves.
    const std::string& Folder() const { return folder_; }

    // The file that stands for the bus: who locks it, locks the bus.
    std::string BusFile() const;

  private:
    const std::string folder_;
    ResetPipe pipe_;
    IoctlServer server_;
};

// The library that shows the nodes to a process that is started with it in LD_PRELOAD, and the
// variable that tells it the nodes' folder.
extern const char PRELOADED_LIBRARY[];
extern const char FOLDER_VARIABLE[];

}  // namespace sim

#endif
