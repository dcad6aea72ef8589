// SPDX-License-Identifier: Apache-2.0
// The device nodes, from the other end of their sockets: where the preloaded library is.
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <thread>

#include "common/Failure.h"
#include "tests/unit/sim/DeviceNodesFixture.h"

namespace sim {
namespace {

using std::chrono::milliseconds;

TEST_F(SimNodes, HaveAProgramsMemorySentUntilItIsSeenToBeReadable) {
    Exchange exchange("hello", 0);
    const Done done = bus_.Ioctl(I2C_RDWR, exchange.Address());
    EXPECT_EQ(1, done.result);
    EXPECT_EQ(1, done.asked) << "the rest was read";
    EXPECT_EQ(0, bus_.Ioctl(I2C_RDWR, exchange.Address()).asked);
    nodes_.Shut();
    EXPECT_EQ((std::vector<std::string>{"hello", "hello"}), devices_.written);
}

TEST_F(SimNodes, HaveAllMemorySentByAProgramWhoseAddressesMeanSomethingElse) {
    Exchange exchange("hello", 3);
    constexpr unsigned long SHIFT = 1UL << 46;
    exchange.Shift(SHIFT);
    bus_.SetShift(SHIFT);
    for (int i = 0; i < 2; ++i) {
        const Done done = bus_.Ioctl(I2C_RDWR, exchange.Address() + SHIFT);
        EXPECT_EQ(2, done.result);
        EXPECT_EQ(4, done.asked) << "argument, messages, two buffers";
        EXPECT_EQ("rrr", exchange.Read());
    }
    nodes_.Shut();
    EXPECT_EQ((std::vector<std::string>{"hello", "hello"}), devices_.written);
}

TEST_F(SimNodes, ReadTheMemoryOfTheProcessThatCalls) {
    Exchange exchange("parent", 0);
    bus_.Ioctl(I2C_RDWR, exchange.Address());
    const pid_t child = fork();
    if (child == 0) {
        exchange.Write("child!");
        _exit(bus_.Ioctl(I2C_RDWR, exchange.Address()).result == 1 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    bus_.Ioctl(I2C_RDWR, exchange.Address());
    nodes_.Shut();
    EXPECT_EQ((std::vector<std::string>{"parent", "child!", "parent"}), devices_.written);
}

TEST_F(SimNodes, TellOfAddressesWhereThereIsNothing) {
    Exchange exchange("hello", 0);
    EXPECT_EQ(EFAULT, bus_.Ioctl(I2C_RDWR, 0).error);
    EXPECT_EQ(EFAULT, bus_.Ioctl(I2C_FUNCS, 0).error);
    EXPECT_EQ(1, bus_.Ioctl(I2C_RDWR, exchange.Address()).result);
    EXPECT_EQ(EFAULT, bus_.Ioctl(I2C_RDWR, 16).error);
    exchange.Shift(1UL << 46);
    EXPECT_EQ(EFAULT, bus_.Ioctl(I2C_RDWR, exchange.Address()).error);
    EXPECT_EQ(EFAULT, reset_.Write(nullptr, 1).error);
    nodes_.Shut();
    EXPECT_EQ((std::vector<std::string>{"hello"}), devices_.written);
}

TEST_F(SimNodes, GiveWhatWasReadUnlessTheTransferFails) {
    Exchange exchange("ask", 5);
    EXPECT_EQ(2, bus_.Ioctl(I2C_RDWR, exchange.Address()).result);
    EXPECT_EQ("rrrrr", exchange.Read());
    devices_.byte = 'x';
    devices_.read_error = EIO;
    const Done done = bus_.Ioctl(I2C_RDWR, exchange.Address());
    EXPECT_EQ(-1, done.result);
    EXPECT_EQ(EIO, done.error);
    EXPECT_EQ("rrrrr", exchange.Read());
}

TEST_F(SimNodes, GiveAsMuchAsATransferCanReadToAProgramThatTakesItsTime) {
    std::vector<std::vector<char>> buffers(42, std::vector<char>(8192, '-'));
    std::vector<i2c_msg> messages;
    for (std::vector<char>& buffer : buffers) {
        messages.push_back({0x17, I2C_M_RD, 8192, reinterpret_cast<__u8*>(buffer.data())});
    }
    i2c_rdwr_ioctl_data transfer = {messages.data(), 42};
    // From the second call on, the program's memory is read.
    bus_.Ioctl(I2C_RDWR, Exchange("hello", 0).Address());
    bus_.Send(IoctlWord::Ioctl, I2C_RDWR, NodeClient::AddressOf(&transfer));
    // The answer is more than the socket holds: the server must not wait until it is taken.
    EXPECT_EQ(1, reset_.Write("1", 1).result);
    EXPECT_EQ(42, bus_.Serve().result);
    for (const std::vector<char>& buffer : buffers) {
        EXPECT_EQ(std::vector<char>(8192, 'r'), buffer);
    }
}

TEST_F(SimNodes, HoldAnAnswerBackUntilTheDevicesReleaseIt) {
    Exchange exchange("hello", 0);
    devices_.release = DeviceHandler::Clock::now() + milliseconds(100);
    EXPECT_EQ(1, bus_.Ioctl(I2C_RDWR, exchange.Address()).result);
    EXPECT_LE(devices_.release, DeviceHandler::Clock::now());
}

TEST_F(SimNodes, BringTheDevicesToThePresentThoughNobodyCalls) {
    devices_.until_event = milliseconds(20);
    EXPECT_EQ(1, reset_.Write("1", 1).result);
    EXPECT_TRUE(Happens(&devices_.time_was_kept));
}

TEST_F(SimNodes, AnswerWhatIsHeldBackWhenTheyGo) {
    Exchange exchange("hello", 0);
    devices_.release = DeviceHandler::Clock::time_point::max();
    bus_.Send(IoctlWord::Ioctl, I2C_RDWR, exchange.Address());
    // Not before the call has been seen.
    EXPECT_EQ(IoctlWord::Ask, bus_.Answer().word);
    bus_.SendMemory(exchange.Address(), sizeof(i2c_rdwr_ioctl_data));
    // These are answered at once, the second one certainly after the memory has been seen.
    NodeClient other = Open("/ioctl/dev/i2c1");
    EXPECT_EQ(EFAULT, other.Ioctl(I2C_RDWR, 0).error);
    EXPECT_EQ(EFAULT, other.Ioctl(I2C_RDWR, 0).error);
    nodes_.Shut();
    EXPECT_EQ(1, bus_.Serve().result);
    EXPECT_TRUE(other.SeesTheEnd());
}

TEST_F(SimNodes, AreNotHarmedByAProgramThatGoes) {
    Exchange exchange("hello", 0);
    for (int i = 0; i < 3; ++i) {
        NodeClient gone = Open("/ioctl/dev/i2c1");
        gone.Send(IoctlWord::Ioctl, I2C_RDWR, exchange.Address());
        if (i > 0) {
            gone.Answer();
        }
        if (i > 1) {
            devices_.release = DeviceHandler::Clock::now() + milliseconds(100);
            gone.SendMemory(exchange.Address(), sizeof(i2c_rdwr_ioctl_data));
        }
    }
    EXPECT_EQ(1, bus_.Ioctl(I2C_RDWR, exchange.Address()).result);
    nodes_.Shut();
}

TEST_F(SimNodes, LeaveWhatTheyDoNotKnowToOthers) {
    char byte = 0;
    EXPECT_EQ(UNHANDLED, bus_.Write(&byte, 1).result);
    bus_.Send(IoctlWord::Read, NodeClient::AddressOf(&byte), 1);
    EXPECT_EQ(UNHANDLED, bus_.Serve().result);
    EXPECT_EQ(ENOTTY, bus_.Ioctl(I2C_SLAVE, 0x17).error);
    EXPECT_EQ(ENOTTY, reset_.Ioctl(I2C_RDWR, 0).error);
}

TEST_F(SimNodes, TellWhatTheBusCanDo) {
    unsigned long functions = 0;
    EXPECT_EQ(0, bus_.Ioctl(I2C_FUNCS, NodeClient::AddressOf(&functions)).result);
    EXPECT_EQ(static_cast<unsigned long>(I2C_FUNC_I2C), functions);
}

TEST_F(SimNodes, TakeLevelsFromCallsAndFromTheNodesFile) {
    EXPECT_EQ(2, reset_.Write("0\n", 2).result);
    EXPECT_EQ(EINVAL, reset_.Write(std::string(4097, '1').data(), 4097).error);
    testing::internal::CaptureStderr();
    const std::string file = folder_.Path("dev/gpio/HD_DAB2Reset");
    std::ofstream(file) << "1\n";
    std::ofstream(file) << "0";
    std::ofstream(file) << " high\n";
    // What was written before the end still counts.
    nodes_.Shut();
    EXPECT_EQ("0\n10", devices_.levels);
    EXPECT_EQ("bbpsim: the reset line takes 0 or 1, not ",
              testing::internal::GetCapturedStderr().substr(0, 41));
}

std::ptrdiff_t CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST_F(SimNodes, TakeALevelThatIsWrittenToTheFileJustBeforeTheEnd) {
    std::promise<void> go_on;
    devices_.hold = go_on.get_future();
    reset_.Send(IoctlWord::Write, NodeClient::AddressOf("1"), 1);
    EXPECT_EQ(IoctlWord::Ask, reset_.Answer().word);
    reset_.SendMemory(NodeClient::AddressOf("1"), 1);
    ASSERT_TRUE(Happens(&devices_.is_held));
    std::ofstream(folder_.Path("dev/gpio/HD_DAB2Reset")) << "0\n";
    const std::ptrdiff_t before = CountDescriptors();
    std::future<void> shut = std::async(std::launch::async, [this] { nodes_.Shut(); });
    // The nodes are told that it is the end while they are held, so they cannot miss it.
    while (CountDescriptors() == before) {
        std::this_thread::yield();
    }
    go_on.set_value();
    shut.get();
    EXPECT_EQ("10", devices_.levels);
}

TEST_F(SimNodes, FailWhereTheLibraryIsOfAnotherVersion) {
    bus_.Send(static_cast<IoctlWord>(9), 0, 0);
    ASSERT_TRUE(Happens(&failed_));
    EXPECT_TRUE(bus_.SeesTheEnd());
    EXPECT_TRUE(reset_.SeesTheEnd());
    try {
        nodes_.Shut();
        FAIL() << "no failure";
    } catch (const common::Failure& failure) {
        EXPECT_STREQ(
            "a program's libumockdev-preload.so.0 is of a version unknown here: it makes a "
            "request of the kind 9",
            failure.what());
    }
    nodes_.Shut();
}

}  // namespace
}  // namespace sim
