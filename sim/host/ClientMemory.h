// SPDX-License-Identifier: Apache-2.0
// The memory of a program that makes calls to device nodes, read without its help.
#ifndef SIM_HOST_CLIENT_MEMORY_H
#define SIM_HOST_CLIENT_MEMORY_H

#include <sys/types.h>

#include <vector>

#include "sim/host/NodeCall.h"

namespace sim {

// The kernel may forbid it. And of a program that runs in an emulator, what is read may not be the
// memory that its calls speak of. So it is done for a process with which it is known to work.
class ClientMemory {
  public:
    enum class Copied { All, NotPossible, BadAddress };

    Copied Copy(pid_t process, const std::vector<MemoryPiece>& pieces) const;

    // Learns whether it works, from pieces that the process has sent itself.
    void Learn(pid_t process, const std::vector<MemoryPiece>& sent);

  private:
    pid_t readable_ = 0;
    pid_t unreadable_ = 0;
};

}  // namespace sim

#endif
