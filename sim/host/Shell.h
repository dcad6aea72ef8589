// SPDX-License-Identifier: Apache-2.0
// The user's shell with a prompt that says where one is.
#ifndef SIM_HOST_SHELL_H
#define SIM_HOST_SHELL_H

#include <string>
#include <vector>

#include "common/Spawn.h"

namespace sim {

struct Shell {
    std::vector<std::string> command;
    std::vector<common::Variable> variables;
};

// The interactive shell of the variable SHELL, /bin/sh without one. What it reads when it starts is
// kept in `folder`. bash and zsh read the user's own start file first and keep his prompt behind
// the sign; other shells get a prompt that is nothing but the sign. Throws common::Failure.
Shell MakeShell(const std::string& folder);

}  // namespace sim

#endif
