// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_FUZZ_LABELMODEL_H
#define BBPFLASH_TESTS_FUZZ_LABELMODEL_H

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>

namespace fuzz {

// The version that a label field means: what is between its blanks, less two characters. Nothing
// for a field of blanks.
inline std::optional<std::string> ReadLabel(const std::string& field) {
    const std::size_t first = field.find_first_not_of(' ');
    if (first == std::string::npos) {
        return std::nullopt;
    }
    const std::string text = field.substr(first);
    const std::size_t shown = text.find_last_not_of(' ') + 1;
    // Of one character nothing can be taken away: then it is all that follows.
    return shown == 1 ? text : text.substr(0, shown - 2);
}

}  // namespace fuzz

#endif
