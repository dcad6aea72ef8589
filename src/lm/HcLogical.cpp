// SPDX-License-Identifier: Apache-2.0
#include "lm/HcLogical.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <new>

#include "hutil/hutil_init.h"
#include "platform/little_endian.h"

using little_endian::Get16;
using little_endian::Put16;

namespace {

// The checksum of an LM in `room` bytes: of all bytes but the last by its own length field, as far
// as there is room.
unsigned char Checksum(const unsigned char* lm, int room) {
    const int count = std::min(Get16(lm + HcLogical::LENGTH_OFFSET) - 1, room);
    unsigned char sum = 0;
    for (int i = 0; i < count; ++i) {
        sum = static_cast<unsigned char>(sum + lm[i]);
    }
    return sum;
}

const char* Validity(bool valid) {
    return valid ? "valid" : "invalid";
}

void ShowHeader(const unsigned char* lm) {
    const int length = Get16(lm + HcLogical::LENGTH_OFFSET);
    printf("\n\tLM Header information\n\n");
    printf("\t\t[0]  sync:     0x%02X (%s)\n", lm[HcLogical::SYNC0_OFFSET],
           Validity(lm[HcLogical::SYNC0_OFFSET] == HcLogical::SYNC));
    printf("\t\t[1]  sync:     0x%02X (%s)\n", lm[HcLogical::SYNC1_OFFSET],
           Validity(lm[HcLogical::SYNC1_OFFSET] == HcLogical::SYNC));
    printf("\t\t[2]  count:    %d\n", lm[HcLogical::COUNT_OFFSET]);
    printf("\t\t[3]  instance: %d\n", lm[HcLogical::INSTANCE_OFFSET]);
    printf("\t\t[4]  length:   %d (%s)\n", length, Validity(length <= HcLogical::MAX_SIZE));
    printf("\t\t[6]  opcode:   0x%02X\n", lm[HcLogical::OPCODE_OFFSET]);
    // Kept: a reply's status of 0x01, all well, shows as "invalid" here; logs are compared by their
    // words.
    printf("\t\t[7]  abort:    0x%02X (%s)\n", lm[HcLogical::STATUS_OFFSET],
           Validity(lm[HcLogical::STATUS_OFFSET] == 0));
    printf("\t\t[8]  num segs: %d\n", Get16(lm + HcLogical::NUM_SEGS_OFFSET));
    printf("\t\t[10] curr seg: %d\n\n", Get16(lm + HcLogical::CURR_SEG_OFFSET));
}

// Whether the reply repeats what identifies the request; every difference is reported.
bool CheckEcho(const unsigned char* reply, const unsigned char* request) {
    bool ok = true;
    if (reply[HcLogical::SYNC0_OFFSET] != HcLogical::SYNC ||
        reply[HcLogical::SYNC1_OFFSET] != HcLogical::SYNC) {
        HUTIL_ERROR("Write header sync bytes error");
        ok = false;
    }
    if (reply[HcLogical::COUNT_OFFSET] != request[HcLogical::COUNT_OFFSET]) {
        HUTIL_ERROR("Write header LM count error");
        ok = false;
    }
    if (reply[HcLogical::INSTANCE_OFFSET] != request[HcLogical::INSTANCE_OFFSET]) {
        HUTIL_ERROR("Write header LM instance error");
        ok = false;
    }
    if (reply[HcLogical::OPCODE_OFFSET] != request[HcLogical::OPCODE_OFFSET]) {
        HUTIL_ERROR("Write header opcode error");
        ok = false;
    }
    if (Get16(reply + HcLogical::NUM_SEGS_OFFSET) != Get16(request + HcLogical::NUM_SEGS_OFFSET)) {
        HUTIL_ERROR("Write header data segment error (total)");
        ok = false;
    }
    if (Get16(reply + HcLogical::CURR_SEG_OFFSET) != Get16(request + HcLogical::CURR_SEG_OFFSET)) {
        HUTIL_ERROR("Write header data segment error (number)");
        ok = false;
    }
    return ok;
}

// Whether the chip received the request, by its reply's status; every trouble is reported.
bool CheckStatus(unsigned char status) {
    const bool received = (status & HcLogical::STATUS_RECEIVED) != 0;
    if (!received) {
        HUTIL_ERROR("Read header reception status error");
        if (status & HcLogical::STATUS_HEADER_MISSING) {
            HUTIL_ERROR("LM header missing");
        }
        if (status & HcLogical::STATUS_CHECKSUM_MISMATCH) {
            HUTIL_ERROR("LM checksum does not match");
        }
        if (status & HcLogical::STATUS_OVERFLOW) {
            HUTIL_ERROR("LM overflow");
        }
        if (status & HcLogical::STATUS_UNKNOWN_OPCODE) {
            HUTIL_ERROR("LM unknown opcode");
        }
    }
    if (status & HcLogical::STATUS_COUNT_MISMATCH) {
        HUTIL_WARNING("LM count mismatch (NOT FATAL)");
    }
    return received;
}

}  // namespace

HcLogical::HcLogical(I2cBus* the_bus, unsigned char chip_address)
    : bus(the_bus),
      txBuffer(nullptr),
      txLength(0),
      lmCount(0),
      lmInstance(INSTANCE),
      numSegs(0),
      currSeg(0),
      flag(0),
      rxLength(0),
      address(chip_address) {
    if (bus == nullptr) {
        HUTIL_CRITICAL("NULL bus pointer");
        hutil_fail();
    }
    txBuffer = new (std::nothrow) HcI2cBuffer(bus, address, 't');
    if (txBuffer == nullptr) {
        HUTIL_CRITICAL("creating new LM tx buffer");
        hutil_fail();
    }
}

HcLogical::~HcLogical() {
    delete txBuffer;
}

void HcLogical::Reset(bool resetCount) {
    lmInstance = INSTANCE;
    numSegs = 0;
    currSeg = 0;
    txLength = 0;
    rxLength = 0;
    flag = 0;
    if (resetCount) {
        lmCount = 0;
    }
}

int HcLogical::SetNumSegs(int totalBytes) {
    if (totalBytes >= TOTAL_LIMIT) {
        HUTIL_ERROR("%d would exceed maximum of 2^16 LM transfer capacity", totalBytes);
        return 0;
    }
    // Relied on: one segment more than needed when the total and one more fill the segments
    // exactly; the chip has never been told another number.
    numSegs = (totalBytes + 1) / MAX_PAYLOAD + 1;
    return 1;
}

int HcLogical::Begin(unsigned char opcode, int payloadSize) {
    txLength = 0;
    rxLength = 0;
    ReleaseRxBuffers();
    if (txBuffer == nullptr) {
        HUTIL_CRITICAL("could not allocate memory for buffer with result \"%s\" (%d)",
                       strerror(errno), errno);
        hutil_fail();
    }

    const int length = payloadSize >= MAX_PAYLOAD ? MAX_SIZE : payloadSize + OVERHEAD;
    unsigned char* const lm = txBuffer->data;
    lm[SYNC0_OFFSET] = SYNC;
    lm[SYNC1_OFFSET] = SYNC;
    lm[COUNT_OFFSET] = lmCount;
    lmCount = static_cast<unsigned char>(lmCount + 1);
    lm[INSTANCE_OFFSET] = lmInstance;
    Put16(lm + LENGTH_OFFSET, length);
    lm[OPCODE_OFFSET] = opcode;
    lm[STATUS_OFFSET] = 0;
    Put16(lm + NUM_SEGS_OFFSET, numSegs);
    Put16(lm + CURR_SEG_OFFSET, currSeg);
    txLength = HEADER_SIZE;
    txBuffer->SetLength(HEADER_SIZE);
    return 1;
}

int HcLogical::Fill(unsigned char byte) {
    if (MAX_SIZE - txLength <= 1) {
        HUTIL_ERROR("LM is full");
        return 0;
    }
    if (!txBuffer->FillBuffer(byte)) {
        return 0;
    }
    txLength += 1;
    return 1;
}

int HcLogical::Fill(unsigned char* src, int len) {
    if (MAX_SIZE - txLength < 2) {
        return -1;
    }
    const int count = std::min(len, MAX_SIZE - txLength);
    if (count > 0) {
        memcpy(txBuffer->data + txLength, src, static_cast<size_t>(count));
    }
    return count;
}

int HcLogical::Fill(FILE* file) {
    int result = 0;
    while (!feof(file)) {
        const int space = txBuffer->GetSpace();
        // Kept: these two and `got < 0` below never happen to an LM that was begun; they are what
        // stands between a later change and a write past the chunk's end.
        if (space < 0) {
            HUTIL_ERROR("invalid I2C buffer space");
            return 0;
        }
        if (space <= 1) {
            continue;
        }
        const int want = std::min(space, MAX_SIZE - 1 - txLength);
        int got = static_cast<int>(
            fread(txBuffer->GetCurrentPosition(), 1, static_cast<size_t>(want), file));
        if (got < 0) {
            HUTIL_ERROR("reading from file with result \"%s\" (%d)", strerror(errno), errno);
            got = 0;
        }
        txBuffer->SetLength(txBuffer->GetLength() + got);
        txLength += got;
        result = got;
        if (got < want || txLength > MAX_SIZE - 2) {
            return got;
        }
    }
    return result;
}

int HcLogical::Terminate() {
    if (txLength >= MAX_SIZE) {
        return 0;
    }
    if (!txBuffer->FillBuffer(Checksum(txBuffer->data, MAX_SIZE))) {
        return 0;
    }
    txLength += 1;
    txBuffer->SetStop(1);
    return 1;
}

int HcLogical::Send() {
    if (!txBuffer->SendBuffer()) {
        HUTIL_ERROR("sending LM I2C buffers");
        ShowTxLM();
        return 0;
    }
    return txLength - OVERHEAD;
}

int HcLogical::GetTxMicroSec(int busSpeed) {
    // Nine bit times a byte, eleven for the address and the bus conditions.
    return ((txLength * 9 + 11) * 1000 / busSpeed) * 1000 + 1000;
}

int HcLogical::CalculateChecksum(unsigned char* lm) {
    return Checksum(lm, MAX_SIZE);
}

int HcLogical::RetrieveShort(unsigned char* payload) {
    HcI2cBuffer* const chunk = Receive();
    if (chunk == nullptr) {
        return 0;
    }
    if (!Validate(chunk)) {
        HUTIL_ERROR("validating received buffer");
        return 0;
    }
    const int count = chunk->GetRxBufLength();
    if (payload != nullptr) {
        memcpy(payload, chunk->data + HEADER_SIZE, static_cast<size_t>(count - OVERHEAD));
    }
    currSeg += 1;
    rxBuffers.push_back(chunk);
    rxLength += count;
    return 1;
}

int HcLogical::RetrieveLong(unsigned char* dest) {
    int total = 0;
    int segs = 0;
    int seg = 0;
    for (;;) {
        HcI2cBuffer* const chunk = Receive();
        if (chunk == nullptr) {
            return 0;
        }
        rxBuffers.push_back(chunk);
        if (rxLength == 0) {
            const unsigned char* const header = rxBuffers.front()->data;
            total = Get16(header + LENGTH_OFFSET);
            segs = Get16(header + NUM_SEGS_OFFSET);
            seg = Get16(header + CURR_SEG_OFFSET);
        }
        // Kept: the first LM byte, not the count byte, is what counts as received; it is a sync
        // byte, 165, so that one read is enough for every length up to that.
        rxLength += chunk->data[0];
        if (total > rxLength) {
            continue;
        }
        if (segs == seg + 1) {
            break;
        }
        total = 0;
    }
    for (HcI2cBuffer* const chunk : rxBuffers) {
        chunk->CopyData(dest, HcI2cBuffer::RX_COUNT_MAX + 1);
    }
    return 1;
}

int HcLogical::Validate(HcI2cBuffer* rx) {
    const unsigned char* const reply = rx->data;
    const unsigned char* const request = txBuffer->data;

    const int count = rx->GetRxBufLength();
    if (count <= HEADER_SIZE) {
        HUTIL_ERROR("receiving data");
        return 0;
    }
    // A count that no read can bring is no better than a wrong sum.
    if (count > HcI2cBuffer::RX_LM_SIZE ||
        rx->GetRxLastByte() != Checksum(reply, HcI2cBuffer::RX_LM_SIZE)) {
        HUTIL_ERROR("retrieved message checksum error");
        return 0;
    }

    const bool echoes = CheckEcho(reply, request);
    const bool received = CheckStatus(reply[STATUS_OFFSET]);
    if (echoes && received) {
        return 1;
    }
    HUTIL_INFO("Transmit LM buffers");
    ShowTxLM();
    HUTIL_INFO("Receive LM buffers");
    // Kept: the rejected chunk is not in the list yet, so only earlier ones show, normally none;
    // logs are compared by their words.
    ShowRxLM();
    return 0;
}

int HcLogical::GetRxPayloadSize() {
    return rxLength - OVERHEAD;
}

void HcLogical::ShowTxLM() {
    const unsigned char* const chunk = txBuffer->buffer;
    const int length = txBuffer->GetLength();
    ShowHeader(txBuffer->data);
    // Kept: rxlen of a request shows the LM's first byte; logs are compared by their words.
    printf("\tI2C information (add fmt stop txlen rxlen): 0x%02x 0x%02x 0x%02x %d %d\n",
           chunk[HcI2cBuffer::ADDRESS_OFFSET], chunk[HcI2cBuffer::FORMAT_OFFSET],
           chunk[HcI2cBuffer::STOP_OFFSET], length, txBuffer->GetRxBufLength());
    hutil_print16(stderr, txBuffer->data, length);
    printf("\t\t[last] LM checksum: %02X\n\n", txBuffer->data[length - 1]);
}

void HcLogical::ShowRxLM() {
    for (size_t i = 0; i < rxBuffers.size(); ++i) {
        HcI2cBuffer* const rx = rxBuffers[i];
        const int count = rx->GetRxBufLength();
        if (i == 0) {
            ShowHeader(rx->data);
        }
        printf(
            "\tI2C chunk [%d] information (add fmt stop txlen rxlen): 0x%02x 0x%02x 0x%02x %d %d\n",
            static_cast<int>(i), rx->buffer[HcI2cBuffer::ADDRESS_OFFSET],
            rx->buffer[HcI2cBuffer::FORMAT_OFFSET], rx->buffer[HcI2cBuffer::STOP_OFFSET],
            rx->GetLength(), count);
        hutil_print16(stderr, rx->data, rx->GetLength());
        if (i + 1 == rxBuffers.size()) {
            printf("\t\t[last] LM checksum: %02X\n\n", rx->data[count - 1]);
        }
    }
}

void HcLogical::ReleaseRxBuffers() {
    std::vector<HcI2cBuffer*>().swap(rxBuffers);
}

HcI2cBuffer* HcLogical::Receive() {
    HcI2cBuffer* const chunk = new (std::nothrow) HcI2cBuffer(bus, address, 'r');
    if (chunk == nullptr || !chunk->GetBuffer()) {
        HUTIL_ERROR("getting LM response");
        ShowRxLM();
        return nullptr;
    }
    return chunk;
}
