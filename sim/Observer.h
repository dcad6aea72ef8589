// SPDX-License-Identifier: Apache-2.0
// What can be seen of a head unit, as it happens.
#ifndef SIM_OBSERVER_H
#define SIM_OBSERVER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "sim/LogicalMessage.h"
#include "sim/WireTime.h"

namespace sim {

enum class Direction { Write, Read };

// A transfer as it was on the bus. The bytes are valid during the call only: all `size` of a write,
// the first `moved` of a read.
struct Transfer {
    Duration start{0};
    Duration end{0};
    Direction direction = Direction::Write;
    unsigned address = CHIP_ADDRESS;  // 7-bit
    const std::uint8_t* bytes = nullptr;
    std::size_t size = 0;             // of the transfer that was asked for
    std::size_t moved = 0;            // bytes that went over the bus
    bool acknowledged = false;        // the address was
    int result = 0;                   // 0 or an errno value
    bool faulty = false;              // a fault happened to it
    Request request = Request::None;  // what the write asks for, or the write before the read did
};

class Observer {
  public:
    virtual ~Observer() = default;
    virtual void OnTransfer(const Transfer& /*transfer*/) {}
    // The reset line has got this level, or keeps it.
    virtual void OnReset(bool /*high*/, Duration /*at*/) {}
    // The flash holds something else than before.
    virtual void OnFlash(const std::vector<std::uint8_t>& /*flash*/) {}
};

}  // namespace sim

#endif
