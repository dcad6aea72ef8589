// SPDX-License-Identifier: Apache-2.0
#ifndef COMMON_ATOMIC_FILE_H
#define COMMON_ATOMIC_FILE_H

#include <string>
#include <string_view>

#include "common/UniqueFd.h"

namespace common {

// The file that the path leads to by symbolic links; it need not exist. Throws Failure.
std::string FollowLinks(const std::string& path);

// A regular file that is replaced as a whole or not at all: its new content goes to a temporary
// file in the same folder, which takes the name over when it is complete and on the disk. Every
// failure throws Failure and leaves the named file as it was; the temporary file goes in any case,
// or is named on standard error.
class AtomicFile {
  public:
    // Prepares to write `path`; a symbolic link is followed. What is there must be a regular file.
    explicit AtomicFile(const std::string& path);

    // Removes the temporary file unless it was committed.
    ~AtomicFile();

    void Write(std::string_view bytes);

    // Where the new content is until it is committed, for a last look at it.
    const std::string& TemporaryPath() const { return temporary_; }

    // Gives the new content the file's name, mode and owner; a file that did not exist gets what
    // the process would give any new file.
    void Commit();

    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

  private:
    void KeepModeAndOwner();

    std::string target_;
    std::string folder_;
    std::string temporary_;
    UniqueFd file_;
    bool committed_ = false;
};

}  // namespace common

#endif
