// SPDX-License-Identifier: Apache-2.0
#include "sim/host/FlashFile.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace sim {

std::vector<std::uint8_t> FlashFile::Load() const {
    if (path_.empty() || !std::filesystem::exists(path_)) {
        return {};
    }
    std::ifstream file(path_, std::ios::binary);
    std::vector<std::uint8_t> flash{std::istreambuf_iterator<char>(file), {}};
    // A folder opens, and cannot be read.
    if (!file || std::filesystem::is_directory(path_)) {
        throw std::system_error(errno != 0 ? errno : EIO, std::generic_category(), path_);
    }
    return flash;
}

bool FlashFile::Save(const std::vector<std::uint8_t>& flash) const {
    if (path_.empty()) {
        return true;
    }
    const std::string next = path_ + ".new";
    std::ofstream file(next, std::ios::binary);
    file.write(reinterpret_cast<const char*>(flash.data()),
               static_cast<std::streamsize>(flash.size()));
    file.close();
    return file && std::rename(next.c_str(), path_.c_str()) == 0;
}

}  // namespace sim
