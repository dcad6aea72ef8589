// SPDX-License-Identifier: Apache-2.0
// What the sources of Catalogue share.
#ifndef BBPFLASH_TESTS_FAULT_CATALOGUEPARTS_H
#define BBPFLASH_TESTS_FAULT_CATALOGUEPARTS_H

#include <cstddef>

#include "sim/Fault.h"
#include "tests/fault/Catalogue.h"

namespace fault {

constexpr int FOR_EVER = -1;
constexpr unsigned READ = 65;  // bytes

inline bool IsFile(virt::CallKind kind) {
    return kind == virt::CallKind::Fopen || kind == virt::CallKind::Fseek ||
           kind == virt::CallKind::Ftell || kind == virt::CallKind::Fread;
}

// A call's way to fail.
inline virt::Strike Make(virt::Strike::How how, int error = 0, long value = 0) {
    virt::Strike strike;
    strike.how = how;
    strike.error = error;
    strike.value = value;
    return strike;
}

// That way at that place, so many times.
inline CallFault At(const Catalogue::Place& place, const virt::Strike& strike, int times = 1) {
    return CallFault{place.kind, place.index, strike, times, FileAction::None, 0};
}

// The head unit's fault that strikes the nth of these events.
inline sim::Fault Unit(sim::Event event, unsigned nth, sim::Action action, unsigned value = 0,
                       std::size_t offset = 0, unsigned times = 1) {
    sim::Fault fault;
    fault.event = event;
    fault.nth = nth;
    fault.action = action;
    fault.value = value;
    fault.offset = offset;
    fault.times = times;
    return fault;
}

}  // namespace fault

#endif
