// SPDX-License-Identifier: Apache-2.0
// An input is the text of faults, as a person gives them to the simulated head unit.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "sim/FaultText.h"
#include "tests/fuzz/Require.h"

namespace {

using fuzz::Require;
using sim::Fault;

auto Fields(const Fault& fault) {
    return std::make_tuple(fault.event, fault.nth, fault.action, fault.value, fault.offset,
                           fault.times, fault.on_reply);
}

void CheckMistake(const std::string& text, const sim::FaultMistake& mistake) {
    Require(!mistake.reason.empty(), "a mistake has a reason");
    Require(mistake.position <= text.size() && mistake.length <= text.size() - mistake.position,
            "a mistake's place is in the text");
    Require(sim::ShowMistake(text, mistake).find(mistake.reason) != std::string::npos,
            "a shown mistake names its reason");
}

void CheckOne(const std::string& text) {
    Fault fault;
    sim::FaultMistake mistake;
    if (!sim::ParseFault(text, &fault, &mistake)) {
        CheckMistake(text, mistake);
        return;
    }
    Fault again;
    Require(sim::ParseFault(sim::FaultText(fault), &again, &mistake), "a fault's text is one");
    Require(Fields(again) == Fields(fault), "a fault's text gives the fault back");
}

std::string LineOf(const std::string& text, std::size_t number) {
    std::size_t begin = 0;
    for (std::size_t i = 1; i < number; ++i) {
        begin = text.find('\n', begin) + 1;
    }
    return text.substr(begin, text.find('\n', begin) - begin);
}

void CheckAll(const std::string& text) {
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    std::vector<Fault> faults;
    sim::FaultMistake mistake;
    std::size_t line = 0;
    if (sim::ParseFaults(text, &faults, &mistake, &line)) {
        Require(faults.size() <= lines, "no more faults than lines");
    } else {
        Require(line >= 1 && line <= lines, "a mistake's line is in the text");
        CheckMistake(LineOf(text, line), mistake);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    CheckOne(text);
    CheckAll(text);
    return 0;
}
