// SPDX-License-Identifier: Apache-2.0
#ifndef SIM_HOST_RESET_PIPE_H
#define SIM_HOST_RESET_PIPE_H

#include <cstddef>
#include <functional>
#include <string>
#include <thread>

#include "common/Pipe.h"
#include "common/UniqueFd.h"

namespace sim {

// The reset line for those who write to its node in a way that the device nodes do not see: a shell
// that redirects a command's output, dd, a program's buffered stream. In place of the node's file
// there is a named pipe that is read here.
class ResetPipe {
  public:
    using Write = std::function<void(const char* text, std::size_t size)>;

    // Replaces the file `path`. `write` is called in a thread of this object's, once for each level
    // ('0' or '1') that was written. Throws common::Failure.
    ResetPipe(const std::string& path, Write write);
    ~ResetPipe();
    ResetPipe(const ResetPipe&) = delete;
    ResetPipe& operator=(const ResetPipe&) = delete;

  private:
    void Serve();
    void Take(const std::string& text);

    const Write write_;
    common::UniqueFd pipe_;
    common::Pipe end_;
    std::thread server_;
};

}  // namespace sim

#endif
