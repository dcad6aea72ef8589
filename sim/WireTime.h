// SPDX-License-Identifier: Apache-2.0
// How long a transfer keeps the bus busy.
#ifndef SIM_WIRE_TIME_H
#define SIM_WIRE_TIME_H

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace sim {

using Duration = std::chrono::nanoseconds;

// The time of a transfer of `bytes` bytes at `bus_hz` bits per second: the address byte and each
// byte with its acknowledge bit, a start and a stop. A bus of 0 Hz takes no time at all.
inline Duration WireTime(std::size_t bytes, int bus_hz) {
    if (bus_hz <= 0) {
        return Duration::zero();
    }
    const std::int64_t bits = 9 * (static_cast<std::int64_t>(bytes) + 1) + 2;
    return Duration(bits * 1000000000 / bus_hz);
}

// How many bytes have gone over the bus so long after a transfer's start.
inline std::size_t WholeBytes(Duration time, int bus_hz) {
    const std::int64_t bits = time.count() * bus_hz / 1000000000;
    return bits < 11 ? 0 : static_cast<std::size_t>((bits - 2) / 9 - 1);
}

}  // namespace sim

#endif
