// SPDX-License-Identifier: Apache-2.0
// A head unit whose time is the real one, behind device nodes.
#ifndef SIM_HOST_REAL_TIME_UNIT_H
#define SIM_HOST_REAL_TIME_UNIT_H

#include <chrono>
#include <functional>
#include <mutex>

#include "sim/HeadUnit.h"
#include "sim/host/DeviceNodes.h"

namespace sim {

class RealTimeUnit : public DeviceHandler {
  public:
    using Clock = std::chrono::steady_clock;

    // The head unit is not owned and is this object's alone from now on: whoever else needs it goes
    // through With(). `paced`: a transfer's caller waits until it would be over on the wire.
    RealTimeUnit(HeadUnit& unit, bool paced);

    int WriteBus(unsigned address7, const std::uint8_t* bytes, std::size_t size) override;
    int ReadBus(unsigned address7, std::uint8_t* bytes, std::size_t size) override;
    int WriteReset(const char* text, std::size_t size) override;

    // Calls `use` with the head unit, brought to the present time, while nothing happens to it.
    void With(const std::function<void(HeadUnit&)>& use);

    // Calls `look` after each transfer and each write to the reset line, in the nodes' thread.
    void AfterEach(std::function<void(HeadUnit&)> look) { look_ = std::move(look); }

  private:
    void CatchUp();
    int Transfer(const std::function<int()>& transfer);

    HeadUnit& unit_;
    const bool paced_;
    const Clock::time_point start_ = Clock::now();
    std::function<void(HeadUnit&)> look_ = [](HeadUnit&) {};
    std::mutex mutex_;
};

}  // namespace sim

#endif
