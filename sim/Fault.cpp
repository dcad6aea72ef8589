// SPDX-License-Identifier: Apache-2.0
#include "sim/Fault.h"

namespace sim {

bool ChangesReply(Action action) {
    switch (action) {
        case Action::FlipBit:
        case Action::SetByte:
        case Action::CountByte:
        case Action::LengthField:
        case Action::AllZero:
        case Action::AllOnes:
        case Action::PreviousReply:
        case Action::OtherReply:
        case Action::WrongChecksum:
        case Action::StatusByte:
        case Action::ProgramStatus:
            return true;
        default:
            return false;
    }
}

bool Covers(const Fault& fault, unsigned k) {
    return k >= fault.nth && k - fault.nth < fault.times;
}

}  // namespace sim
