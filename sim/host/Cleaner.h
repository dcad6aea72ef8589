// SPDX-License-Identifier: Apache-2.0
// Removes what this program leaves on disk, even if it is killed.
#ifndef SIM_HOST_CLEANER_H
#define SIM_HOST_CLEANER_H

#include <sys/types.h>

#include <string>

#include "common/UniqueFd.h"

namespace sim {

// A process of its own that waits for this one's end, however it comes, and then removes a folder.
// Made before the first thread is.
class Cleaner {
  public:
    Cleaner();   // throws common::Failure
    ~Cleaner();  // waits until the folder is gone
    Cleaner(const Cleaner&) = delete;
    Cleaner& operator=(const Cleaner&) = delete;

    // Throws common::Failure.
    void Watch(const std::string& folder);

  private:
    common::UniqueFd pipe_;
    pid_t pid_ = -1;
};

}  // namespace sim

#endif
