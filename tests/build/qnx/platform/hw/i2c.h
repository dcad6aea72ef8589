// SPDX-License-Identifier: Apache-2.0
// The documented part of the system's header that the updater uses.
#ifndef BBPFLASH_TESTS_BUILD_QNX_PLATFORM_HW_I2C_H
#define BBPFLASH_TESTS_BUILD_QNX_PLATFORM_HW_I2C_H

#include <devctl.h>
#include <stdint.h>

typedef struct {
    uint32_t addr;
    uint32_t fmt;
} i2c_addr_t;

typedef struct {
    i2c_addr_t slave;
    uint32_t len;
    uint32_t stop;
} i2c_send_t;

typedef i2c_send_t i2c_recv_t;

#define _DCMD_I2C 0x05
#define DCMD_I2C_SET_BUS_SPEED __DIOT(_DCMD_I2C, 2, uint32_t)
#define DCMD_I2C_SEND __DIOT(_DCMD_I2C, 5, i2c_send_t)
#define DCMD_I2C_RECV __DIOTF(_DCMD_I2C, 6, i2c_recv_t)
#define DCMD_I2C_LOCK __DION(_DCMD_I2C, 8)
#define DCMD_I2C_UNLOCK __DION(_DCMD_I2C, 9)

#endif
