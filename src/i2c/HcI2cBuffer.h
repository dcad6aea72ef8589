// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_I2C_HCI2CBUFFER_H
#define BBPFLASH_I2C_HCI2CBUFFER_H

#include "i2c/I2cBus.h"

// One transfer on the I2C bus, a chunk: a buffer laid out as the I2C resource manager takes it for
// a combined write or a read, and the few operations that fill it and move it.
//
// The chunk's bytes; header fields are 32 bits wide, little-endian:
//
//     0  slave address, 7-bit form
//     4  address format, 2: 7-bit addresses
//     8  length of the payload area in use
//    12  stop flag
//    16  payload area: up to 2048 bytes to send, or what one read of 65 bytes brings: the count of
//        the bytes that follow it, then the bytes
class HcI2cBuffer {
  public:
    enum {
        ADDRESS_OFFSET = 0,
        FORMAT_OFFSET = 4,
        LENGTH_OFFSET = 8,
        STOP_OFFSET = 12,
        HEADER_SIZE = 16,
        TX_PAYLOAD_SIZE = 2048,
        RX_READ_SIZE = 65,              // one read: the count byte and RX_LM_SIZE bytes
        RX_LM_SIZE = RX_READ_SIZE - 1,  // the most that one read brings of a logical message
        RX_COUNT_MAX = 255,             // what the count byte can promise
        // A received chunk owns zeroed room for all that its count byte can promise.
        RX_ALLOCATED_SIZE = HEADER_SIZE + 1 + RX_COUNT_MAX,
        ALIGNMENT = 16,
        FORMAT_7BIT = 2
    };

    // A chunk to send (type 't') or to receive into (type 'r') on `bus`, which stays the caller's;
    // `address` is the chip's in 8-bit form. Ends the process with status 1 on any other type or
    // when there is no memory.
    HcI2cBuffer(I2cBus* bus, unsigned char address, char type);

    HcI2cBuffer(const HcI2cBuffer&) = delete;
    HcI2cBuffer& operator=(const HcI2cBuffer&) = delete;

    virtual ~HcI2cBuffer();

    // Appends one byte to a chunk to send. Returns 1, or 0 when it is full.
    int FillBuffer(unsigned char byte);

    // Replaces the content of a chunk to send by the first `*len` bytes of `src`, at most 2048, and
    // stores in `*len` how many it took. Returns 1. When `src` or `len` is null it empties the
    // chunk, stores 0 in `*len` if there is one, and returns 0.
    int FillBuffer(unsigned char* src, int* len);

    // How many more bytes a chunk to send takes, at most 2048.
    int GetSpace();

    // Where the next byte goes: inside the chunk's own memory while there is space, just behind its
    // end when it is full.
    unsigned char* GetCurrentPosition();

    // The count byte of a received chunk, 0..255 as the chip sent it.
    int GetRxBufLength();

    // The last byte that the count byte promises: a logical message's checksum.
    unsigned char GetRxLastByte() const;

    // Copies the bytes that the count byte promises, 0..255, to `dst`. Returns 1, or 0 with nothing
    // copied when there are `max` or more.
    int CopyData(unsigned char* dst, int max);

    // Prints the header to standard output and the payload to standard error.
    void ShowMsg();

    // Sends the filled bytes as one write, under the bus lock. Returns 1, or 0 on a failure, which
    // a refused unlock is not. A failed transfer leaves the bus locked.
    int SendBuffer();

    // Receives one read of 65 bytes, under the bus lock. Returns 1, or 0 on a failure, a refused
    // unlock among them. A failed transfer leaves the bus locked.
    int GetBuffer();

    // The header's length field, in bytes.
    int GetLength() const;
    void SetLength(int length);

    // Sets the header's stop flag, 0 or 1.
    void SetStop(int stop);

    unsigned char* data;    // the logical message in `buffer`: after the count byte when receiving
    int rxLength;           // the count byte after a successful receive, 0 before
    unsigned char address;  // the chip's address in 8-bit form
    unsigned char* buffer;  // the chunk, owned
    I2cBus* bus;            // not owned

  private:
    // Take and release the bus; false, reported, when the bus refuses. A refused lock is released
    // all the same.
    bool Lock();
    bool Unlock();

    // Reports that the device command named `command` returned the errno value `result`.
    void ReportFailure(const char* command, int result);
};

#endif
