// SPDX-License-Identifier: Apache-2.0
// What a shell does before it starts a program: its environment, and where it looks for it.
#ifndef COMMON_PROGRAM_FILES_H
#define COMMON_PROGRAM_FILES_H

#include <string>
#include <vector>

#include "common/Spawn.h"

namespace common {

// This process's environment, "NAME=value" each, with the variables in the place of those of the
// same name.
std::vector<std::string> Environment(const std::vector<Variable>& variables);

// The files that the program's name may stand for, in the order in which they are tried: the
// environment's PATH tells.
std::vector<std::string> ProgramFiles(const std::string& name,
                                      const std::vector<std::string>& environment);

}  // namespace common

#endif
