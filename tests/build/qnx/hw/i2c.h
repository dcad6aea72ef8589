// SPDX-License-Identifier: Apache-2.0
// The documented part of the system's header that the updater uses.
#ifndef BBPFLASH_TESTS_BUILD_QNX_HW_I2C_H
#define BBPFLASH_TESTS_BUILD_QNX_HW_I2C_H

#include <devctl.h>

#include <cstdint>

struct i2c_addr_t {
    std::uint32_t addr;
    std::uint32_t fmt;
};

struct i2c_send_t {
    i2c_addr_t slave;
    std::uint32_t len;
    std::uint32_t stop;
};

typedef i2c_send_t i2c_recv_t;

#define DCMD_I2C_SET_BUS_SPEED __DIOT(5, 2, std::uint32_t)
#define DCMD_I2C_SEND __DIOT(5, 5, i2c_send_t)
#define DCMD_I2C_RECV __DIOTF(5, 6, i2c_recv_t)
#define DCMD_I2C_LOCK __DION(5, 8)
#define DCMD_I2C_UNLOCK __DION(5, 9)

#endif
