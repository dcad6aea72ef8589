// SPDX-License-Identifier: Apache-2.0
// The system calls below the platform's three functions are replaced: each notes what it was asked
// and gives the result that the test has set.
#ifndef BBPFLASH_TESTS_UNIT_PLATFORM_LINUXFIXTURE_H
#define BBPFLASH_TESTS_UNIT_PLATFORM_LINUXFIXTURE_H

#include <gtest/gtest.h>
#include <linux/i2c.h>
#include <time.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/platform.h"

using Calls = std::vector<std::string>;

// What the system is asked, and how it answers.
struct System {
    int error = 0;                       // what each call fails with, 0 for none
    int transferred = 1;                 // messages that an I2C transfer reports
    std::vector<std::uint8_t> incoming;  // what an I2C read brings
    timespec left = {0, 0};              // of a sleep that failed

    std::vector<std::string> calls;  // their names, in order
    int fd = -1;
    unsigned long request = 0;
    i2c_msg message = {};
    std::vector<std::uint8_t> sent;
    int operation = 0;
    timespec slept = {0, 0};
    std::vector<unsigned long> prctl_arguments;
    std::string identity;
    int log_options = -1;
    int facility = -1;
    int severity = -1;
    std::string logged;

    int Result(int success) {
        if (error != 0) {
            errno = error;
            return -1;
        }
        return success;
    }
};

extern System* g_system;

class Linux : public testing::Test {
  protected:
    Linux() { g_system = &system_; }
    ~Linux() override { g_system = nullptr; }

    System system_;
};

class LinuxDevctl : public Linux {};
class LinuxDelay : public Linux {};
class LinuxSlogf : public Linux {};

#endif
