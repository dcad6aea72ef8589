// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_IMAGE_VISIBLETEXT_H
#define BBPFLASH_TOOLS_IMAGE_VISIBLETEXT_H

#include <string>

namespace tools {

// `bytes` as printable ASCII: control characters, bytes above 0x7E and backslashes as C escapes.
std::string Escape(const std::string& bytes);

// As Escape, with every blank as an open box (U+2423), so that the blanks can be counted.
std::string EscapeAndShowBlanks(const std::string& bytes);

// `bytes` as pairs of lower-case hexadecimal digits.
std::string Hex(const std::string& bytes);

}  // namespace tools

#endif
