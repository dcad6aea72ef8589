// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_WRAP_H
#define BBPFLASH_TOOLS_WATCH_WRAP_H

#include <cstddef>
#include <string>
#include <vector>

namespace tools {

// The text in lines of at most `width` characters, 0 for no limit: broken at blanks, and inside a
// word where it alone is longer than a line.
std::vector<std::string> Wrap(std::string text, std::size_t width);

// The same behind a label: the further lines stand below the first one's text. A width that leaves
// the text no room is that of the text alone.
std::vector<std::string> WrapBehind(std::string label, const std::string& text, std::size_t width);

}  // namespace tools

#endif
