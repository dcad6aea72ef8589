// SPDX-License-Identifier: Apache-2.0
// The bytes of a logical message, seen from the chip's side of the bus.
#ifndef SIM_LOGICAL_MESSAGE_H
#define SIM_LOGICAL_MESSAGE_H

#include <cstddef>
#include <cstdint>

namespace sim {

constexpr unsigned CHIP_ADDRESS = 0x17;  // 7-bit

// Offsets in a message; 16-bit fields have their low byte first.
constexpr std::size_t SYNC_AT = 0;  // two bytes
constexpr std::size_t COUNT_AT = 2;
constexpr std::size_t INSTANCE_AT = 3;
constexpr std::size_t LENGTH_AT = 4;
constexpr std::size_t OPCODE_AT = 6;
constexpr std::size_t STATUS_AT = 7;
constexpr std::size_t SEGMENTS_AT = 8;
constexpr std::size_t SEGMENT_AT = 10;
constexpr std::size_t PAYLOAD_AT = 12;

constexpr std::uint8_t SYNC = 0xA5;
constexpr std::size_t OVERHEAD = PAYLOAD_AT + 1;  // header and checksum
constexpr std::size_t LONGEST_MESSAGE = 2048;
constexpr std::size_t SEGMENT_PAYLOAD = LONGEST_MESSAGE - OVERHEAD;

// A reply is fetched in reads of 65 bytes: how many of the message's bytes follow, then the bytes.
constexpr std::size_t READ_SIZE = 65;
constexpr std::size_t READ_ROOM = READ_SIZE - 1;

enum Opcode : std::uint8_t {
    OPCODE_VERSION = 0x80,
    OPCODE_CONFIGURATION = 0x83,
    OPCODE_FLASH = 0x84
};

// The first payload byte of a message's first segment.
enum Function : std::uint8_t {
    FUNCTION_VERSION = 0x01,        // of OPCODE_VERSION
    FUNCTION_CONFIGURATION = 0x09,  // of OPCODE_CONFIGURATION
    FUNCTION_PROGRAM = 0x04,        // these four of OPCODE_FLASH
    FUNCTION_PROGRAM_STATUS = 0x05,
    FUNCTION_UNPROTECT = 0x0B,
    FUNCTION_FLASH_STATUS = 0x0C
};

// A reply's status bits. Their names are in RECEPTION_BITS.
enum Reception : std::uint8_t {
    RECEIVED = 0x01,
    COUNT_MISMATCH = 0x02,
    HEADER_MISSING = 0x04,
    CHECKSUM_MISMATCH = 0x08,
    OVERFLOW_BIT = 0x10,
    UNKNOWN_OPCODE = 0x20,  // the lowest of three
    UNKNOWN_OPCODE_BITS = 0xE0
};

// Their names are in PROGRAM_STATUSES.
enum ProgramStatus : std::uint8_t {
    STATUS_COMPLETE = 1,
    STATUS_VERIFICATION_FAILED = 2,
    STATUS_IDLE = 3,
    STATUS_ERASING = 4,
    STATUS_PROGRAMMING = 5,
    STATUS_VERIFYING = 6,
    STATUS_SECURITY_MISMATCH = 7,
    STATUS_SINGLE_ON_DUAL = 8,
    STATUS_DUAL_ON_SINGLE = 9
};

// The 16-bit field at `at`.
inline unsigned GetField(const std::uint8_t* at) {
    return static_cast<unsigned>(at[0] | at[1] << 8);
}

inline void SetField(std::uint8_t* at, unsigned value) {
    at[0] = static_cast<std::uint8_t>(value);
    at[1] = static_cast<std::uint8_t>(value >> 8);
}

// The 8-bit sum of `size` bytes.
std::uint8_t Sum(const std::uint8_t* bytes, std::size_t size);

// What a written message asks for.
enum class Request { None, Version, Configuration, Segment, Poll, Unprotect, FlashStatus, Other };

// Tells a message by its opcode, its segment number and its function byte; None is one too short to
// have a header.
Request Classify(const std::uint8_t* bytes, std::size_t size);

// A message that was written to the chip, classified once. Does not own the bytes.
struct WrittenMessage {
    WrittenMessage(const std::uint8_t* the_bytes, std::size_t the_size)
        : bytes(the_bytes), size(the_size), request(Classify(the_bytes, the_size)) {}

    const std::uint8_t* bytes;
    std::size_t size;
    Request request;
};

}  // namespace sim

#endif
