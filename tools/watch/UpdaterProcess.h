// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_UPDATERPROCESS_H
#define BBPFLASH_TOOLS_WATCH_UPDATERPROCESS_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tools {

// The updater as a process that nothing reaches by accident: in a session of its own, deaf to
// hang-up, interrupt, quit, terminate and broken pipe. It outlives the process that started it.
class UpdaterProcess {
  public:
    // Starts the program words[0], found in the path. Throws std::system_error when it cannot be
    // started.
    explicit UpdaterProcess(const std::vector<std::string>& words);
    ~UpdaterProcess();

    // The reading ends of its standard output and standard error; they never block.
    int Output() const { return output_; }
    int ErrorOutput() const { return error_output_; }

    // Holds it still, or lets it go on.
    void Stop();
    void Continue();

    // Ends it and those that it has started at once.
    void Kill();

    // Its exit status, or 128 and the number of the signal that ended it; nothing while it runs.
    std::optional<int> Status();

    UpdaterProcess(const UpdaterProcess&) = delete;
    UpdaterProcess& operator=(const UpdaterProcess&) = delete;

  private:
    void Look(int flags);

    pid_t id_ = -1;
    int output_ = -1;
    int error_output_ = -1;
    bool is_stopped_ = false;
    std::optional<int> status_;
};

}  // namespace tools

#endif
