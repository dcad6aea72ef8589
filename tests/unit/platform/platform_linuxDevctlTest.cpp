// SPDX-License-Identifier: Apache-2.0
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/file.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cstddef>
#include <memory>

#include "tests/unit/platform/LinuxFixture.h"

namespace {

const int DESCRIPTOR = 42;

void PutWord(std::uint8_t* at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        at[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

// A data block of exactly `size` bytes on the heap, its header as far as it fits: the chip at 0x17,
// `length` bytes. Its payload counts up from 1.
class Block {
  public:
    Block(std::size_t size, std::uint32_t length) : size_(size), bytes_(new std::uint8_t[size]) {
        std::uint8_t header[16] = {};
        PutWord(header, 0x17);
        PutWord(header + 4, 2);
        PutWord(header + 8, length);
        PutWord(header + 12, 1);
        std::copy_n(header, std::min<std::size_t>(size, 16), bytes_.get());
        for (std::size_t i = 16; i < size; ++i) {
            bytes_[i] = static_cast<std::uint8_t>(i - 15);
        }
    }

    int Devctl(int command) { return devctl(DESCRIPTOR, command, bytes_.get(), size_, nullptr); }
    std::uint8_t* Data() { return bytes_.get(); }
    std::vector<std::uint8_t> Bytes() const { return {bytes_.get(), bytes_.get() + size_}; }

  private:
    std::size_t size_;
    std::unique_ptr<std::uint8_t[]> bytes_;
};

const int TRANSFERS[] = {DCMD_I2C_SEND, DCMD_I2C_RECV};

TEST(PlatformCommands, HaveTheI2cResourceManagersValues) {
    EXPECT_EQ(static_cast<std::uint32_t>(DCMD_I2C_SET_BUS_SPEED), 0x80040502u);
    EXPECT_EQ(static_cast<std::uint32_t>(DCMD_I2C_LOCK), 0x508u);
    EXPECT_EQ(static_cast<std::uint32_t>(DCMD_I2C_UNLOCK), 0x509u);
    EXPECT_EQ(static_cast<std::uint32_t>(DCMD_I2C_SEND), 0x80100505u);
    EXPECT_EQ(static_cast<std::uint32_t>(DCMD_I2C_RECV), 0xC0100506u);
}

TEST_F(LinuxDevctl, SetsNoBusSpeedButSucceeds) {
    std::unique_ptr<std::int32_t> speed(new std::int32_t(400000));
    EXPECT_EQ(devctl(DESCRIPTOR, DCMD_I2C_SET_BUS_SPEED, speed.get(), sizeof *speed, nullptr), 0);
    EXPECT_EQ(*speed, 400000);
    EXPECT_EQ(system_.calls, Calls{"prctl"});
}

TEST_F(LinuxDevctl, ShrinksTheTimerSlackToItsLeastWithTheFirstCommandOfABus) {
    int speed = 400000;
    devctl(DESCRIPTOR, DCMD_I2C_SET_BUS_SPEED, &speed, sizeof speed, nullptr);
    EXPECT_EQ(system_.prctl_arguments, (std::vector<unsigned long>{PR_SET_TIMERSLACK, 1, 0, 0, 0}));
}

TEST_F(LinuxDevctl, SucceedsWithABusSpeedWhereTheTimerSlackIsRefused) {
    system_.error = EPERM;
    int speed = 400000;
    EXPECT_EQ(devctl(DESCRIPTOR, DCMD_I2C_SET_BUS_SPEED, &speed, sizeof speed, nullptr), 0);
}

TEST_F(LinuxDevctl, LocksByAnExclusiveFlockThatWaits) {
    EXPECT_EQ(devctl(DESCRIPTOR, DCMD_I2C_LOCK, nullptr, 0, nullptr), 0);
    EXPECT_EQ(system_.calls, Calls{"flock"});
    EXPECT_EQ(system_.fd, DESCRIPTOR);
    EXPECT_EQ(system_.operation, LOCK_EX);
}

TEST_F(LinuxDevctl, TakesNoEarlierErrorForItsOwn) {
    errno = EIO;
    EXPECT_EQ(devctl(DESCRIPTOR, DCMD_I2C_LOCK, nullptr, 0, nullptr), 0);
    EXPECT_EQ(devctl(DESCRIPTOR, DCMD_I2C_UNLOCK, nullptr, 0, nullptr), 0);
    EXPECT_EQ(Block(81, 65).Devctl(DCMD_I2C_RECV), 0);
}

TEST_F(LinuxDevctl, UnlocksByFlock) {
    EXPECT_EQ(devctl(DESCRIPTOR, DCMD_I2C_UNLOCK, nullptr, 0, nullptr), 0);
    EXPECT_EQ(system_.calls, Calls{"flock"});
    EXPECT_EQ(system_.fd, DESCRIPTOR);
    EXPECT_EQ(system_.operation, LOCK_UN);
}

TEST_F(LinuxDevctl, PassesTheErrorOfARefusedLockOn) {
    for (const int error : {EBADF, EINTR, ENOLCK}) {
        system_.error = error;
        EXPECT_EQ(devctl(DESCRIPTOR, DCMD_I2C_LOCK, nullptr, 0, nullptr), error);
        EXPECT_EQ(devctl(DESCRIPTOR, DCMD_I2C_UNLOCK, nullptr, 0, nullptr), error);
    }
}

TEST_F(LinuxDevctl, SendsTheFilledBytesAsOneWriteMessage) {
    Block block(16 + 14, 14);
    EXPECT_EQ(block.Devctl(DCMD_I2C_SEND), 0);
    EXPECT_EQ(system_.calls, Calls{"ioctl"});
    EXPECT_EQ(system_.fd, DESCRIPTOR);
    EXPECT_EQ(system_.request, static_cast<unsigned long>(I2C_RDWR));
    EXPECT_EQ(system_.message.addr, 0x17);
    EXPECT_EQ(system_.message.flags, 0);
    EXPECT_EQ(system_.message.len, 14);
    EXPECT_EQ(system_.message.buf, block.Data() + 16);
    EXPECT_EQ(system_.sent,
              (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
}

TEST_F(LinuxDevctl, SendsOnlyWhatTheHeaderSaysOfALongerBlock) {
    Block block(16 + 2048, 3);
    EXPECT_EQ(block.Devctl(DCMD_I2C_SEND), 0);
    EXPECT_EQ(system_.sent, (std::vector<std::uint8_t>{1, 2, 3}));
}

TEST_F(LinuxDevctl, SendsAFullChunkOf2048Bytes) {
    Block block(16 + 2048, 2048);
    EXPECT_EQ(block.Devctl(DCMD_I2C_SEND), 0);
    EXPECT_EQ(system_.sent.size(), 2048u);
    const std::vector<std::uint8_t> bytes = block.Bytes();
    EXPECT_EQ(system_.sent, std::vector<std::uint8_t>(bytes.begin() + 16, bytes.end()));
}

TEST_F(LinuxDevctl, LeavesABlockToSendAsItIs) {
    Block block(16 + 14, 14);
    const std::vector<std::uint8_t> before = block.Bytes();
    block.Devctl(DCMD_I2C_SEND);
    EXPECT_EQ(block.Bytes(), before);
}

TEST_F(LinuxDevctl, ReceivesOneReadMessageIntoThePayloadArea) {
    Block block(16 + 65, 65);
    const std::vector<std::uint8_t> before = block.Bytes();
    system_.incoming = {64, 0xA5, 0xA5};
    EXPECT_EQ(block.Devctl(DCMD_I2C_RECV), 0);
    EXPECT_EQ(system_.calls, Calls{"ioctl"});
    EXPECT_EQ(system_.fd, DESCRIPTOR);
    EXPECT_EQ(system_.request, static_cast<unsigned long>(I2C_RDWR));
    EXPECT_EQ(system_.message.addr, 0x17);
    EXPECT_EQ(system_.message.flags, I2C_M_RD);
    EXPECT_EQ(system_.message.len, 65);
    EXPECT_EQ(system_.message.buf, block.Data() + 16);

    std::vector<std::uint8_t> expected(before.begin(), before.begin() + 16);
    expected.insert(expected.end(), {64, 0xA5, 0xA5});
    expected.resize(16 + 65, 0xEE);
    EXPECT_EQ(block.Bytes(), expected);
}

TEST_F(LinuxDevctl, ReceivesOnlyWhatTheHeaderSaysOfALongerBlock) {
    Block block(16 + 256, 65);
    EXPECT_EQ(block.Devctl(DCMD_I2C_RECV), 0);
    EXPECT_EQ(system_.message.len, 65);
    EXPECT_EQ(block.Bytes()[16 + 64], 0xEE);
    EXPECT_EQ(block.Bytes()[16 + 65], 66);
}

TEST_F(LinuxDevctl, TakesTheAddressOfTheHeader) {
    for (const int command : TRANSFERS) {
        Block block(16 + 1, 1);
        PutWord(block.Data(), 0x3A5);
        EXPECT_EQ(block.Devctl(command), 0);
        EXPECT_EQ(system_.message.addr, 0x3A5);
    }
}

TEST_F(LinuxDevctl, TransfersNothingForALengthOfZero) {
    for (const int command : TRANSFERS) {
        Block block(16, 0);
        EXPECT_EQ(block.Devctl(command), 0);
        EXPECT_EQ(system_.message.len, 0);
    }
}

TEST_F(LinuxDevctl, TransfersTheLongestMessageOf65535Bytes) {
    for (const int command : TRANSFERS) {
        Block block(16 + 65535, 65535);
        EXPECT_EQ(block.Devctl(command), 0);
        EXPECT_EQ(system_.message.len, 65535);
    }
}

TEST_F(LinuxDevctl, RefusesALengthThatAMessageCannotSay) {
    for (const int command : TRANSFERS) {
        Block block(16 + 65536, 65536);
        EXPECT_EQ(block.Devctl(command), EINVAL);
    }
    EXPECT_EQ(system_.calls, Calls{});
}

TEST_F(LinuxDevctl, RefusesABlockOneByteShorterThanItsHeaderSays) {
    for (const int command : TRANSFERS) {
        Block block(16 + 64, 65);
        EXPECT_EQ(block.Devctl(command), EINVAL);
    }
    EXPECT_EQ(system_.calls, Calls{});
}

TEST_F(LinuxDevctl, RefusesALengthWithAnyOfItsFourBytesTooLarge) {
    for (const std::uint32_t length : {0x00000100u, 0x00010001u, 0x01000001u, 0xFFFFFFFFu}) {
        for (const int command : TRANSFERS) {
            Block block(16 + 1, length);
            EXPECT_EQ(block.Devctl(command), EINVAL) << length;
        }
    }
    EXPECT_EQ(system_.calls, Calls{});
}

TEST_F(LinuxDevctl, RefusesABlockThatHoldsNoWholeHeader) {
    for (std::size_t size = 0; size < 16; ++size) {
        for (const int command : TRANSFERS) {
            Block block(size, 0);
            EXPECT_EQ(block.Devctl(command), EINVAL) << size;
        }
    }
    EXPECT_EQ(system_.calls, Calls{});
}

TEST_F(LinuxDevctl, RefusesATransferWithoutABlock) {
    for (const int command : TRANSFERS) {
        EXPECT_EQ(devctl(DESCRIPTOR, command, nullptr, 0, nullptr), EINVAL);
        EXPECT_EQ(devctl(DESCRIPTOR, command, nullptr, 81, nullptr), EINVAL);
    }
    EXPECT_EQ(system_.calls, Calls{});
}

TEST_F(LinuxDevctl, PassesTheAdaptersErrorOn) {
    for (const int error : {ENXIO, EREMOTEIO, EIO, EOPNOTSUPP, ETIMEDOUT, EBADF}) {
        system_.error = error;
        for (const int command : TRANSFERS) {
            Block block(16 + 65, 65);
            EXPECT_EQ(block.Devctl(command), error);
        }
    }
}

TEST_F(LinuxDevctl, FailsATransferOfWhichTheAdapterMovedNoMessage) {
    system_.transferred = 0;
    for (const int command : TRANSFERS) {
        Block block(16 + 65, 65);
        EXPECT_EQ(block.Devctl(command), EIO);
    }
}

TEST_F(LinuxDevctl, KnowsNoOtherCommand) {
    for (const int command : {0, -1, 0x507, 0x50A, DCMD_I2C_SET_BUS_SPEED + 1, DCMD_I2C_SEND + 1,
                              DCMD_I2C_RECV + 1, DCMD_I2C_SEND & 0xFFFF, DCMD_I2C_RECV & 0xFFFF}) {
        Block block(16 + 65, 65);
        const std::vector<std::uint8_t> before = block.Bytes();
        EXPECT_EQ(block.Devctl(command), ENOTTY) << command;
        EXPECT_EQ(block.Bytes(), before);
    }
    EXPECT_EQ(system_.calls, Calls{});
}

TEST_F(LinuxDevctl, ClearsTheExtraResultWhereOneIsAskedFor) {
    for (const int command : {DCMD_I2C_SET_BUS_SPEED, DCMD_I2C_LOCK, DCMD_I2C_UNLOCK, DCMD_I2C_SEND,
                              DCMD_I2C_RECV, 0}) {
        Block block(16 + 1, 1);
        int info = 77;
        devctl(DESCRIPTOR, command, block.Data(), 17, &info);
        EXPECT_EQ(info, 0) << command;
    }
}

}  // namespace
