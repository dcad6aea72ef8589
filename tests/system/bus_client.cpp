// SPDX-License-Identifier: Apache-2.0
// Uses the device nodes in ways that the updater does not, and prints what comes of each.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr unsigned short CHIP = 0x17;
std::uint8_t query[] = {0xA5, 0xA5, 0, 1, 14, 0, 0x80, 0, 1, 0, 0, 0, 1, 0xDB};

i2c_msg Message(unsigned short address, unsigned short flags, std::uint8_t* bytes,
                unsigned short size) {
    return {address, flags, size, bytes};
}

void Tell(const char* what, long result) {
    const int error = errno;
    std::printf("%s: %ld%s%s\n", what, result, result < 0 ? " " : "",
                result < 0 ? strerrorname_np(error) : "");
}

void Transfer(const char* what, int bus, std::vector<i2c_msg> messages) {
    i2c_rdwr_ioctl_data transfer = {messages.data(), static_cast<unsigned>(messages.size())};
    Tell(what, ioctl(bus, I2C_RDWR, &transfer));
}

}  // namespace

int main() {
    const int bus = open("/dev/i2c1", O_RDWR);
    const int reset = open("/dev/gpio/HD_DAB2Reset", O_RDWR);
    std::uint8_t reply[65];

    Transfer("query", bus, {Message(CHIP, 0, query, sizeof query)});
    usleep(5000);
    Transfer("reply", bus, {Message(CHIP, I2C_M_RD, reply, sizeof reply)});
    std::printf("%d %.5s\n", reply[0], reply + 14);
    Transfer("both at once", bus,
             {Message(CHIP, 0, query, sizeof query), Message(CHIP, I2C_M_RD, reply, 2)});
    Transfer("nothing", bus, {});
    Transfer("an empty write", bus, {Message(CHIP, 0, nullptr, 0)});
    Transfer("another address", bus, {Message(0x50, 0, query, 1)});
    Transfer("too many messages", bus,
             std::vector<i2c_msg>(43, Message(CHIP, 0, query, sizeof query)));
    std::vector<std::uint8_t> large(8193);
    Transfer("too long a message", bus, {Message(CHIP, 0, large.data(), 8193)});
    Transfer("the longest message", bus, {Message(CHIP, 0, large.data(), 8192)});
    Tell("another command", ioctl(bus, I2C_FUNCS, reply));

    Tell("no level", write(reset, "x", 1));
    Tell("low", write(reset, "0", 1));
    Transfer("in reset", bus, {Message(CHIP, 0, query, sizeof query)});
    Tell("high, with a newline", write(reset, "1\n", 2));
    return 0;
}
