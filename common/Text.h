// SPDX-License-Identifier: Apache-2.0
// What the programs do with texts.
#ifndef COMMON_TEXT_H
#define COMMON_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace common {

bool StartsWith(std::string_view text, std::string_view beginning);
bool EndsWith(std::string_view text, std::string_view end);

// The pieces with `separator` between them.
std::string Join(const std::vector<std::string>& pieces, std::string_view separator);

// `bytes` as pairs of lower-case hexadecimal digits.
std::string Hex(std::string_view bytes);
std::string Hex(std::uint8_t byte);

// `bytes` as printable ASCII: control characters, bytes above 0x7E and backslashes as C escapes.
std::string Escape(std::string_view bytes);

// As Escape, with every blank as an open box (U+2423), so that the blanks can be counted.
std::string EscapeAndShowBlanks(std::string_view bytes);

}  // namespace common

#endif
