// SPDX-License-Identifier: Apache-2.0
// A head unit whose time is the real one, behind device nodes.
#ifndef SIM_HOST_REAL_TIME_UNIT_H
#define SIM_HOST_REAL_TIME_UNIT_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "sim/HeadUnit.h"
#include "sim/host/DeviceNodes.h"

namespace sim {

class RealTimeUnit : public DeviceHandler {
  public:
    using Clock = std::chrono::steady_clock;

    // The head unit is not owned and is this object's alone from now on: whoever else needs it goes
    // through With(). `paced`: a transfer's caller waits until it would be over on the wire.
    RealTimeUnit(HeadUnit& unit, bool paced);
    ~RealTimeUnit() override;
    RealTimeUnit(const RealTimeUnit&) = delete;
    RealTimeUnit& operator=(const RealTimeUnit&) = delete;

    int WriteBus(unsigned address7, const std::uint8_t* bytes, std::size_t size) override;
    int ReadBus(unsigned address7, std::uint8_t* bytes, std::size_t size) override;
    int WriteReset(const char* text, std::size_t size) override;

    // Calls `use` with the head unit, brought to the present time, while nothing happens to it.
    void With(const std::function<void(HeadUnit&)>& use);

  private:
    void CatchUp();
    void KeepTime();
    void WakeKeeper();
    std::optional<Clock::time_point> NextPhase() const;
    int Transfer(const std::function<int()>& transfer);

    HeadUnit& unit_;
    const bool paced_;
    const Clock::time_point start_ = Clock::now();
    std::mutex mutex_;
    // A burn goes on when nobody uses the bus: this thread brings the head unit to its next phase.
    std::condition_variable changed_;
    std::optional<Clock::time_point> awaited_;
    bool ends_ = false;
    std::thread keeper_;
};

}  // namespace sim

#endif
