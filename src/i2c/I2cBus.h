// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_I2C_I2CBUS_H
#define BBPFLASH_I2C_I2CBUS_H

#include <string>

// The opened I2C device and its speed. It moves no data itself: HcI2cBuffer uses its descriptor.
class I2cBus {
  public:
    // The chip's address is accepted for the caller's sake and not kept.
    explicit I2cBus(unsigned char address);

    // Does not close the device: it stays open until the process ends, or i2cClose.
    virtual ~I2cBus();

    // Opens the device `name` and sets its speed in bits per second. Returns 0 on success, -1 when
    // it cannot be opened, or what i2cChangeSpeed returned. After a failed speed setting the device
    // stays open.
    // Kept: descriptor 0 is reported as a failure, but it is also returned, and callers take 0 for
    // success; the field `fd` is 0 all the same, so such a run goes on, without name and speed.
    int i2cOpen(const char* name, int speed);

    // Sets the speed of the open device in bits per second. Returns 0, or 5 on a failure, which
    // leaves the field `speed` as it was.
    int i2cChangeSpeed(int speed);

    // Closes the device. Returns the result of close, 0 or -1; `fd` keeps its value.
    int i2cClose();

    std::string devName;  // path of the open device
    int fd;               // its descriptor, 0 before it is opened
    int speed;            // the speed last set with success, in bits per second
};

#endif
