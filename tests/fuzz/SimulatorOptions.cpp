// SPDX-License-Identifier: Apache-2.0
// An input is bbpsim's command line: words of its own vocabulary and any others. What is taken can
// be done, and says the same when it is written as text again; anything else is told and has a
// status.
#include <cstdio>
#include <string>
#include <vector>

#include "common/Failure.h"
#include "sim/FaultText.h"
#include "sim/host/Options.h"
#include "tests/fuzz/Require.h"

namespace {

using fuzz::Input;
using fuzz::Require;

constexpr int OWN_FAILURE = 125;
constexpr std::size_t MOST_WORDS = 16;
constexpr std::size_t LONGEST_VERSION = 35;

const char* const VOCABULARY[] = {
    "--installed",
    "--reports",
    "--flash",
    "--burn",
    "--pace",
    "--bus-hz",
    "--fault",
    "--list-faults",
    "--report",
    "--json",
    "--log",
    "--log-file",
    "--pcap",
    "--vcd",
    "--help",
    "--vcd-first",
    "--vcd-count",
    "--version",
    "--",
    "wire",
    "none",
    "4,8,3",
    "0.5,0,1e3",
    "400000",
    "999",
    "1000001",
    "poll 2+ busy",
    "read 3 flip 12:7",
    "lock 1+ never-grant",
    "lock 2 never-grant",
    "-h",
    "--faults",
};
constexpr std::size_t WORDS = sizeof VOCABULARY / sizeof VOCABULARY[0];

// A word of the vocabulary, or one of the input's own bytes; never a path that could be read.
std::string Word(Input& input) {
    const std::uint8_t choice = input.Byte();
    std::string word = choice < WORDS ? VOCABULARY[choice] : "";
    if (choice >= WORDS || choice % 5 == 4) {
        for (char c = static_cast<char>(input.Byte()); c != '\0';
             c = static_cast<char>(input.Byte())) {
            word += c == '/' ? '_' : c;
        }
    }
    return word;
}

bool IsPhase(sim::Duration time) {
    return time >= sim::Duration::zero() && time <= std::chrono::hours(1);
}

void CheckFaults(const std::vector<sim::Fault>& faults) {
    for (const sim::Fault& fault : faults) {
        const bool is_of_lock =
            fault.event == sim::Event::Lock || fault.event == sim::Event::Unlock;
        Require(!is_of_lock || (fault.action == sim::Action::NeverGrant && fault.nth == 1),
                "no fault of a lock but the one that bbpsim can bring about");
        sim::Fault again;
        sim::FaultMistake mistake;
        const std::string text = sim::FaultText(fault);
        Require(sim::ParseFault(text, &again, &mistake) && sim::FaultText(again) == text,
                "a fault's text gives the fault back");
    }
}

void Check(const sim::Options& options) {
    Require(options.installed.size() <= LONGEST_VERSION, "a version fits a reply");
    Require(IsPhase(options.burn.erase) && IsPhase(options.burn.program) &&
                IsPhase(options.burn.verify),
            "a phase of the burn takes up to an hour");
    Require(options.bus_hz >= 1000 && options.bus_hz <= 1000000, "the bus has a clock");
    Require(options.vcd_window.first >= 1 && options.vcd_window.count >= 1 &&
                options.vcd_window.count <= 2000,
            "a waveform has transfers, and not too many");
    CheckFaults(options.faults);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // What the parser tells people is not read here.
    Require(std::freopen("/dev/null", "w", stdout) != nullptr,
            "standard output can be thrown away");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    std::vector<std::string> words = {"bbpsim"};
    while (!input.Empty() && words.size() < MOST_WORDS) {
        words.push_back(Word(input));
    }
    std::vector<const char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    try {
        sim::Options options;
        if (!sim::ParseOptions(static_cast<int>(arguments.size()), arguments.data(), options)) {
            Check(options);
        }
    } catch (const common::Failure& mistake) {
        Require(mistake.Status() == OWN_FAILURE, "a mistake has the status of a failure");
    }
    return 0;
}
