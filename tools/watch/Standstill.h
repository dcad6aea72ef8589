// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_STANDSTILL_H
#define BBPFLASH_TOOLS_WATCH_STANDSTILL_H

#include <sys/types.h>

#include "common/UniqueFd.h"

namespace tools {

// Holds a group of processes still for as long as it lives: what they have written is then all that
// they have done. They go on when it goes, also when this process dies.
class Standstill {
  public:
    // Throws common::Failure, and lets all go on, when one of the group cannot be held.
    explicit Standstill(pid_t group);
    ~Standstill();

    Standstill(const Standstill&) = delete;
    Standstill& operator=(const Standstill&) = delete;

  private:
    void Release();

    common::UniqueFd guard_;  // once it is closed, the guardian lets the group go on
    pid_t guardian_ = -1;
};

}  // namespace tools

#endif
