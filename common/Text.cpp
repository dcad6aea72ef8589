// SPDX-License-Identifier: Apache-2.0
#include "common/Text.h"

namespace common {

namespace {

std::string EscapeByte(char byte) {
    switch (byte) {
        case '\\':
            return "\\\\";
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            return byte < ' ' || byte > '~' ? "\\x" + Hex(static_cast<std::uint8_t>(byte))
                                            : std::string(1, byte);
    }
}

}  // namespace

bool StartsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string Join(const std::vector<std::string>& pieces, std::string_view separator) {
    std::string all;
    for (const std::string& piece : pieces) {
        if (&piece != pieces.data()) {
            all += separator;
        }
        all += piece;
    }
    return all;
}

std::string Hex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += Hex(static_cast<std::uint8_t>(byte));
    }
    return text;
}

std::string Hex(std::uint8_t byte) {
    constexpr char DIGITS[] = "0123456789abcdef";
    return {DIGITS[byte >> 4], DIGITS[byte & 0xF]};
}

std::string Escape(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += EscapeByte(byte);
    }
    return text;
}

std::string EscapeAndShowBlanks(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += byte == ' ' ? "\xE2\x90\xA3" : EscapeByte(byte);
    }
    return text;
}

}  // namespace common
