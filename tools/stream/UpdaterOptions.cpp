// SPDX-License-Identifier: Apache-2.0
#include "tools/stream/UpdaterOptions.h"

namespace tools {

UpdaterOptions ParseUpdaterOptions(const std::vector<std::string>& arguments) {
    UpdaterOptions options;
    if (arguments.size() <= 1) {
        return options;
    }
    options.image = arguments.back();
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (word.size() < 2 || word[0] != '-' || word == "--") {
            break;
        }
        options.force = options.force || word.find('f') != std::string::npos;
        options.info_only = options.info_only || word.find('i') != std::string::npos;
        options.status = options.status || word.find('s') != std::string::npos;
    }
    return options;
}

}  // namespace tools
