// SPDX-License-Identifier: Apache-2.0
#include "sim/ReplyFault.h"

#include <algorithm>

namespace sim {

namespace {

// Makes the checksum right again of a reply that has `count` bytes.
void RepairChecksum(std::uint8_t* read, std::size_t count) {
    if (count > PAYLOAD_AT && count <= READ_ROOM) {
        read[count] = Sum(read + 1, count - 1);
    }
}

}  // namespace

void MakeReply(const Fault& fault, const ReadBytes& previous, std::uint8_t* bytes) {
    std::uint8_t* const message = bytes + 1;
    const std::uint8_t value = static_cast<std::uint8_t>(fault.value);
    const std::size_t offset = std::min(fault.offset, READ_SIZE - 1);
    // The reply's own, whatever becomes of the count byte.
    const std::size_t count = bytes[0];
    switch (fault.action) {
        case Action::FlipBit:
            bytes[offset] = static_cast<std::uint8_t>(bytes[offset] ^ 1u << (fault.value & 7u));
            break;
        case Action::SetByte:
            bytes[offset] = value;
            RepairChecksum(bytes, count);
            break;
        case Action::CountByte:
            bytes[0] = value;
            break;
        case Action::LengthField:
            SetField(message + LENGTH_AT, fault.value);
            break;
        case Action::AllZero:
            std::fill_n(bytes, READ_SIZE, std::uint8_t{0});
            break;
        case Action::AllOnes:
            std::fill_n(bytes, READ_SIZE, std::uint8_t{0xFF});
            break;
        case Action::PreviousReply:
            std::copy(previous.begin(), previous.end(), bytes);
            break;
        case Action::OtherReply:
            message[OPCODE_AT] =
                message[OPCODE_AT] == OPCODE_VERSION ? OPCODE_FLASH : OPCODE_VERSION;
            RepairChecksum(bytes, count);
            break;
        case Action::WrongChecksum:
            bytes[std::min<std::size_t>(bytes[0], READ_SIZE - 1)] ^= 0xFF;
            break;
        case Action::StatusByte:
            message[STATUS_AT] = value;
            RepairChecksum(bytes, count);
            break;
        case Action::ProgramStatus:
            // The status query's answer has it in its second byte, the other query's in its first.
            message[PAYLOAD_AT + (bytes[0] > OVERHEAD + 1 ? 1 : 0)] = value;
            RepairChecksum(bytes, count);
            break;
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
