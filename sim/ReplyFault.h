// SPDX-License-Identifier: Apache-2.0
// What a fault makes of a reply.
#ifndef SIM_REPLY_FAULT_H
#define SIM_REPLY_FAULT_H

#include <array>
#include <cstdint>

#include "sim/Fault.h"
#include "sim/LogicalMessage.h"

namespace sim {

using ReadBytes = std::array<std::uint8_t, READ_SIZE>;

// Changes the READ_SIZE bytes of a read as a fault says whose action changes replies; `previous` is
// what the read before brought.
void MakeReply(const Fault& fault, const ReadBytes& previous, std::uint8_t* bytes);

}  // namespace sim

#endif
