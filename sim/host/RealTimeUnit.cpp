// SPDX-License-Identifier: Apache-2.0
#include "sim/host/RealTimeUnit.h"

namespace sim {

namespace {

// What the way of a transfer from its caller to here and back takes.
constexpr Duration NODE_COST = std::chrono::microseconds(100);

}  // namespace

RealTimeUnit::RealTimeUnit(HeadUnit& unit, bool paced) : unit_(unit), paced_(paced) {
    if (!paced) {
        unit_.SetBusHz(0);
    }
}

DeviceHandler::Clock::time_point RealTimeUnit::Release() const {
    // What the simulation itself costs is part of the wire's time.
    return paced_ ? start_ + unit_.Now() - NODE_COST : start_;
}

std::optional<DeviceHandler::Clock::time_point> RealTimeUnit::NextEvent() const {
    const std::optional<Duration> left = unit_.Chip().UntilNextPhase();
    return left ? std::optional<Clock::time_point>(start_ + unit_.Now() + *left) : std::nullopt;
}

void RealTimeUnit::KeepTime() {
    const Duration now = Clock::now() - start_;
    if (now > unit_.Now()) {
        unit_.Advance(now - unit_.Now());
    }
}

int RealTimeUnit::WriteBus(unsigned address7, const std::uint8_t* bytes, std::size_t size) {
    KeepTime();
    return unit_.Send(address7, bytes, size);
}

int RealTimeUnit::ReadBus(unsigned address7, std::uint8_t* bytes, std::size_t size) {
    KeepTime();
    return unit_.Receive(address7, bytes, size);
}

int RealTimeUnit::WriteReset(const char* text, std::size_t size) {
    KeepTime();
    return unit_.WriteReset(text, size);
}

}  // namespace sim
