// SPDX-License-Identifier: Apache-2.0
// Where the updater finds the head unit.
#ifndef BBPFLASH_TOOLS_WATCH_HEADUNITPATHS_H
#define BBPFLASH_TOOLS_WATCH_HEADUNITPATHS_H

#include <string>

namespace tools {

constexpr char BUS_NODE[] = "/dev/i2c1";
constexpr char RESET_NODE[] = "/dev/gpio/HD_DAB2Reset";

// The folder that stands behind the nodes of the simulated head unit that this process runs in;
// empty outside one.
std::string SimulatedUnitFolder();

}  // namespace tools

#endif
