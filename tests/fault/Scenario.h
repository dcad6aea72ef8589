// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_FAULT_SCENARIO_H
#define BBPFLASH_TESTS_FAULT_SCENARIO_H

#include <memory>
#include <string>
#include <vector>

#include "tests/support/VirtualHeadUnit.h"

namespace fault {

// A run without a fault: what is typed, which file it finds and what the chip holds. Its name tells
// it all: "-s,5000,update" is option -s, an image of 5000 bytes, and a chip that needs it.
struct Scenario {
    // One word of clustered letters, "none" for no option, "alone" for no argument at all.
    std::string options;
    // The image's bytes; a label is found behind the end of a short one. 0: a whole image of 1 MiB.
    std::size_t size = 0;
    // "update": another version is installed; "equal": the image's own; "never": as "update", and
    // after programming the chip reports a third one; "blank": the label is empty.
    std::string chip;

    std::string Name() const;
    // Throws std::invalid_argument for a text that is no scenario's name.
    static Scenario Of(const std::string& name);

    std::vector<std::string> Arguments() const;
    sim::ChipConfig Chip() const;
    void PutFiles(virt::VirtualFiles& files) const;
    bool IsWhole() const { return size == 0; }
    // The bytes that a download takes from the file.
    const virt::Bytes& Image() const;
    // How long a run may go on without touching the reset line: no run without a fault takes it.
    virt::Duration TimeLimit() const;
};

// The scenarios of a test run, or those of the long run.
std::vector<Scenario> AllScenarios(bool long_run);

}  // namespace fault

#endif
