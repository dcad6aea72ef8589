// SPDX-License-Identifier: Apache-2.0
// The simulated chip as seen by a real kernel: slave of the bridge's I2C adapter, and, as a
// character device in user space, its reset line. Lives until a signal; then it writes what it saw
// to standard output and its flash to a file.
//
//     kernel_slave VERSION FLASH_FILE
#define FUSE_USE_VERSION 31

#include <cuse_lowlevel.h>
#include <fcntl.h>
#include <linux/i2c.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <thread>

#include "sim/HeadUnit.h"
#include "sim/host/FlashFile.h"
#include "sim/host/RealTimeUnit.h"
#include "sim/host/ReportText.h"

namespace {

const char BRIDGE[] = "/dev/bbp_slave";

// What the bridge sends and takes; the transfer's bytes follow.
struct Request {
    std::uint16_t address;
    std::uint16_t flags;
    std::uint16_t length;
};
const std::size_t LONGEST_MESSAGE = 8192;

// Answers the bridge's transfers, one after the other, until the process ends.
void ServeBus(int bridge, sim::RealTimeUnit& unit) {
    for (;;) {
        std::array<std::uint8_t, sizeof(Request) + LONGEST_MESSAGE> incoming;
        const ssize_t size = read(bridge, incoming.data(), incoming.size());
        if (size < static_cast<ssize_t>(sizeof(Request))) {
            if (size < 0 && (errno == EINTR || errno == EAGAIN)) {
                continue;
            }
            std::perror(BRIDGE);
            return;
        }
        Request request;
        std::memcpy(&request, incoming.data(), sizeof request);

        std::array<std::uint8_t, sizeof(std::int32_t) + LONGEST_MESSAGE> answer;
        std::size_t answered = sizeof(std::int32_t);
        std::int32_t result = 0;
        if ((request.flags & I2C_M_RD) != 0) {
            result = -unit.ReadBus(request.address, answer.data() + sizeof result, request.length);
            answered += result == 0 ? request.length : 0;
        } else {
            result =
                -unit.WriteBus(request.address, incoming.data() + sizeof request, request.length);
        }
        std::memcpy(answer.data(), &result, sizeof result);
        if (write(bridge, answer.data(), answered) < 0) {
            std::perror(BRIDGE);
        }
    }
}

void OpenLine(fuse_req_t request, fuse_file_info* file) {
    fuse_reply_open(request, file);
}

void WriteLine(fuse_req_t request, const char* text, std::size_t size, off_t, fuse_file_info*) {
    auto* const unit = static_cast<sim::RealTimeUnit*>(fuse_req_userdata(request));
    const int error = unit->WriteReset(text, size);
    if (error != 0) {
        fuse_reply_err(request, error);
    } else {
        fuse_reply_write(request, size);
    }
}

// Offers the reset line until a signal comes.
int ServeLine(char* program, sim::RealTimeUnit& unit) {
    const char* const device[] = {"DEVNAME=gpio!HD_DAB2Reset"};
    cuse_info info = {};
    info.dev_info_argc = 1;
    info.dev_info_argv = const_cast<const char**>(device);
    cuse_lowlevel_ops operations = {};
    operations.open = OpenLine;
    operations.write = WriteLine;
    char foreground[] = "-f";
    char single_thread[] = "-s";
    char* argv[] = {program, foreground, single_thread, nullptr};
    return cuse_lowlevel_main(3, argv, &info, &operations, &unit);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: kernel_slave VERSION FLASH_FILE\n");
        return 2;
    }
    const int bridge = open(BRIDGE, O_RDWR);
    if (bridge < 0) {
        std::perror(BRIDGE);
        return 1;
    }
    sim::ChipConfig config;
    config.installed = argv[1];
    config.burn.erase = config.burn.program = config.burn.verify = std::chrono::seconds(1);
    sim::HeadUnit head_unit(config);
    sim::RealTimeUnit unit(head_unit, false);
    std::thread(ServeBus, bridge, std::ref(unit)).detach();

    const int result = ServeLine(argv[0], unit);
    unit.With([&](sim::HeadUnit& seen) {
        std::fputs(sim::ReportText(seen.GetReport()).c_str(), stdout);
        sim::FlashFile(argv[2]).Save(seen.Chip().Flash());
    });
    std::fflush(stdout);
    _exit(result);  // the bus's thread still waits for a transfer
}
