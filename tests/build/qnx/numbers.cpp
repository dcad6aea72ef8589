// SPDX-License-Identifier: Apache-2.0
// The numbers that the documented macros make are those that platform.h has for other systems.
#include <hw/i2c.h>

static_assert(static_cast<int>(DCMD_I2C_SET_BUS_SPEED) == static_cast<int>(0x80040502U), "speed");
static_assert(DCMD_I2C_LOCK == 0x508, "lock");
static_assert(DCMD_I2C_UNLOCK == 0x509, "unlock");
static_assert(static_cast<int>(DCMD_I2C_SEND) == static_cast<int>(0x80100505U), "send");
static_assert(static_cast<int>(DCMD_I2C_RECV) == static_cast<int>(0xC0100506U), "receive");
