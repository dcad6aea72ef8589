// SPDX-License-Identifier: Apache-2.0
// The one table of the reception bits and programming statuses: what the log, the decoders and the
// pages call them is taken from it or compared with it.
#ifndef SIM_STATUS_NAMES_H
#define SIM_STATUS_NAMES_H

#include <array>
#include <cstdint>
#include <string>

#include "sim/LogicalMessage.h"

namespace sim {

struct ReceptionBit {
    std::uint8_t mask;
    const char* name;     // the decoders' filter for it ends so
    const char* meaning;  // for people
};

struct ProgramStatusName {
    ProgramStatus status;
    const char* meaning;
};

constexpr std::array<ReceptionBit, 6> RECEPTION_BITS = {
    {{RECEIVED, "ok", "received correctly"},
     {COUNT_MISMATCH, "count_mismatch", "count mismatch"},
     {HEADER_MISSING, "header_missing", "header missing"},
     {CHECKSUM_MISMATCH, "checksum_mismatch", "checksum mismatch"},
     {OVERFLOW_BIT, "overflow", "overflow"},
     {UNKNOWN_OPCODE_BITS, "unknown_opcode", "unknown opcode"}}};

constexpr std::array<ProgramStatusName, 9> PROGRAM_STATUSES = {
    {{STATUS_COMPLETE, "complete"},
     {STATUS_VERIFICATION_FAILED, "verification failed"},
     {STATUS_IDLE, "idle"},
     {STATUS_ERASING, "erasing"},
     {STATUS_PROGRAMMING, "programming"},
     {STATUS_VERIFYING, "verifying"},
     {STATUS_SECURITY_MISMATCH, "security mismatch"},
     {STATUS_SINGLE_ON_DUAL, "single tuner image on dual tuner flash"},
     {STATUS_DUAL_ON_SINGLE, "dual tuner image on single tuner flash"}}};

// Such as ", not taken, header missing"; empty for a message that was taken and in step.
std::string ReceptionText(unsigned status);

// Such as "erasing (4)".
std::string ProgramStatusText(unsigned status);

}  // namespace sim

#endif
