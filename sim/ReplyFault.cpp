// SPDX-License-Identifier: Apache-2.0
#include "sim/ReplyFault.h"

#include <algorithm>

namespace sim {

namespace {

// Sets one byte, and makes the checksum right again.
void SetByte(std::uint8_t* read, std::size_t offset, std::uint8_t value) {
    // The reply's own, whatever becomes of the count byte.
    const std::size_t count = read[0];
    read[offset] = value;
    if (count > PAYLOAD_AT && count <= READ_ROOM) {
        read[count] = Sum(read + 1, count - 1);
    }
}

void SetAll(std::uint8_t* read, std::uint8_t value) {
    std::fill_n(read, READ_SIZE, value);
}

std::uint8_t OtherOpcode(std::uint8_t opcode) {
    return opcode == OPCODE_VERSION ? OPCODE_FLASH : OPCODE_VERSION;
}

// The status query's answer has it in its second byte, the other query's in its first.
std::size_t ProgramStatusAt(const std::uint8_t* read) {
    return 1 + PAYLOAD_AT + (read[0] > OVERHEAD + 1 ? 1 : 0);
}

}  // namespace

void MakeReply(const Fault& fault, const ReadBytes& previous, std::uint8_t* bytes) {
    const std::uint8_t value = static_cast<std::uint8_t>(fault.value);
    const std::size_t offset = std::min(fault.offset, READ_SIZE - 1);
    switch (fault.action) {
        case Action::FlipBit:
            bytes[offset] = static_cast<std::uint8_t>(bytes[offset] ^ 1u << (fault.value & 7u));
            break;
        case Action::SetByte:
            return SetByte(bytes, offset, value);
        case Action::CountByte:
            bytes[0] = value;
            break;
        case Action::LengthField:
            return SetField(bytes + 1 + LENGTH_AT, fault.value);
        case Action::AllZero:
            return SetAll(bytes, 0x00);
        case Action::AllOnes:
            return SetAll(bytes, 0xFF);
        case Action::PreviousReply:
            std::copy(previous.begin(), previous.end(), bytes);
            break;
        case Action::OtherReply:
            return SetByte(bytes, 1 + OPCODE_AT, OtherOpcode(bytes[1 + OPCODE_AT]));
        case Action::WrongChecksum:
            bytes[std::min<std::size_t>(bytes[0], READ_SIZE - 1)] ^= 0xFF;
            break;
        case Action::StatusByte:
            return SetByte(bytes, 1 + STATUS_AT, value);
        case Action::ProgramStatus:
            return SetByte(bytes, ProgramStatusAt(bytes), value);
        case Action::Fail:
        case Action::FailAfter:
        case Action::Nak:
        case Action::Restart:
        case Action::PowerLoss:
        case Action::NeverGrant:
        case Action::LoseUnlock:
        case Action::DeadLine:
        case Action::RefuseSegment:
        case Action::ForgetSegment:
        case Action::Busy:
        case Action::RejectImage:
        case Action::DieErasing:
        case Action::DieProgramming:
        case Action::VerifyFails:
        case Action::NeverReady:
        case Action::SlowStart:
            break;
    }
}

}  // namespace sim
