// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_LM_HCLOGICAL_H
#define BBPFLASH_LM_HCLOGICAL_H

#include <stdio.h>

#include <vector>

#include "i2c/HcI2cBuffer.h"
#include "i2c/I2cBus.h"

// The engine of logical messages (LM): one command is one LM out and one reply in.
//
// An LM's bytes; fields of two bytes are little-endian:
//
//     0  sync, 0xA5 0xA5
//     2  count of the LMs since the chip's reset, modulo 256; a reply repeats it
//     3  instance, 1; a reply repeats it
//     4  length in bytes, 2 bytes: of the whole LM, but in the first segment of an image of at most
//        2034 bytes one less
//     6  opcode; a reply repeats it
//     7  abort: 0 in a request; in a reply the status of the request's reception
//     8  number of segments of the transfer, 2 bytes; a reply repeats it
//    10  number of this segment from 0, 2 bytes; a reply repeats it
//    12  payload
//     n  checksum: sum of the first `length` - 1 bytes, modulo 256: of all bytes before it where
//        the length is the whole LM's
//
// Relied on: the length that Begin is told for an image's first segment is the image's alone,
// without the function byte in front of it; the chip takes the first segment of a short image like
// that.
//
// A command calls Reset(false), SetNumSegs, Begin, Fill..., Terminate, Send, waits, and retrieves
// the reply. Nothing enforces the order; Begin always starts over.
class HcLogical {
  public:
    enum {
        SYNC = 0xA5,
        INSTANCE = 1,
        SYNC0_OFFSET = 0,
        SYNC1_OFFSET = 1,
        COUNT_OFFSET = 2,
        INSTANCE_OFFSET = 3,
        LENGTH_OFFSET = 4,
        OPCODE_OFFSET = 6,
        STATUS_OFFSET = 7,
        NUM_SEGS_OFFSET = 8,
        CURR_SEG_OFFSET = 10,
        HEADER_SIZE = 12,
        OVERHEAD = HEADER_SIZE + 1,  // header and checksum
        MAX_SIZE = 2048,
        MAX_PAYLOAD = MAX_SIZE - OVERHEAD,
        MAX_SEGMENTS = 65535,                         // what 16 bits can number
        TOTAL_LIMIT = MAX_PAYLOAD * MAX_SEGMENTS - 1  // bytes; from here on there are more segments
    };

    // The bits of a reply's reception status.
    enum Status {
        STATUS_RECEIVED = 0x01,
        STATUS_COUNT_MISMATCH = 0x02,
        STATUS_HEADER_MISSING = 0x04,
        STATUS_CHECKSUM_MISMATCH = 0x08,
        STATUS_OVERFLOW = 0x10,
        STATUS_UNKNOWN_OPCODE = 0xE0
    };

    // An engine on `bus`, which stays the caller's, for the chip at `address` in 8-bit form. Ends
    // the process with status 1 when `bus` is null or there is no memory.
    HcLogical(I2cBus* bus, unsigned char address);

    HcLogical(const HcLogical&) = delete;
    HcLogical& operator=(const HcLogical&) = delete;

    // Kept: received chunks are never destroyed; the process sends few LMs and ends.
    virtual ~HcLogical();

    // Back to the initial state; the message count restarts at 0 only with `resetCount`, after the
    // chip itself was reset.
    void Reset(bool resetCount);

    // Sets the number of segments for a transfer of `totalBytes`. Returns 1, or 0 with the number
    // unchanged when they are more than 16 bits can number.
    int SetNumSegs(int totalBytes);

    // Starts an LM whose length field tells of `payloadSize` bytes of payload, as far as one
    // segment holds them, whatever is filled in then. Returns 1.
    int Begin(unsigned char opcode, int payloadSize);

    // Appends one byte. Returns 1, or 0 when only the checksum's place is left.
    int Fill(unsigned char byte);

    // Copies up to `len` bytes of `src` to the LM's end. Returns how many, or -1 when only the
    // checksum's place is left.
    // Kept: it advances nothing, so the next fill overwrites the bytes; nobody calls it.
    int Fill(unsigned char* src, int len);

    // Appends what `file` still holds, up to the checksum's place. Returns the bytes of the last
    // read, 0 when the file was at its end.
    // Kept: with an LM that is full and a file that is not at its end it never returns; every LM is
    // begun before it is filled, and has room.
    int Fill(FILE* file);

    // Appends the checksum and sets the chunk's stop flag. Returns 1, or 0 when the LM is full.
    int Terminate();

    // Sends the LM. Returns the number of payload bytes sent, 0 on a failure.
    int Send();

    // How long the LM takes on a bus of `busSpeed` bits per second, in microseconds: whole
    // milliseconds and one more.
    int GetTxMicroSec(int busSpeed);

    // The checksum that `lm` should carry, 0..255, by its own length field; the sum ends at the
    // longest LM's end.
    int CalculateChecksum(unsigned char* lm);

    // Reads a reply that fits one read and validates it. With `payload` not null, the reply's
    // payload, at most 51 bytes, is copied there. Returns 1, or 0 on a failure.
    int RetrieveShort(unsigned char* payload);

    // Reads a reply of several reads, not validated, and copies each read's bytes, at most 255, to
    // the start of `dest`. Returns 1, or 0 when a read failed. Unless the first read is of a
    // transfer's last segment, it reads on until a read fails.
    // Kept: each read is copied over the one before it; only PrintSysCfg calls it, and the
    // driver never does.
    int RetrieveLong(unsigned char* dest);

    // Whether `rx` answers the request that was sent: 1, or 0 with each difference reported.
    int Validate(HcI2cBuffer* rx);

    // The payload bytes of the reply that RetrieveShort accepted last.
    int GetRxPayloadSize();

    // Dumps of the request and of the received chunks: text to standard output, bytes to standard
    // error.
    void ShowTxLM();
    void ShowRxLM();

    I2cBus* bus;               // not owned
    HcI2cBuffer* txBuffer;     // the one chunk to send, owned
    int txLength;              // bytes of the request so far, header included
    unsigned char lmCount;     // count byte of the next LM
    unsigned char lmInstance;  // instance byte
    int numSegs;               // segments of the transfer; the low 16 bits are sent
    int currSeg;               // this segment, from 0; advanced by each accepted reply
    // Kept: cleared with the rest and read nowhere; the fields behind it have their place after it.
    unsigned char flag;
    std::vector<HcI2cBuffer*> rxBuffers;  // received chunks of this exchange, in order
    int rxLength;                         // LM bytes received in this exchange
    unsigned char address;                // the chip's, in 8-bit form

  private:
    // Lets go of the received chunks' list with its storage, though not of the chunks.
    void ReleaseRxBuffers();

    // A new chunk that has received one read; null, reported, when the read failed.
    HcI2cBuffer* Receive();
};

#endif
