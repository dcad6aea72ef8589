// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_UNIT_LM_HCLOGICALFIXTURE_H
#define BBPFLASH_TESTS_UNIT_LM_HCLOGICALFIXTURE_H

#include <gmock/gmock.h>

#include "lm/HcLogical.h"
#include "tests/support/FakePlatform.h"

// A fresh engine on an opened bus, and the usual ways to a message that is ready to be answered.
class HcLogicalTest : public fake::PlatformTest {
  protected:
    HcLogicalTest() : bus_(0x2E), lm_(&bus_, 0x2E) {
        bus_.fd = 11;
        bus_.devName = "/dev/i2c1";
    }

    // Sends the one-byte request `function` under opcode 0x84.
    void SendRequest(unsigned char function = 0x05) {
        lm_.Reset(false);
        ASSERT_EQ(lm_.SetNumSegs(14), 1);
        ASSERT_EQ(lm_.Begin(0x84, 1), 1);
        ASSERT_EQ(lm_.Fill(function), 1);
        ASSERT_EQ(lm_.Terminate(), 1);
        ASSERT_EQ(lm_.Send(), 1);
    }

    // The first `size` bytes of the message in the transmit chunk.
    fake::Bytes Request(std::size_t size) const {
        return fake::Bytes(lm_.txBuffer->data, lm_.txBuffer->data + size);
    }

    I2cBus bus_;
    HcLogical lm_;
};

#endif
