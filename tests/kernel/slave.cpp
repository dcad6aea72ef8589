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
#include <mutex>
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

// The bus and the reset line are two threads'.
struct Slave {
    explicit Slave(sim::HeadUnit& head_unit) : unit(head_unit, false) {}

    std::mutex mutex;
    sim::RealTimeUnit unit;
};

// Carries out a transfer. Returns 0 or a negative errno value.
std::int32_t Transfer(Slave& slave, const Request& request, const std::uint8_t* written,
                      std::uint8_t* read) {
    const std::lock_guard<std::mutex> guard(slave.mutex);
    if ((request.flags & I2C_M_RD) != 0) {
        return -slave.unit.ReadBus(request.address, read, request.length);
    }
    return -slave.unit.WriteBus(request.address, written, request.length);
}

// Answers the bridge's transfers, one after the other, until the process ends.
void ServeBus(int bridge, Slave& slave) {
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
        const std::int32_t result = Transfer(slave, request, incoming.data() + sizeof request,
                                             answer.data() + sizeof(std::int32_t));
        const bool has_read = (request.flags & I2C_M_RD) != 0 && result == 0;
        const std::size_t answered = sizeof result + (has_read ? request.length : 0u);
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
    auto* const slave = static_cast<Slave*>(fuse_req_userdata(request));
    const std::lock_guard<std::mutex> guard(slave->mutex);
    const int error = slave->unit.WriteReset(text, size);
    if (error != 0) {
        fuse_reply_err(request, error);
    } else {
        fuse_reply_write(request, size);
    }
}

// Offers the reset line until a signal comes.
int ServeLine(char* program, Slave& slave) {
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
    return cuse_lowlevel_main(3, argv, &info, &operations, &slave);
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
    Slave slave(head_unit);
    std::thread(ServeBus, bridge, std::ref(slave)).detach();

    const int result = ServeLine(argv[0], slave);
    const std::lock_guard<std::mutex> guard(slave.mutex);
    slave.unit.KeepTime();
    std::fputs(sim::ReportText(head_unit.GetReport()).c_str(), stdout);
    sim::FlashFile(argv[2]).Save(head_unit.Chip().Flash());
    std::fflush(stdout);
    _exit(result);  // the bus's thread still waits for a transfer
}
