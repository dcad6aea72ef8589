// SPDX-License-Identifier: Apache-2.0
// The calls that programs make to the device nodes.
#ifndef SIM_HOST_NODE_CALL_H
#define SIM_HOST_NODE_CALL_H

#include <cstddef>
#include <memory>
#include <vector>

#include "sim/host/DeviceHandler.h"
#include "sim/host/IoctlProtocol.h"

namespace sim {

enum class Node { Bus, Reset };

// Bytes of a program's memory, and as many here.
struct MemoryPiece {
    unsigned long address = 0;
    void* here = nullptr;
    std::size_t size = 0;
};

struct CallResult {
    long value = 0;
    int error = 0;
    std::vector<MemoryPiece> given;  // what the program's memory gets; owned by the call
};

// A call, from the request to its result.
class NodeCall {
  public:
    virtual ~NodeCall() = default;

    // What is to be copied here from the program's memory next, each piece at least one byte. To be
    // called again when all of it is here, until there is nothing more.
    virtual std::vector<MemoryPiece> Need() = 0;

    // Carries it out.
    virtual CallResult Make(DeviceHandler& handler) = 0;
};

// Null for a word that is no request.
std::unique_ptr<NodeCall> MakeCall(Node node, const IoctlMessage& request);

}  // namespace sim

#endif
