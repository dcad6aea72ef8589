// SPDX-License-Identifier: Apache-2.0
#include "sim/host/RealTimeUnit.h"

#include <sys/prctl.h>

#include <thread>
#include <utility>

namespace sim {

namespace {

// What the way of a transfer from its caller to here and back takes.
constexpr Duration NODE_COST = std::chrono::microseconds(130);

// The kernel rounds sleeps up by 50 microseconds unless told otherwise.
void SleepUntil(RealTimeUnit::Clock::time_point deadline) {
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    std::this_thread::sleep_until(deadline);
}

}  // namespace

RealTimeUnit::RealTimeUnit(HeadUnit& unit, bool paced) : unit_(unit), paced_(paced) {
    if (!paced) {
        unit_.SetBusHz(0);
    }
}

void RealTimeUnit::CatchUp() {
    const Duration now = Clock::now() - start_;
    if (now > unit_.Now()) {
        unit_.Advance(now - unit_.Now());
    }
}

int RealTimeUnit::Transfer(const std::function<int()>& transfer) {
    Clock::time_point deadline;
    int result = 0;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        CatchUp();
        result = transfer();
        // What the simulation itself costs is part of the wire's time.
        deadline = start_ + unit_.Now() - NODE_COST;
        look_(unit_);
    }
    if (paced_) {
        SleepUntil(deadline);
    }
    return result;
}

int RealTimeUnit::WriteBus(unsigned address7, const std::uint8_t* bytes, std::size_t size) {
    return Transfer([&] { return unit_.Send(address7, bytes, size); });
}

int RealTimeUnit::ReadBus(unsigned address7, std::uint8_t* bytes, std::size_t size) {
    return Transfer([&] { return unit_.Receive(address7, bytes, size); });
}

int RealTimeUnit::WriteReset(const char* text, std::size_t size) {
    return Transfer([&] { return unit_.WriteReset(text, size); });
}

void RealTimeUnit::With(const std::function<void(HeadUnit&)>& use) {
    const std::lock_guard<std::mutex> guard(mutex_);
    CatchUp();
    use(unit_);
}

}  // namespace sim
