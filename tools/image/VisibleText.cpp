// SPDX-License-Identifier: Apache-2.0
#include "tools/image/VisibleText.h"

namespace tools {

namespace {

const char DIGITS[] = "0123456789abcdef";

std::string HexByte(char byte) {
    const unsigned char value = static_cast<unsigned char>(byte);
    return {DIGITS[value >> 4], DIGITS[value & 0xF]};
}

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
            return byte < ' ' || byte > '~' ? "\\x" + HexByte(byte) : std::string(1, byte);
    }
}

}  // namespace

std::string Escape(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += EscapeByte(byte);
    }
    return text;
}

std::string EscapeAndShowBlanks(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += byte == ' ' ? "\xE2\x90\xA3" : EscapeByte(byte);
    }
    return text;
}

std::string Hex(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += HexByte(byte);
    }
    return text;
}

}  // namespace tools
