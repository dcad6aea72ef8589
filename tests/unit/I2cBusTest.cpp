// SPDX-License-Identifier: Apache-2.0
#include "i2c/I2cBus.h"

#include <gmock/gmock.h>

#include "tests/support/FakePlatform.h"

namespace {

using fake::Capture;
using testing::ElementsAre;

class I2cBusChangeSpeed : public fake::PlatformTest {};

TEST_F(I2cBusChangeSpeed, ReportsTheResultAndReturns5WhenTheDeviceRefuses) {
    I2cBus bus(0x2E);
    bus.fd = 7;
    bus.devName = "/dev/i2c1";
    platform.Fail(DCMD_I2C_SET_BUS_SPEED, 22);

    int result = 0;
    const fake::Output output = Capture([&] { result = bus.i2cChangeSpeed(400000); });

    EXPECT_EQ(result, 5);
    EXPECT_EQ(bus.speed, 100000);
    EXPECT_EQ(fake::WithoutPositions(output.out),
              "bbpflash ERROR: Setting speed to 400000 on /dev/i2c1 with result "
              "\"Invalid argument\" (22)\n");
    EXPECT_THAT(platform.trace, ElementsAre("SPEED 400000"));
}

}  // namespace
