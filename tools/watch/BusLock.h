// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_BUSLOCK_H
#define BBPFLASH_TOOLS_WATCH_BUSLOCK_H

#include <sys/types.h>

#include <string>

#include "common/UniqueFd.h"

namespace tools {

// The exit status that means: another update runs on this bus.
constexpr int STATUS_TAKEN = 75;

// Keeps a second update off the bus, by a lock on a file of its own. The descriptor goes on to the
// updater, so the lock lasts as long as either of the two lives.
class BusLock {
  public:
    // Takes the lock on the file `path`, which is made if need be, and notes this process in it.
    // Throws common::Failure; with STATUS_TAKEN and the holder's process id when somebody has it.
    explicit BusLock(const std::string& path);

    // Notes the updater, too, as it may outlive this process.
    void AddHolder(pid_t updater);

    // For the bus that the updater would open now: one file for each real bus, whatever its node's
    // name is, and for each simulated head unit one in its own folder.
    static std::string DefaultPath();

  private:
    void Note(pid_t process);

    common::UniqueFd descriptor_;
};

}  // namespace tools

#endif
