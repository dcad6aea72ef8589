// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Wrap.h"

namespace tools {

std::vector<std::string> Wrap(std::string text, std::size_t width) {
    std::vector<std::string> lines;
    while (width > 0 && text.size() > width) {
        std::size_t end = text.rfind(' ', width);
        const bool has_blank = end != std::string::npos && end > 0;
        end = has_blank ? end : width;
        lines.push_back(text.substr(0, end));
        text.erase(0, has_blank ? end + 1 : end);
    }
    lines.push_back(text);
    return lines;
}

std::vector<std::string> WrapBehind(std::string label, const std::string& text, std::size_t width) {
    const std::size_t indent = label.size();
    std::vector<std::string> lines = Wrap(text, width > indent ? width - indent : width);
    for (std::string& line : lines) {
        line.insert(0, label);
        label.assign(indent, ' ');
    }
    return lines;
}

}  // namespace tools
