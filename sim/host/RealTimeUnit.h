// SPDX-License-Identifier: Apache-2.0
// A head unit whose time is the real one, behind device nodes.
#ifndef SIM_HOST_REAL_TIME_UNIT_H
#define SIM_HOST_REAL_TIME_UNIT_H

#include <optional>

#include "sim/HeadUnit.h"
#include "sim/host/DeviceHandler.h"

namespace sim {

class RealTimeUnit : public DeviceHandler {
  public:
    // The head unit is not owned. `paced`: who makes a transfer learns its result when it would be
    // over on the wire.
    RealTimeUnit(HeadUnit& unit, bool paced);

    int WriteBus(unsigned address7, const std::uint8_t* bytes, std::size_t size) override;
    int ReadBus(unsigned address7, std::uint8_t* bytes, std::size_t size) override;
    int WriteReset(const char* text, std::size_t size) override;

    Clock::time_point Release() const override;
    // A burn goes on when nobody uses the bus.
    std::optional<Clock::time_point> NextEvent() const override;
    void KeepTime() override;

  private:
    HeadUnit& unit_;
    const bool paced_;
    const Clock::time_point start_ = Clock::now();
};

}  // namespace sim

#endif
