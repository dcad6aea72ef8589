// SPDX-License-Identifier: Apache-2.0
#include "sim/host/RealTimeUnit.h"

#include <sys/prctl.h>

#include <thread>

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
    keeper_ = std::thread([this] { KeepTime(); });
}

RealTimeUnit::~RealTimeUnit() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        ends_ = true;
    }
    changed_.notify_one();
    keeper_.join();
}

std::optional<RealTimeUnit::Clock::time_point> RealTimeUnit::NextPhase() const {
    const std::optional<Duration> left = unit_.Chip().UntilNextPhase();
    return left ? std::optional<Clock::time_point>(start_ + unit_.Now() + *left) : std::nullopt;
}

void RealTimeUnit::KeepTime() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!ends_) {
        awaited_ = NextPhase();
        if (!awaited_) {
            changed_.wait(lock);
        } else if (changed_.wait_until(lock, *awaited_) == std::cv_status::timeout) {
            CatchUp();
        }
    }
}

// The keeper waits for something else than it should.
void RealTimeUnit::WakeKeeper() {
    if (NextPhase() != awaited_) {
        changed_.notify_one();
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
        WakeKeeper();
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
    WakeKeeper();
}

}  // namespace sim
