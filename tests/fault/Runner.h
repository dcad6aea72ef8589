// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_FAULT_RUNNER_H
#define BBPFLASH_TESTS_FAULT_RUNNER_H

#include <string>

#include "tests/fault/Injection.h"
#include "tests/fault/Reference.h"
#include "tests/fault/Scenario.h"

namespace fault {

// How one run came out.
struct Verdict {
    std::string outcome;     // its name: "success", "ERROR", "endless"...
    std::string difference;  // the first one from what must be; empty for none
    bool struck = false;     // the fault has happened
};

// Runs the scenario with the injection and judges the run: by the reference, call by call, and by
// what must hold for every run. With `story`, it gets the whole transcript.
Verdict RunOne(const Scenario& scenario, const Injection& injection, std::string* story = nullptr);

// What must hold for every run, whatever the fault: empty, or what does not. `facts` is what the
// reference has learned from the run.
std::string Violation(const Scenario& scenario, const Injection& injection,
                      virt::VirtualHeadUnit& unit, const virt::RunResult& result,
                      const Facts& facts);

// The run's end by its name; empty for one that nothing explains.
std::string OutcomeOf(const virt::CallLog& log, const virt::RunResult& result);

}  // namespace fault

#endif
