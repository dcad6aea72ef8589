// SPDX-License-Identifier: Apache-2.0
// The engine's catalogue holds whatever the simulated head unit can do wrong.
#include <gtest/gtest.h>

#include <set>

#include "sim/FaultNames.h"
#include "tests/fault/Catalogue.h"

namespace fault {

namespace {

// What the engine does to the calls themselves, and not through the head unit.
bool IsDoneToCalls(sim::Action action) {
    return action == sim::Action::Fail || action == sim::Action::FailAfter ||
           action == sim::Action::Nak || action == sim::Action::NeverGrant ||
           action == sim::Action::LoseUnlock;
}

}  // namespace

TEST(Catalogue, HasEveryActionOfTheSimulatedHeadUnit) {
    std::set<sim::Action> found;
    const Catalogue catalogue{Scenario()};
    for (const Kind kind : {Kind::Reply, Kind::Chip, Kind::Line}) {
        catalogue.ForEach(kind, [&](const Injection& injection) {
            for (const sim::Fault& fault : injection.UnitFaults()) {
                found.insert(fault.action);
            }
        });
    }
    for (const sim::ActionName& known : sim::ACTION_NAMES) {
        EXPECT_TRUE(IsDoneToCalls(known.action) || found.count(known.action) == 1) << known.name;
    }
}

}  // namespace fault
