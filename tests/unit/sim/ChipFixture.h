// SPDX-License-Identifier: Apache-2.0
// A chip in a head unit, for the tests of the chip.
#ifndef TESTS_UNIT_SIM_CHIP_FIXTURE_H
#define TESTS_UNIT_SIM_CHIP_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "sim/ChipModel.h"
#include "sim/HeadUnit.h"
#include "sim/SampleImage.h"
#include "tests/unit/sim/Requests.h"

namespace sim {

inline ChipConfig Running(const std::string& version) {
    ChipConfig config;
    config.installed = version;
    return config;
}

inline ChipConfig Holding(Bytes flash) {
    ChipConfig config;
    config.flash = std::move(flash);
    return config;
}

inline BurnTimes BurnsAtOnce() {
    BurnTimes times;
    times.erase = times.program = times.verify = Duration::zero();
    return times;
}

class SimChip : public ::testing::Test {
  protected:
    HeadUnit unit_{Running("1.0.0")};
    Caller caller_{unit_};

    const Bytes& Flash() { return unit_.Chip().Flash(); }
};

}  // namespace sim

#endif
