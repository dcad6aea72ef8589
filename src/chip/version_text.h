// SPDX-License-Identifier: Apache-2.0
// The one rule by which the chip's version and an image's label are made comparable: an update ends
// when the two are equal, so both go through here.
#ifndef BBPFLASH_CHIP_VERSION_TEXT_H
#define BBPFLASH_CHIP_VERSION_TEXT_H

#include <string>

// `text` without the blanks around it and without the last two characters before them.
// Relied on: images carry labels with two characters to lose, as the chip's reply has them.
// Kept: a single character stays, with all that follows it, as its length wraps to "the rest", and
// a text of blanks alone ends in std::out_of_range; what such a label compares to must not change.
inline std::string TrimmedVersion(const std::string& text) {
    const std::string::size_type first = text.find_first_not_of(' ');
    const std::string::size_type last = text.find_last_not_of(' ');
    return text.substr(first, last - first - 1);
}

#endif
