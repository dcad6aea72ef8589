// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_UNITCHECK_H
#define BBPFLASH_TOOLS_WATCH_UNITCHECK_H

#include <optional>
#include <string>
#include <vector>

namespace tools {

// One thing that an update needs.
struct Requirement {
    std::string name;
    std::optional<bool> is_well;  // nothing: it cannot be known
    std::string text;             // what there is, or what to do
};

// Everything that can be known without touching the chip: neither reset nor transfer. The image is
// looked at unless its path is empty.
std::vector<Requirement> CheckUnit(const std::string& lock, const std::string& image);

}  // namespace tools

#endif
