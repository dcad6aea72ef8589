// SPDX-License-Identifier: Apache-2.0
#include "tests/fault/Runner.h"

namespace fault {

namespace {

bool HasStruck(const InjectionHook& hook, virt::VirtualHeadUnit& unit) {
    return hook.Hits() > 0 || unit.Unit().GetReport().faults > 0;
}

std::string Tell(const virt::CallLog& log, const virt::RunResult& result) {
    std::string story;
    for (const virt::Call& call : log.Calls()) {
        story += Describe(log, call) + "\n";
    }
    return story + "ends: " + NameOf(result.outcome) + " " + std::to_string(result.status) +
           "\nstandard output:\n" + result.out;
}

}  // namespace

Verdict RunOne(const Scenario& scenario, const Injection& injection, std::string* story) {
    virt::VirtualHeadUnit unit(scenario.Chip(), injection.UnitFaults());
    scenario.PutFiles(unit.files);
    unit.SetTimeLimit(scenario.TimeLimit());
    InjectionHook hook(injection, unit.files);
    unit.SetHook(&hook);
    // Lies of the chip and lost lines may be told on: the output is judged below, fault by fault.
    unit.checks_output = false;
    const virt::RunResult result = unit.Run(scenario.Arguments());
    if (story != nullptr) {
        *story = Tell(unit.Log(), result);
    }

    Verdict verdict;
    verdict.struck = HasStruck(hook, unit);
    verdict.outcome = OutcomeOf(unit.Log(), result);
    if (verdict.outcome.empty()) {
        verdict.difference = std::string("no ending that is known: ") + NameOf(result.outcome) +
                             " " + std::to_string(result.status);
        return verdict;
    }
    Transcript transcript(unit.Log(), result);
    ReferenceUpdate reference(transcript, scenario.Arguments());
    try {
        reference.Run();
    } catch (const RunEnds& end) {
        try {
            transcript.CheckEnd(end);
            verdict.difference = Violation(scenario, injection, unit, result, reference.Known());
        } catch (const Difference& difference) {
            verdict.difference = difference.what;
        }
    } catch (const Difference& difference) {
        verdict.difference = difference.what;
    }
    return verdict;
}

}  // namespace fault
