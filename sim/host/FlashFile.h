// SPDX-License-Identifier: Apache-2.0
// The file that keeps a chip's flash between runs: its bytes and nothing else, so that it can be
// compared with an image.
#ifndef SIM_HOST_FLASH_FILE_H
#define SIM_HOST_FLASH_FILE_H

#include <optional>
#include <string>

#include "common/UniqueFd.h"
#include "sim/Burn.h"
#include "sim/Observer.h"

namespace sim {

class FlashFile {
  public:
    // The file `path`, which no other simulator may use meanwhile. Throws common::Failure if one
    // does, or if the file cannot be written.
    explicit FlashFile(const std::string& path);

    // What it holds; nothing if there is none yet. Throws common::Failure if it cannot be read.
    std::optional<FlashBytes> Load() const;

    // Replaces it whole: whoever reads it meanwhile finds the old one. Throws common::Failure.
    void Save(const FlashBytes& flash) const;

  private:
    void Lock();

    std::string path_;
    common::UniqueFd lock_;
};

// Writes the flash to its file whenever it has changed.
class FlashSaver : public Observer {
  public:
    // The file is not owned.
    explicit FlashSaver(const FlashFile& file) : file_(file) {}

    void OnFlash(const FlashBytes& flash) override;

    // False if the file has not what the flash has; why has been told on standard error.
    bool IsSaved() const { return saved_; }

  private:
    const FlashFile& file_;
    bool saved_ = true;
};

}  // namespace sim

#endif
