// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_UNIT_LM_HCLOGICALFIXTURE_H
#define BBPFLASH_TESTS_UNIT_LM_HCLOGICALFIXTURE_H

#include <gmock/gmock.h>

#include "lm/HcLogical.h"
#include "tests/support/FakePlatform.h"

// A fresh engine on an opened bus, and the usual ways to a message that is ready to be answered.
class HcLogicalTest : public fake::PlatformTest {
  protected:
    HcLogicalTest() : bus(0x2E), lm(&bus, 0x2E) {
        bus.fd = 11;
        bus.devName = "/dev/i2c1";
    }

    // Sends the one-byte request `function` under opcode 0x84.
    void SendRequest(unsigned char function = 0x05) {
        lm.Reset(false);
        ASSERT_EQ(lm.SetNumSegs(14), 1);
        ASSERT_EQ(lm.Begin(0x84, 1), 1);
        ASSERT_EQ(lm.Fill(function), 1);
        ASSERT_EQ(lm.Terminate(), 1);
        ASSERT_EQ(lm.Send(), 1);
    }

    // The first `size` bytes of the message in the transmit chunk.
    fake::Bytes Request(std::size_t size) const {
        return fake::Bytes(lm.txBuffer->data, lm.txBuffer->data + size);
    }

    I2cBus bus;
    HcLogical lm;
};

#endif
