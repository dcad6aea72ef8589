// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/platform/LinuxFixture.h"

#include <linux/i2c-dev.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

System* g_system = nullptr;

extern "C" {

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    const i2c_rdwr_ioctl_data* transfer = va_arg(arguments, const i2c_rdwr_ioctl_data*);
    va_end(arguments);
    g_system->calls.push_back("ioctl");
    g_system->fd = fd;
    g_system->request = request;
    EXPECT_EQ(transfer->nmsgs, 1u);
    const i2c_msg& message = transfer->msgs[0];
    g_system->message = message;
    if (message.flags == 0) {
        g_system->sent.assign(message.buf, message.buf + message.len);
    } else if (g_system->error == 0) {
        std::fill_n(message.buf, message.len, std::uint8_t{0xEE});
        std::copy(g_system->incoming.begin(), g_system->incoming.end(), message.buf);
    }
    return g_system->Result(g_system->transferred);
}

int __wrap_flock(int fd, int operation) {
    g_system->calls.push_back("flock");
    g_system->fd = fd;
    g_system->operation = operation;
    return g_system->Result(0);
}

int __wrap_nanosleep(const timespec* wanted, timespec* left) {
    g_system->calls.push_back("nanosleep");
    g_system->slept = *wanted;
    *left = g_system->left;
    return g_system->Result(0);
}

int __wrap_prctl(int option, ...) {
    if (g_system == nullptr) {
        return 0;  // what a coverage build asks when the process ends
    }
    va_list arguments;
    va_start(arguments, option);
    g_system->prctl_arguments = {static_cast<unsigned long>(option)};
    for (int i = 0; i < 4; ++i) {
        g_system->prctl_arguments.push_back(va_arg(arguments, unsigned long));
    }
    va_end(arguments);
    g_system->calls.push_back("prctl");
    return g_system->Result(0);
}

void __wrap_openlog(const char* identity, int options, int facility) {
    g_system->identity = identity;
    g_system->log_options = options;
    g_system->facility = facility;
}

void __wrap_vsyslog(int severity, const char* format, va_list arguments) {
    g_system->calls.push_back("vsyslog");
    g_system->severity = severity;
    char text[256];
    vsnprintf(text, sizeof text, format, arguments);
    g_system->logged = text;
}
}
