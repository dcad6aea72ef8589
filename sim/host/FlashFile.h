// SPDX-License-Identifier: Apache-2.0
// The file that keeps a chip's flash between runs: its bytes and nothing else, so that it can be
// compared with an image.
#ifndef SIM_HOST_FLASH_FILE_H
#define SIM_HOST_FLASH_FILE_H

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

class FlashFile {
  public:
    // An empty path keeps nothing.
    explicit FlashFile(std::string path) : path_(std::move(path)) {}

    // What it holds; empty if there is none yet. Throws std::system_error if it cannot be read.
    std::vector<std::uint8_t> Load() const;

    // Replaces it whole: whoever reads it meanwhile finds the old one. False, with errno, if it
    // cannot be written.
    bool Save(const std::vector<std::uint8_t>& flash) const;

    const std::string& Path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace sim

#endif
