// SPDX-License-Identifier: Apache-2.0
#include "i2c/HcI2cBuffer.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "hutil/hutil_init.h"
#include "platform/little_endian.h"
#include "platform/platform.h"

using little_endian::Get32;
using little_endian::Put32;

HcI2cBuffer::HcI2cBuffer(I2cBus* the_bus, unsigned char chip_address, char type)
    : data(nullptr), rxLength(0), address(chip_address), buffer(nullptr), bus(the_bus) {
    size_t size = 0;
    int data_offset = HEADER_SIZE;
    switch (type) {
        case 't':
            size = HEADER_SIZE + TX_PAYLOAD_SIZE;
            break;
        case 'r':
            size = RX_ALLOCATED_SIZE;
            data_offset += 1;
            break;
        default:
            HUTIL_CRITICAL("invalid i2c buffer type");
            hutil_fail();
    }

    void* memory = nullptr;
    if (posix_memalign(&memory, ALIGNMENT, size) != 0) {
        // Kept: errno is shown, not the result, and "tx" also for a chunk to receive into; logs are
        // compared by their words.
        HUTIL_CRITICAL("could not allocate memory for i2c tx buffer with result \"%s\" (%d)",
                       strerror(errno), errno);
        hutil_fail();
    }
    buffer = static_cast<unsigned char*>(memory);
    memset(buffer, 0, size);
    data = buffer + data_offset;
    Put32(buffer + ADDRESS_OFFSET, address >> 1);
    Put32(buffer + FORMAT_OFFSET, FORMAT_7BIT);
}

HcI2cBuffer::~HcI2cBuffer() {
    free(buffer);
}

int HcI2cBuffer::FillBuffer(unsigned char byte) {
    if (GetSpace() == 0) {
        return 0;
    }
    *GetCurrentPosition() = byte;
    SetLength(GetLength() + 1);
    return 1;
}

int HcI2cBuffer::FillBuffer(unsigned char* src, int* len) {
    if (src == nullptr || len == nullptr) {
        SetLength(0);
        if (len != nullptr) {
            *len = 0;
        }
        return 0;
    }
    int count = 0;
    while (count < *len && count < TX_PAYLOAD_SIZE) {
        data[count] = src[count];
        ++count;
    }
    SetLength(count);
    *len = count;
    return 1;
}

int HcI2cBuffer::GetSpace() {
    return TX_PAYLOAD_SIZE - GetLength();
}

unsigned char* HcI2cBuffer::GetCurrentPosition() {
    return data + GetLength();
}

int HcI2cBuffer::GetRxBufLength() {
    return buffer[HEADER_SIZE];
}

unsigned char HcI2cBuffer::GetRxLastByte() const {
    return data[buffer[HEADER_SIZE] - 1];
}

int HcI2cBuffer::CopyData(unsigned char* dst, int max) {
    const int count = GetRxBufLength();
    if (count >= max) {
        return 0;
    }
    memcpy(dst, data, static_cast<size_t>(count));
    return 1;
}

void HcI2cBuffer::ShowMsg() {
    // Kept: the labels [8] and [12] are swapped against the offsets that they show; logs are
    // compared by their words.
    printf("I2C message chunk, addr[0]=0x%02X  fmt[4]=0x%02X  stop[8]=%s  len[12]=0x%02X\n",
           Get32(buffer + ADDRESS_OFFSET), Get32(buffer + FORMAT_OFFSET),
           Get32(buffer + STOP_OFFSET) != 0 ? "yes" : "no", Get32(buffer + LENGTH_OFFSET));
    hutil_print16(stderr, data, GetLength());
}

int HcI2cBuffer::SendBuffer() {
    if (!Lock()) {
        return 0;
    }
    const int result = devctl(bus->fd, static_cast<int>(DCMD_I2C_SEND), buffer,
                              static_cast<size_t>(GetLength() + HEADER_SIZE), nullptr);
    if (result != 0) {
        // Kept: the bus stays locked after a failed transfer; the run ends soon, and its lock then.
        ReportFailure("DCMD_I2C_SEND", result);
        ShowMsg();
        return 0;
    }
    // Relied on: a failed unlock does not fail a send, the data went out and the run goes on.
    Unlock();
    return 1;
}

int HcI2cBuffer::GetBuffer() {
    if (!Lock()) {
        return 0;
    }
    SetLength(RX_READ_SIZE);
    const int result = devctl(bus->fd, static_cast<int>(DCMD_I2C_RECV), buffer,
                              HEADER_SIZE + RX_READ_SIZE, nullptr);
    if (result != 0) {
        // Kept: the bus stays locked after a failed transfer; the run ends soon, and its lock then.
        ReportFailure("DCMD_I2C_RECV", result);
        ShowMsg();
        return 0;
    }
    rxLength = GetRxBufLength();
    // Relied on: a failed unlock fails a receive, though not a send.
    return Unlock() ? 1 : 0;
}

bool HcI2cBuffer::Lock() {
    const int result = devctl(bus->fd, DCMD_I2C_LOCK, nullptr, 0, nullptr);
    if (result != 0) {
        ReportFailure("DCMD_I2C_LOCK", result);
        devctl(bus->fd, DCMD_I2C_UNLOCK, nullptr, 0, nullptr);
        return false;
    }
    return true;
}

bool HcI2cBuffer::Unlock() {
    const int result = devctl(bus->fd, DCMD_I2C_UNLOCK, nullptr, 0, nullptr);
    if (result != 0) {
        ReportFailure("DCMD_I2C_UNLOCK", result);
        return false;
    }
    return true;
}

void HcI2cBuffer::ReportFailure(const char* command, int result) {
    HUTIL_ERROR("%s %s for addr 0x%02X with result \"%s\" (%d)", command, bus->devName.c_str(),
                static_cast<unsigned int>(address), strerror(result), result);
}

int HcI2cBuffer::GetLength() const {
    return static_cast<int>(Get32(buffer + LENGTH_OFFSET));
}

void HcI2cBuffer::SetLength(int length) {
    Put32(buffer + LENGTH_OFFSET, static_cast<unsigned int>(length));
}

void HcI2cBuffer::SetStop(int stop) {
    Put32(buffer + STOP_OFFSET, static_cast<unsigned int>(stop));
}
