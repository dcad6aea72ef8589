// SPDX-License-Identifier: Apache-2.0
// The three functions of platform.h over i2c-dev, syslog and nanosleep.
#include <errno.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <stdarg.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <syslog.h>
#include <time.h>

#include "platform/little_endian.h"
#include "platform/platform.h"

namespace {

// The header of a data block: slave address, address format, length, stop flag, 32 bits each.
const size_t HEADER_SIZE = 16;
const size_t LENGTH_OFFSET = 8;
const unsigned int LONGEST_MESSAGE = 0xFFFF;  // what i2c_msg can say

int ResultOf(int result) {
    return result < 0 ? errno : 0;
}

// Moves the data block's payload in one I2C message, written or, with I2C_M_RD in `flags`, read.
int Transfer(int fd, unsigned short flags, void* data, size_t nbytes) {
    if (data == nullptr || nbytes < HEADER_SIZE) {
        return EINVAL;
    }
    unsigned char* const block = static_cast<unsigned char*>(data);
    const unsigned int length = little_endian::Get32(block + LENGTH_OFFSET);
    if (length > nbytes - HEADER_SIZE || length > LONGEST_MESSAGE) {
        return EINVAL;
    }
    i2c_msg message;
    message.addr = static_cast<unsigned short>(little_endian::Get32(block));
    message.flags = flags;
    message.len = static_cast<unsigned short>(length);
    message.buf = block + HEADER_SIZE;
    i2c_rdwr_ioctl_data transfer;
    transfer.msgs = &message;
    transfer.nmsgs = 1;
    const int transferred = ioctl(fd, I2C_RDWR, &transfer);
    // An adapter that moved no message has not failed by its own account; the chip got nothing.
    return transferred == 0 ? EIO : ResultOf(transferred);
}

// The kernel may round a sleep up by its timer slack, 50 microseconds unless told otherwise: a
// fifteenth of the shortest wait.
void RemoveTimerSlack() {
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

int Severity(int severity) {
    switch (severity) {
        case 1:
            return LOG_CRIT;
        case 2:
            return LOG_ERR;
        case 3:
            return LOG_WARNING;
        case 5:
            return LOG_INFO;
        default:
            // 0 is a plain message here, and syslog's emergency.
            return LOG_NOTICE;
    }
}

}  // namespace

extern "C" int devctl(int fd, int dcmd, void* data, size_t nbytes, int* info) {
    if (info != nullptr) {
        *info = 0;
    }
    switch (dcmd) {
        case DCMD_I2C_SET_BUS_SPEED:
            // The adapter's clock is the kernel's to set. The first command of a bus is the place
            // to make the waits exact.
            RemoveTimerSlack();
            return 0;
        case DCMD_I2C_LOCK:
            return ResultOf(flock(fd, LOCK_EX));
        case DCMD_I2C_UNLOCK:
            return ResultOf(flock(fd, LOCK_UN));
        case DCMD_I2C_SEND:
            return Transfer(fd, 0, data, nbytes);
        case DCMD_I2C_RECV:
            return Transfer(fd, I2C_M_RD, data, nbytes);
        default:
            return ENOTTY;
    }
}

extern "C" unsigned int delay(unsigned int milliseconds) {
    timespec wanted;
    wanted.tv_sec = static_cast<time_t>(milliseconds / 1000);
    wanted.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
    timespec left;
    if (nanosleep(&wanted, &left) == 0) {
        return 0;
    }
    if (errno != EINTR) {
        return milliseconds;
    }
    // Rounded up: a sleep that was cut short never counts as the full time.
    return static_cast<unsigned int>(left.tv_sec) * 1000 +
           static_cast<unsigned int>((left.tv_nsec + 999999) / 1000000);
}

extern "C" int slogf(int, int severity, const char* format, ...) {
    openlog("bbpflash", 0, LOG_USER);
    va_list arguments;
    va_start(arguments, format);
    vsyslog(Severity(severity), format, arguments);
    va_end(arguments);
    return 0;
}
