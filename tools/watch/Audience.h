// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_AUDIENCE_H
#define BBPFLASH_TOOLS_WATCH_AUDIENCE_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "common/UniqueFd.h"
#include "tools/watch/OutputQueue.h"
#include "tools/watch/WatchEvent.h"

namespace tools {

// A file of lines that takes no more than so many bytes.
class LogFile {
  public:
    LogFile(common::UniqueFd descriptor, std::size_t room)
        : descriptor_(std::move(descriptor)), room_(room) {}

    // A log that is full, or cannot be written, is no reason to disturb an update.
    void Write(const std::string& line);

  private:
    common::UniqueFd descriptor_;
    std::size_t room_;
};

// Those who are told what happens, and where they write: standard output, and logs.
class Audience {
  public:
    explicit Audience(bool as_json);
    Audience(const Audience&) = delete;
    Audience& operator=(const Audience&) = delete;

    // Appends everything to this file. Throws common::Failure.
    void AddLog(const std::string& path);

    // Keeps everything in a new file for temporary files and returns its path; empty when there
    // can be none.
    std::string AddTemporaryLog();

    std::vector<Reporter*> All() const;

    OutputQueue& Output() { return output_; }

  private:
    void AddLog(common::UniqueFd descriptor, std::size_t room);

    OutputQueue output_;
    std::vector<std::unique_ptr<Reporter>> owned_;
};

}  // namespace tools

#endif
