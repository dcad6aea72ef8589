// SPDX-License-Identifier: Apache-2.0
// Computes the checksum of a full segment as often as the argument says, and nothing else that
// depends on it: two numbers of rounds give the instructions of one.
#include <cstdlib>

#include "i2c/I2cBus.h"
#include "lm/HcLogical.h"

int main(int argc, char** argv) {
    I2cBus bus(0x2E);
    HcLogical lm(&bus, 0x2E);
    lm.Begin(0x84, HcLogical::MAX_PAYLOAD);
    int sum = 0;
    for (int round = argc > 1 ? atoi(argv[1]) : 1; round > 0; --round) {
        sum += lm.CalculateChecksum(lm.txBuffer->data);
    }
    return sum == 0;
}
