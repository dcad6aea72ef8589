// SPDX-License-Identifier: Apache-2.0
#ifndef SIM_HOST_RESET_PIPE_H
#define SIM_HOST_RESET_PIPE_H

#include <string>

#include "common/UniqueFd.h"
#include "sim/host/DeviceHandler.h"

namespace sim {

// The reset line for those who write to its node in a way that the device nodes do not see: a shell
// that redirects a command's output, dd, a program's buffered stream. In place of the node's file
// there is a named pipe that is read here.
class ResetPipe {
  public:
    // Makes the file `path`. Throws common::Failure.
    explicit ResetPipe(const std::string& path);

    // Becomes readable when somebody writes to the node.
    int Descriptor() const { return pipe_.Get(); }

    // Takes all levels ('0' or '1') that have been written. Throws common::Failure.
    void Read(DeviceHandler& handler);

  private:
    static void Take(const std::string& text, DeviceHandler& handler);

    common::UniqueFd pipe_;
};

}  // namespace sim

#endif
