// SPDX-License-Identifier: Apache-2.0
// A folder for what this program keeps on disk while it runs.
#ifndef SIM_HOST_WORK_FOLDER_H
#define SIM_HOST_WORK_FOLDER_H

#include <sys/types.h>

#include <string>

#include "common/UniqueFd.h"

namespace sim {

// The folder goes with this object and, should this process be killed, with the process: another
// one waits for its end, however it comes. Made before the first thread is.
class WorkFolder {
  public:
    // In the folder for temporary files. Throws common::Failure.
    WorkFolder();
    ~WorkFolder();  // waits until the folder is gone
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    const std::string& Path() const { return path_; }

  private:
    const std::string path_;
    common::UniqueFd pipe_;
    pid_t pid_ = -1;
};

}  // namespace sim

#endif
