// SPDX-License-Identifier: Apache-2.0
// The files by which umockdev's library, preloaded into a program, shows it the device nodes.
#ifndef SIM_HOST_NODE_FOLDER_H
#define SIM_HOST_NODE_FOLDER_H

#include <string>

namespace sim {

// In the folder that the library is told of: what stands for a node, and the socket of who serves
// it.
constexpr char BUS_FILE[] = "/dev/i2c1";
constexpr char BUS_SOCKET[] = "/ioctl/dev/i2c1";
constexpr char RESET_FILE[] = "/dev/gpio/HD_DAB2Reset";
constexpr char RESET_SOCKET[] = "/ioctl/dev/gpio/HD_DAB2Reset";

// Makes the bus's file, what /sys tells of both nodes, and the folders for all the rest, in the
// existing `folder`. Throws common::Failure.
void MakeNodeFolder(const std::string& folder);

}  // namespace sim

#endif
