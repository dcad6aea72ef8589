// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/HeadUnitPaths.h"

#include <cstdlib>
#include <filesystem>

namespace tools {

std::string SimulatedUnitFolder() {
    const char* const folder = std::getenv("UMOCKDEV_DIR");
    std::error_code error;
    const bool has_bus =
        folder != nullptr && std::filesystem::exists(std::string(folder) + BUS_NODE, error);
    return has_bus ? folder : "";
}

}  // namespace tools
