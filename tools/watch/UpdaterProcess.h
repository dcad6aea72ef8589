// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_UPDATERPROCESS_H
#define BBPFLASH_TOOLS_WATCH_UPDATERPROCESS_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "common/Pipe.h"

namespace tools {

// The updater as a process that nothing reaches by accident: in a session of its own, deaf to
// hang-up, interrupt, quit, terminate and broken pipe. It outlives the process that started it.
class UpdaterProcess {
  public:
    // Starts the program words[0], found in the path. Throws common::Failure, with a shell's exit
    // status (126, 127) when the program cannot be run.
    explicit UpdaterProcess(const std::vector<std::string>& words);

    // Of the process, and of the group of all that it starts.
    pid_t Id() const { return id_; }

    // The reading ends of its standard output and standard error; they never block.
    int Output() const { return output_.Get(); }
    int ErrorOutput() const { return error_output_.Get(); }

    // Ends it and those that it has started at once.
    void Kill();

    // Its exit status, or 128 and the number of the signal that ended it, or
    // BBPFLASH_STATUS_UNKNOWN when the system does not tell; nothing while it runs.
    std::optional<int> Status();

    UpdaterProcess(const UpdaterProcess&) = delete;
    UpdaterProcess& operator=(const UpdaterProcess&) = delete;

  private:
    void Look(int flags);

    pid_t id_ = -1;
    common::UniqueFd output_;
    common::UniqueFd error_output_;
    std::optional<int> status_;
};

}  // namespace tools

#endif
