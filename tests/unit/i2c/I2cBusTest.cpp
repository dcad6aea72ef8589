// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>

#include <cerrno>
#include <optional>
#include <type_traits>

#include "i2c/I2cBus.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Layout.h"

namespace {

using fake::Bytes;
using fake::Capture;
using fake::WithoutPositions;
using testing::ElementsAre;

// What the next open and close return; without a value they are the system's own.
std::optional<int> g_open_result;
std::optional<int> g_close_result;
std::string g_opened_path;
int g_open_flags = 0;
std::vector<int> g_closed;

class I2cBusTest : public fake::PlatformTest {
  protected:
    ~I2cBusTest() override {
        g_open_result.reset();
        g_close_result.reset();
        g_opened_path.clear();
        g_closed.clear();
    }

    // The lines on standard output of i2cOpen("/dev/i2c1", 400000), whose result is `result`.
    std::string Open(I2cBus& bus) {
        return WithoutPositions(Capture([&] { result_ = bus.i2cOpen("/dev/i2c1", 400000); }).out);
    }

    int result_ = -99;
};

using I2cBusObject = I2cBusTest;
using I2cBusOpen = I2cBusTest;
using I2cBusChangeSpeed = I2cBusTest;
using I2cBusClose = I2cBusTest;

TEST_F(I2cBusObject, StartsUnopenedAtStandardSpeed) {
    const I2cBus bus(0x2E);

    EXPECT_EQ(bus.devName, "");
    EXPECT_EQ(bus.fd, 0);
    EXPECT_EQ(bus.speed, 100000);
}

TEST_F(I2cBusObject, HoldsNameDescriptorAndSpeedInThisOrderAndNothingElse) {
    const I2cBus bus(0x2E);

    static_assert(std::is_same<decltype(bus.devName), std::string>::value);
    static_assert(std::is_same<decltype(bus.fd), int>::value);
    static_assert(std::is_same<decltype(bus.speed), int>::value);
    static_assert(std::has_virtual_destructor<I2cBus>::value);
    EXPECT_LT(OffsetIn(bus, bus.devName), OffsetIn(bus, bus.fd));
    EXPECT_LT(OffsetIn(bus, bus.fd), OffsetIn(bus, bus.speed));
    EXPECT_EQ(sizeof bus, sizeof(void*) + sizeof(std::string) + 2 * sizeof(int));
}

TEST_F(I2cBusObject, MakesNoCallWhenItIsConstructedOrDestroyed) {
    { I2cBus bus(0x2E); }

    EXPECT_THAT(platform.trace, ElementsAre());
    EXPECT_THAT(g_closed, ElementsAre());
}

TEST_F(I2cBusObject, LeavesTheDeviceOpenWhenItIsDestroyed) {
    g_open_result = 7;
    {
        I2cBus bus(0x2E);
        Open(bus);
    }

    EXPECT_THAT(g_closed, ElementsAre());
}

TEST_F(I2cBusOpen, OpensTheDeviceForReadingAndWritingAndSetsItsSpeed) {
    g_open_result = 7;
    I2cBus bus(0x2E);

    Open(bus);

    EXPECT_EQ(result_, 0);
    EXPECT_EQ(g_opened_path, "/dev/i2c1");
    EXPECT_EQ(g_open_flags, O_RDWR);
    EXPECT_EQ(bus.devName, "/dev/i2c1");
    EXPECT_EQ(bus.fd, 7);
    EXPECT_EQ(bus.speed, 400000);
    EXPECT_THAT(platform.trace, ElementsAre("SPEED 400000"));
}

TEST_F(I2cBusOpen, SaysNothingAtNormalVerbosity) {
    g_open_result = 7;
    I2cBus bus(0x2E);

    EXPECT_EQ(Open(bus), "");
}

TEST_F(I2cBusOpen, InformsOfTheDeviceAndTheSpeed) {
    g_open_result = 7;
    g_p_hutil_opt->verbosity = 6;
    I2cBus bus(0x2E);

    EXPECT_EQ(Open(bus),
              "bbpflash INF: Opened /dev/i2c1 (7)\n"
              "bbpflash INF: Set speed on /dev/i2c1 (7) to 400000\n");
}

TEST_F(I2cBusOpen, ReportsTheResultRatherThanErrnoWhenTheDeviceDoesNotExist) {
    I2cBus bus(0x2E);

    const std::string text =
        WithoutPositions(Capture([&] { result_ = bus.i2cOpen("/nowhere/i2c1", 400000); }).out);

    EXPECT_EQ(result_, -1);
    EXPECT_EQ(text,
              "bbpflash CRITICAL: opening /nowhere/i2c1 with result \"Unknown error -1\" (-1)\n");
    EXPECT_EQ(g_p_hutil_opt->verbosity, 10);
}

TEST_F(I2cBusOpen, TakesADescriptorOf0ForAFailure) {
    g_open_result = 0;
    I2cBus bus(0x2E);

    EXPECT_EQ(Open(bus), "bbpflash CRITICAL: opening /dev/i2c1 with result \"Success\" (0)\n");
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(platform.trace, ElementsAre());
}

TEST_F(I2cBusOpen, TakesADescriptorOf1ForASuccess) {
    g_open_result = 1;
    I2cBus bus(0x2E);

    Open(bus);

    EXPECT_EQ(result_, 0);
    EXPECT_EQ(bus.fd, 1);
}

TEST_F(I2cBusOpen, ChangesNoFieldWhenItFails) {
    g_open_result = -1;
    I2cBus bus(0x2E);
    bus.devName = "before";
    bus.fd = 3;
    bus.speed = 4;

    Open(bus);

    EXPECT_EQ(result_, -1);
    EXPECT_EQ(bus.devName, "before");
    EXPECT_EQ(bus.fd, 3);
    EXPECT_EQ(bus.speed, 4);
    EXPECT_THAT(platform.trace, ElementsAre());
}

TEST_F(I2cBusOpen, LeavesTheDeviceOpenWhenItsSpeedCannotBeSet) {
    g_open_result = 7;
    g_p_hutil_opt->verbosity = 6;
    platform.Fail(DCMD_I2C_SET_BUS_SPEED, ENOSYS);
    I2cBus bus(0x2E);

    EXPECT_EQ(Open(bus),
              "bbpflash INF: Opened /dev/i2c1 (7)\n"
              "bbpflash ERROR: Setting speed to 400000 on /dev/i2c1 with result "
              "\"Function not implemented\" (38)\n");
    EXPECT_EQ(result_, 5);
    EXPECT_EQ(bus.fd, 7);
    EXPECT_EQ(bus.devName, "/dev/i2c1");
    EXPECT_EQ(bus.speed, 100000);
    EXPECT_THAT(g_closed, ElementsAre());
}

TEST_F(I2cBusChangeSpeed, PassesTheSpeedAsOneWordOnTheOpenDescriptor) {
    I2cBus bus(0x2E);
    bus.fd = 9;

    EXPECT_EQ(bus.i2cChangeSpeed(0x01020304), 0);

    ASSERT_EQ(platform.devctls.size(), 1u);
    EXPECT_EQ(platform.devctls[0].fd, 9);
    EXPECT_EQ(platform.devctls[0].dcmd, static_cast<int>(0x80040502u));
    EXPECT_EQ(platform.devctls[0].nbytes, 4u);
    EXPECT_EQ(platform.devctls[0].data, (Bytes{0x04, 0x03, 0x02, 0x01}));
    EXPECT_TRUE(platform.devctls[0].info_is_null);
}

TEST_F(I2cBusChangeSpeed, StoresAndInformsOfTheSpeed) {
    g_p_hutil_opt->verbosity = 6;
    I2cBus bus(0x2E);
    bus.fd = 9;
    bus.devName = "/dev/i2c1";

    const std::string text =
        WithoutPositions(Capture([&] { result_ = bus.i2cChangeSpeed(50000); }).out);

    EXPECT_EQ(result_, 0);
    EXPECT_EQ(bus.speed, 50000);
    EXPECT_EQ(text, "bbpflash INF: Set speed on /dev/i2c1 (9) to 50000\n");
}

TEST_F(I2cBusChangeSpeed, ReportsTheResultAndReturns5WhenTheDeviceRefuses) {
    I2cBus bus(0x2E);
    bus.fd = 7;
    bus.devName = "/dev/i2c1";
    bus.speed = 12345;
    platform.Fail(DCMD_I2C_SET_BUS_SPEED, EINVAL);

    const std::string text =
        WithoutPositions(Capture([&] { result_ = bus.i2cChangeSpeed(400000); }).out);

    EXPECT_EQ(result_, 5);
    EXPECT_EQ(bus.speed, 12345);
    EXPECT_EQ(text,
              "bbpflash ERROR: Setting speed to 400000 on /dev/i2c1 with result "
              "\"Invalid argument\" (22)\n");
}

TEST_F(I2cBusChangeSpeed, CountsANegativeResultAsAFailure) {
    I2cBus bus(0x2E);
    platform.Fail(DCMD_I2C_SET_BUS_SPEED, -1);

    Capture([&] { result_ = bus.i2cChangeSpeed(400000); });

    EXPECT_EQ(result_, 5);
}

TEST_F(I2cBusClose, ClosesTheDescriptorAndKeepsItsValue) {
    g_close_result = 0;
    g_p_hutil_opt->verbosity = 6;
    I2cBus bus(0x2E);
    bus.fd = 7;
    bus.devName = "/dev/i2c1";

    const std::string text = WithoutPositions(Capture([&] { result_ = bus.i2cClose(); }).out);

    EXPECT_EQ(result_, 0);
    EXPECT_THAT(g_closed, ElementsAre(7));
    EXPECT_EQ(bus.fd, 7);
    EXPECT_EQ(text, "bbpflash INF: Closed /dev/i2c1 (7)\n");
}

TEST_F(I2cBusClose, SaysClosedEvenAfterAFailure) {
    g_close_result = -1;
    I2cBus bus(0x2E);
    bus.fd = 7;
    bus.devName = "/dev/i2c1";

    const std::string text = WithoutPositions(Capture([&] { result_ = bus.i2cClose(); }).out);

    EXPECT_EQ(result_, -1);
    EXPECT_EQ(text,
              "bbpflash ERROR: Closing /dev/i2c1 (7)\n"
              "bbpflash INF: Closed /dev/i2c1 (7)\n");
}

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __real_close(int fd);
int __wrap_close(int fd);

int __wrap_open(const char* path, int flags, ...) {
    g_opened_path = path;
    g_open_flags = flags;
    return g_open_result ? *g_open_result : __real_open(path, flags);
}

int __wrap_close(int fd) {
    g_closed.push_back(fd);
    return g_close_result ? *g_close_result : __real_close(fd);
}
}
