// SPDX-License-Identifier: Apache-2.0
// Uses the device nodes without an updater's waits, and prints what comes of it: in all the ways
// that the updater does not or, as "bus_client burn", for a very small image. As "bus_client
// closed" it is a process whose memory no other one may read.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned short CHIP = 0x17;
constexpr std::size_t SMALL = 100;
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

// Sends a command of one message and returns the last byte of the payload that comes back.
int Ask(int bus, const std::vector<std::uint8_t>& payload) {
    static std::uint8_t count = 0;
    std::vector<std::uint8_t> bytes = {0xA5, 0xA5, count++, 1, 0, 0, 0x84, 0, 1, 0, 0, 0};
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    bytes[4] = static_cast<std::uint8_t>(bytes.size() + 1);
    unsigned sum = 0;
    for (const std::uint8_t byte : bytes) {
        sum += byte;
    }
    bytes.push_back(static_cast<std::uint8_t>(sum));
    std::uint8_t reply[65] = {};
    i2c_msg write = Message(CHIP, 0, bytes.data(), static_cast<unsigned short>(bytes.size()));
    i2c_msg read = Message(CHIP, I2C_M_RD, reply, sizeof reply);
    i2c_rdwr_ioctl_data transfer = {&write, 1};
    ioctl(bus, I2C_RDWR, &transfer);
    usleep(1000);
    transfer.msgs = &read;
    ioctl(bus, I2C_RDWR, &transfer);
    return reply[reply[0] - 1];
}

// Downloads SMALL bytes "U".
void Download(int bus) {
    Ask(bus, {0x0B});
    std::vector<std::uint8_t> download(1 + SMALL, 'U');
    download[0] = 0x04;
    Ask(bus, download);
}

// Downloads, and prints each status that the chip comes to, until it is complete.
int Burn(int bus) {
    Download(bus);
    int last = 0;
    while (last != 1) {
        const int status = Ask(bus, {0x05});
        if (status != last) {
            std::printf("status %d\n", status);
            std::fflush(stdout);
        }
        last = status;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const int bus = open("/dev/i2c1", O_RDWR);
    if (bus < 0) {
        // Waiting for an answer would never end.
        std::perror("/dev/i2c1");
        return 1;
    }
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "burn") {
        return Burn(bus);
    }
    if (what == "download") {
        Download(bus);
        return 0;
    }
    if (what == "closed") {
        prctl(PR_SET_DUMPABLE, 0UL, 0UL, 0UL, 0UL);
    }
    const int reset = open("/dev/gpio/HD_DAB2Reset", O_RDWR);
    std::uint8_t reply[65];

    Transfer("query", bus, {Message(CHIP, 0, query, sizeof query)});
    usleep(5000);
    Transfer("reply", bus, {Message(CHIP, I2C_M_RD, reply, sizeof reply)});
    std::printf("%d %s\n", reply[0], reply + 14);
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
    unsigned long functions = 0;
    Tell("functions", ioctl(bus, I2C_FUNCS, &functions));
    std::printf("%lx\n", functions);
    Tell("another command", ioctl(bus, I2C_SLAVE, CHIP));

    Tell("no level", write(reset, "x", 1));
    Tell("low", write(reset, "0", 1));
    Transfer("in reset", bus, {Message(CHIP, 0, query, sizeof query)});
    Tell("high, with a newline", write(reset, "1\n", 2));
    return 0;
}
