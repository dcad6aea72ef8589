// SPDX-License-Identifier: Apache-2.0
#include "tools/image/LabelField.h"

namespace tools {

std::optional<std::string> EncodeLabel(const std::string& label) {
    if (!label.empty() && label.front() == ' ') {
        return std::nullopt;
    }
    if (label.size() <= sim::LONGEST_VERSION) {
        return sim::MakeLabel(label);
    }
    // A field with a single character is read from that character to the field's end.
    const bool is_single = label.find_last_not_of(' ') == 0;
    if (is_single && label.size() <= sim::LABEL_SIZE) {
        return std::string(sim::LABEL_SIZE - label.size(), ' ') + label;
    }
    return std::nullopt;
}

}  // namespace tools
