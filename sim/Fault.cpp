// SPDX-License-Identifier: Apache-2.0
#include "sim/Fault.h"

namespace sim {

bool ChangesReply(Action action) {
    return action >= FIRST_OF_REPLY && action <= LAST_OF_REPLY;
}

bool Covers(const Fault& fault, unsigned k) {
    return k >= fault.nth && k - fault.nth < fault.times;
}

}  // namespace sim
