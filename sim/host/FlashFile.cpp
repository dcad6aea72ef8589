// SPDX-License-Identifier: Apache-2.0
#include "sim/host/FlashFile.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

#include "common/AtomicFile.h"
#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/Sha256.h"
#include "sim/host/OutputFile.h"

namespace sim {

namespace {

// The same text for the same file, whatever path leads to it.
std::string Identity(const std::string& path) {
    const std::filesystem::path file(path);
    const std::string folder = file.has_parent_path() ? file.parent_path().string() : ".";
    struct stat status;
    if (stat(folder.c_str(), &status) != 0) {
        throw common::ErrnoFailure("the flash's file " + path, errno);
    }
    return std::to_string(status.st_dev) + " " + std::to_string(status.st_ino) + " " +
           file.filename().string();
}

}  // namespace

FlashFile::FlashFile(const std::string& path) : path_(common::FollowLinks(path)) {
    CheckReplaceable(path_, "the flash's file");
    Lock();
}

// The lock is a name in the kernel, which goes with this process: the file itself is another after
// each change, and a second file would stay behind.
void FlashFile::Lock() {
    const std::string identity = Identity(path_);
    const std::string name = "bbpsim " + common::Sha256Of(identity.data(), identity.size());
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy(name.begin(), name.end(), address.sun_path + 1);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    lock_.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!lock_ || bind(lock_.Get(), reinterpret_cast<const sockaddr*>(&address), size) != 0) {
        if (errno == EADDRINUSE) {
            throw common::Failure("the flash's file " + path_ + " is in use by another bbpsim");
        }
        throw common::ErrnoFailure("locking the flash's file " + path_, errno);
    }
}

std::optional<FlashBytes> FlashFile::Load() const {
    if (!std::filesystem::exists(path_)) {
        return std::nullopt;
    }
    const std::string flash = common::ReadFile(path_, "the flash's file " + path_);
    return FlashBytes(flash.begin(), flash.end());
}

void FlashFile::Save(const FlashBytes& flash) const {
    common::AtomicFile file(path_);
    file.Write(std::string_view(reinterpret_cast<const char*>(flash.data()), flash.size()));
    file.Commit();
}

void FlashSaver::OnFlash(const FlashBytes& flash) {
    try {
        file_.Save(flash);
        saved_ = true;
    } catch (const common::Failure& failure) {
        std::fprintf(stderr, "bbpsim: %s\n", failure.what());
        saved_ = false;
    }
}

}  // namespace sim
