// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/UnitCheck.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "common/Failure.h"
#include "common/Text.h"
#include "common/UniqueFd.h"
#include "tools/image/ImageInspector.h"
#include "tools/watch/BusLock.h"
#include "tools/watch/CommandLine.h"
#include "tools/watch/HeadUnitPaths.h"

namespace tools {

namespace {

Requirement Make(const std::string& name, std::optional<bool> is_well, const std::string& text) {
    Requirement requirement;
    requirement.name = name;
    requirement.is_well = is_well;
    requirement.text = text;
    return requirement;
}

// What to do about a node that cannot be used.
std::string Remedy(const char* node, int error) {
    const std::string what = std::string(node) + ": " + std::strerror(error);
    struct stat status = {};
    if (error != EACCES || stat(node, &status) != 0) {
        return what + "; make the node, under this name";
    }
    const group* const owner = getgrgid(status.st_gid);
    return what + "; become a member of the group " +
           (owner != nullptr ? owner->gr_name : std::to_string(status.st_gid)) +
           " if that may read and write it, or become root";
}

// The adapter's name, as the kernel's driver gives it; empty where it does not.
std::string AdapterName(int bus) {
    struct stat status = {};
    std::string name;
    if (fstat(bus, &status) == 0) {
        std::ifstream file("/sys/class/i2c-dev/i2c-" + std::to_string(minor(status.st_rdev)) +
                           "/name");
        std::getline(file, name);
    }
    return common::Escape(name);
}

Requirement CheckAdapter(int bus) {
    unsigned long functions = 0;
    if (ioctl(bus, I2C_FUNCS, &functions) != 0) {
        return Make(
            "adapter", std::nullopt,
            std::string("the driver does not tell what it can do (") + std::strerror(errno) + ")");
    }
    if ((functions & I2C_FUNC_I2C) == 0) {
        return Make("adapter", false,
                    "it takes no plain I2C messages; an update needs another adapter");
    }
    const std::string name = AdapterName(bus);
    return Make("adapter", true,
                "it takes plain I2C messages" + (name.empty() ? "" : " (" + name + ")"));
}

void CheckBus(std::vector<Requirement>& all) {
    const common::UniqueFd bus(open(BUS_NODE, O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (!bus) {
        all.push_back(Make("bus", false, Remedy(BUS_NODE, errno)));
        return;
    }
    const bool is_simulated = !SimulatedUnitFolder().empty();
    all.push_back(Make("bus", true,
                       std::string(BUS_NODE) + " can be opened" +
                           (is_simulated ? ", in a simulated head unit" : "")));
    all.push_back(CheckAdapter(bus.Get()));
    all.push_back(Make("long messages", std::nullopt,
                       "no driver tells its longest message; an update needs 2048 bytes (see "
                       "docs/bench.md)"));
}

// Not opened: that alone could move the line with some drivers.
Requirement CheckResetLine() {
    if (access(RESET_NODE, R_OK | W_OK) != 0) {
        return Make("reset line", false, Remedy(RESET_NODE, errno));
    }
    return Make("reset line", true, std::string(RESET_NODE) + " can be written");
}

Requirement CheckUpdater() {
    const std::string updater = OwnUpdater();
    const bool is_found = updater.find('/') != std::string::npos;
    return is_found ? Make("updater", true, updater)
                    : Make("updater", std::nullopt, "not beside bbpwatch; the PATH decides");
}

Requirement CheckLock(const std::string& path) {
    try {
        const BusLock lock(path);
        return Make("lock", true, "no other update runs on this bus");
    } catch (const common::Failure& failure) {
        return Make("lock", false, failure.what());
    }
}

Requirement CheckImage(const std::string& path) {
    const ImageReport report = InspectImage(path);
    std::vector<std::string> findings;
    for (const Finding& finding : report.findings) {
        findings.push_back(finding.text);
    }
    std::string text = common::Escape(path) + ": ";
    if (findings.empty()) {
        text += std::to_string(report.size) + " bytes, label \"" +
                common::Escape(report.label.value_or("")) + "\"";
    } else {
        text += common::Join(findings, "; ");
    }
    return Make("image", report.GetGrade() != Grade::Unusable, text);
}

}  // namespace

std::vector<Requirement> CheckUnit(const std::string& lock, const std::string& image) {
    std::vector<Requirement> all;
    CheckBus(all);
    all.push_back(CheckResetLine());
    all.push_back(CheckLock(lock));
    all.push_back(CheckUpdater());
    if (!image.empty()) {
        all.push_back(CheckImage(image));
    }
    return all;
}

}  // namespace tools
