// SPDX-License-Identifier: Apache-2.0
// The command line of bbpsim.
#ifndef SIM_HOST_OPTIONS_H
#define SIM_HOST_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "sim/ChipModel.h"
#include "sim/Fault.h"
#include "sim/HeadUnit.h"
#include "sim/VcdWriter.h"

namespace sim {

struct Options {
    std::string installed = ChipConfig().installed;
    std::optional<std::string> reports;
    std::string flash;  // path; empty for a flash that is forgotten
    BurnTimes burn;
    bool paced = true;
    int bus_hz = BUS_HZ;
    std::vector<Fault> faults;
    bool report = false;
    bool log = false;
    std::string log_file;  // paths; empty for none
    std::string pcap;
    std::string vcd;
    VcdWriter::Window vcd_window;
    std::string json;
    std::vector<std::string> command;  // empty for a shell
};

// Whether the faults keep the bus's lock from everybody for ever. It is the only fault of the lock
// that a head unit behind device nodes can have: locks are the kernel's business.
bool LockIsTaken(const std::vector<Fault>& faults);

// Reads the command line into `options`. Returns the status with which the program is to end at
// once, after a text that was asked for and is printed; or nothing. Throws a common::Failure for a
// mistake.
std::optional<int> ParseOptions(int argc, const char* const* argv, Options& options);

}  // namespace sim

#endif
