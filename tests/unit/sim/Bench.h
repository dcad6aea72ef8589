// SPDX-License-Identifier: Apache-2.0
// Head units with faults for the tests.
#ifndef TESTS_UNIT_SIM_BENCH_H
#define TESTS_UNIT_SIM_BENCH_H

#include <utility>
#include <vector>

#include "sim/HeadUnit.h"
#include "sim/SampleImage.h"
#include "tests/unit/sim/Requests.h"

namespace sim {

inline Fault At(Event event, unsigned nth, Action action, unsigned value = 0,
                std::size_t offset = 0) {
    Fault fault;
    fault.event = event;
    fault.nth = nth;
    fault.action = action;
    fault.value = value;
    fault.offset = offset;
    return fault;
}

inline Fault FromThereOn(Fault fault) {
    fault.times = FOR_EVER;
    return fault;
}

inline Fault OnReply(Fault fault) {
    fault.on_reply = true;
    return fault;
}

// A head unit with faults and the updater's side of it.
class Bench {
  public:
    explicit Bench(std::vector<Fault> faults) : unit(Config(), std::move(faults)), caller(unit) {}

    static ChipConfig Config() {
        ChipConfig config;
        config.flash = MakeSampleImage("1.0", LABEL_OFFSET + LABEL_SIZE);
        return config;
    }

    HeadUnit unit;
    Caller caller;
};

}  // namespace sim

#endif
