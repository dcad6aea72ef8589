// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_UNIT_I2C_HCI2CBUFFERFIXTURE_H
#define BBPFLASH_TESTS_UNIT_I2C_HCI2CBUFFERFIXTURE_H

#include <gmock/gmock.h>

#include <cstdint>

#include "i2c/HcI2cBuffer.h"
#include "tests/support/FakePlatform.h"

// An opened bus, and the usual ways to a chunk with something in it.
class HcI2cBufferTest : public fake::PlatformTest {
  protected:
    HcI2cBufferTest() : bus_(0x2E) {
        bus_.fd = 11;
        bus_.devName = "/dev/i2c1";
    }

    // The header of a chunk.
    static fake::Bytes Header(const HcI2cBuffer& chunk) {
        return fake::Bytes(chunk.buffer, chunk.buffer + 16);
    }

    static void FillUp(HcI2cBuffer& chunk, int count) {
        for (int i = 0; i < count; ++i) {
            ASSERT_EQ(chunk.FillBuffer(static_cast<unsigned char>(i * 7 + 1)), 1);
        }
    }

    // A chunk that has received `count` as its count byte and `lm` behind it.
    void Receive(HcI2cBuffer& chunk, unsigned char count, const fake::Bytes& lm) {
        fake::Bytes bytes(1, count);
        bytes.insert(bytes.end(), lm.begin(), lm.end());
        platform.Answer(fake::Reply::Raw(bytes));
        ASSERT_EQ(chunk.GetBuffer(), 1);
    }

    static fake::Bytes Counting(std::size_t size) {
        fake::Bytes bytes(size);
        for (std::size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<std::uint8_t>(i + 1);
        }
        return bytes;
    }

    I2cBus bus_;
};

#endif
