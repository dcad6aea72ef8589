// SPDX-License-Identifier: Apache-2.0
#include "sim/LogicalMessage.h"

namespace sim {

std::uint8_t Sum(const std::uint8_t* bytes, std::size_t size) {
    unsigned sum = 0;
    for (std::size_t i = 0; i < size; ++i) {
        sum += bytes[i];
    }
    return static_cast<std::uint8_t>(sum);
}

Request Classify(const std::uint8_t* bytes, std::size_t size) {
    if (size < PAYLOAD_AT) {
        return Request::None;
    }
    const std::uint8_t opcode = bytes[OPCODE_AT];
    if (opcode == OPCODE_FLASH && GetField(bytes + SEGMENT_AT) != 0) {
        return Request::Segment;
    }
    const unsigned function = size > PAYLOAD_AT ? bytes[PAYLOAD_AT] : 0u;
    if (opcode == OPCODE_VERSION && function == FUNCTION_VERSION) {
        return Request::Version;
    }
    if (opcode == OPCODE_CONFIGURATION && function == FUNCTION_CONFIGURATION) {
        return Request::Configuration;
    }
    if (opcode == OPCODE_FLASH) {
        switch (function) {
            case FUNCTION_PROGRAM:
                return Request::Segment;
            case FUNCTION_PROGRAM_STATUS:
                return Request::Poll;
            case FUNCTION_UNPROTECT:
                return Request::Unprotect;
            case FUNCTION_FLASH_STATUS:
                return Request::FlashStatus;
            default:
                break;
        }
    }
    return Request::Other;
}

}  // namespace sim
