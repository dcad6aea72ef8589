// SPDX-License-Identifier: Apache-2.0
#include "sim/StatusNames.h"

namespace sim {

std::string ReceptionText(unsigned status) {
    const bool taken = (status & RECEIVED) != 0;
    std::string text = taken ? "" : ", not taken";
    for (const ReceptionBit& bit : RECEPTION_BITS) {
        // Of a message that was taken, only the counter can be wrong.
        const bool told = taken ? bit.mask == COUNT_MISMATCH : bit.mask != RECEIVED;
        if (told && (status & bit.mask) != 0) {
            text += std::string(", ") + bit.meaning;
        }
    }
    return text;
}

std::string ProgramStatusText(unsigned status) {
    std::string name = "reserved status";
    for (const ProgramStatusName& known : PROGRAM_STATUSES) {
        if (known.status == status) {
            name = known.meaning;
        }
    }
    return name + " (" + std::to_string(status) + ")";
}

}  // namespace sim
