// SPDX-License-Identifier: Apache-2.0
#include "tools/image/LabelField.h"

#include <algorithm>

namespace tools {

namespace {

const char FILLER[] = "__";

bool IsControl(char byte) {
    return static_cast<unsigned char>(byte) < ' ' || byte == '\x7F';
}

bool IsBeyondAscii(char byte) {
    return static_cast<unsigned char>(byte) > 0x7F;
}

// Whether nothing was written where the field is: neither in a file nor in a flash memory.
bool IsUnwritten(const std::string& field) {
    const char first = field.empty() ? ' ' : field.front();
    return (first == '\0' || first == '\xFF') &&
           field.find_first_not_of(first) == std::string::npos;
}

}  // namespace

std::optional<std::string> EncodeLabel(const std::string& label) {
    if (!label.empty() && label.front() == ' ') {
        return std::nullopt;
    }
    if (label.size() <= sim::LONGEST_VERSION) {
        std::string field = label + FILLER;
        field.resize(sim::LABEL_SIZE, ' ');
        return field;
    }
    // A field with a single character is read from that character to the field's end.
    const bool is_single = label.find_last_not_of(' ') == 0;
    if (is_single && label.size() <= sim::LABEL_SIZE) {
        return std::string(sim::LABEL_SIZE - label.size(), ' ') + label;
    }
    return std::nullopt;
}

std::vector<Finding> CheckLabel(const std::string& field, const std::string& label) {
    std::vector<Finding> findings;
    const auto add = [&findings](Grade grade, const char* code, const std::string& text) {
        findings.push_back(MakeFinding(grade, code, text));
    };
    const std::size_t first = field.find_first_not_of(' ');
    const std::size_t last = field.find_last_not_of(' ');
    const bool is_whole = field.size() == sim::LABEL_SIZE;
    if (!is_whole) {
        add(Grade::Warnings, "cut-label",
            "it ends inside the label field, whose missing bytes count as NULs of the label");
    } else if (IsUnwritten(field)) {
        add(Grade::Unusable, "unwritten-label",
            std::string("the label field was never written: all its bytes are ") +
                (field.front() == '\0' ? "0x00" : "0xFF"));
        return findings;
    }
    if (is_whole && first == last) {
        add(Grade::Warnings, "one-character-label",
            "the field holds one character, which the updater reads with all the blanks behind it");
    }
    if (is_whole && first + 1 == last) {
        add(Grade::Warnings, "two-character-label",
            "the field holds two characters, both of which the updater drops: the label is empty");
    }
    if (std::any_of(label.begin(), label.end(), IsControl)) {
        add(Grade::Warnings, "control-characters",
            "the label holds control characters, which the chip's version must have, too");
    }
    if (std::any_of(label.begin(), label.end(), IsBeyondAscii)) {
        add(Grade::Warnings, "non-ascii-characters",
            "the label holds bytes outside ASCII, which the chip's version must have, too");
    }
    return findings;
}

}  // namespace tools
