// SPDX-License-Identifier: Apache-2.0
#include "sim/host/NodeFolder.h"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/UniqueFd.h"

namespace sim {

namespace {

struct Entry {
    const char* path;
    const char* content;  // of a file, or where a link leads to
};

const char* const FOLDERS[] = {
    "/ioctl/dev/gpio",
    "/dev/gpio",
    "/dev/.node",
    "/sys/class/i2c-dev",
    "/sys/dev/char",
    "/sys/bus/gpio/devices",
    "/sys/devices/platform/i2c-1/i2c-dev/i2c1",
    "/sys/devices/platform/gpio/HD_DAB2Reset",
};

const Entry FILES[] = {
    {BUS_FILE, ""},
    {"/sys/devices/platform/i2c-1/i2c-dev/i2c1/dev", "89:1\n"},
    {"/sys/devices/platform/i2c-1/i2c-dev/i2c1/uevent",
     "DEVNAME=i2c1\nMAJOR=89\nMINOR=1\nSUBSYSTEM=i2c-dev\n"},
    {"/sys/devices/platform/gpio/HD_DAB2Reset/uevent",
     "DEVNAME=gpio/HD_DAB2Reset\nSUBSYSTEM=gpio\n"},
};

// The first is the bus's device number.
const Entry LINKS[] = {
    {"/dev/.node/i2c1", "89:1"},
    {"/sys/devices/platform/i2c-1/i2c-dev/i2c1/subsystem", "../../../../../class/i2c-dev"},
    {"/sys/devices/platform/gpio/HD_DAB2Reset/subsystem", "../../../../bus/gpio"},
    {"/sys/class/i2c-dev/i2c1", "../../devices/platform/i2c-1/i2c-dev/i2c1"},
    {"/sys/dev/char/89:1", "../../devices/platform/i2c-1/i2c-dev/i2c1"},
    {"/sys/bus/gpio/devices/HD_DAB2Reset", "../../../devices/platform/gpio/HD_DAB2Reset"},
};

const char MAKING[] = "making the device nodes";

void MakeFile(const std::string& path, const char* content) {
    const common::UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!file) {
        throw common::ErrnoFailure(MAKING, errno);
    }
    common::WriteAll(file.Get(), content, path);
}

}  // namespace

void MakeNodeFolder(const std::string& folder) {
    try {
        for (const char* const path : FOLDERS) {
            std::filesystem::create_directories(folder + path);
        }
        for (const Entry& file : FILES) {
            MakeFile(folder + file.path, file.content);
        }
        for (const Entry& link : LINKS) {
            std::filesystem::create_symlink(link.content, folder + link.path);
        }
    } catch (const std::filesystem::filesystem_error& error) {
        throw common::ErrnoFailure(MAKING, error.code().value());
    }
}

}  // namespace sim
