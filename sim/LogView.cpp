// SPDX-License-Identifier: Apache-2.0
#include "sim/LogView.h"

#include <algorithm>
#include <cstdio>

#include "common/ErrnoName.h"
#include "sim/StatusNames.h"

namespace sim {

namespace {

constexpr std::size_t PAYLOAD_SHOWN = 8;

std::string HexByte(unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, "%02X", value);
    return text;
}

std::string HexBytes(const std::uint8_t* bytes, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < std::min(size, PAYLOAD_SHOWN); ++i) {
        text += (i == 0 ? "" : " ") + HexByte(bytes[i]);
    }
    return size > PAYLOAD_SHOWN ? text + " ..." : text;
}

std::string Amount(std::size_t bytes) {
    return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
}

const char* Name(Request request) {
    switch (request) {
        case Request::Version:
            return "version query";
        case Request::Configuration:
            return "configuration query";
        case Request::Segment:
            return "download";
        case Request::Poll:
            return "programming status query";
        case Request::Unprotect:
            return "unprotect";
        case Request::FlashStatus:
            return "flash status query";
        case Request::Other:
            return "unknown command";
        case Request::None:
            break;
    }
    return "nothing";
}

// The message's number, and its segment if it is one of several.
std::string Position(const std::uint8_t* message) {
    std::string text = " #" + std::to_string(message[COUNT_AT]);
    const unsigned total = GetField(message + SEGMENTS_AT);
    if (total > 1) {
        text += ", segment " + std::to_string(GetField(message + SEGMENT_AT) + 1) + "/" +
                std::to_string(total);
    }
    return text;
}

std::string WriteText(const std::uint8_t* message, std::size_t size, Request request) {
    if (size < OVERHEAD) {
        return Amount(size) + ", " + HexBytes(message, size);
    }
    const std::size_t payload = size - OVERHEAD;
    return Name(request) + Position(message) + ", " + Amount(payload) + ", " +
           HexBytes(message + PAYLOAD_AT, payload);
}

// What a reply's payload says.
std::string PayloadText(const std::uint8_t* payload, std::size_t size, Request asked) {
    if (size == 0) {
        return "";
    }
    if (asked == Request::Version && size > 2) {
        std::string text(payload + 1, payload + size - 1);
        std::replace_if(
            text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
        return ", \"" + text + "\"";
    }
    if (asked == Request::Poll && size > 1) {
        return ", " + ProgramStatusText(payload[1]);
    }
    if (asked == Request::FlashStatus) {
        return ", " + ProgramStatusText(payload[0]);
    }
    return ", " + HexBytes(payload, size);
}

std::string ReadText(const std::uint8_t* read, std::size_t size, Request asked) {
    const std::size_t count = read[0];
    if (count == 0) {
        return "no reply yet";
    }
    if (count >= size || count < OVERHEAD) {
        return "a count byte of " + std::to_string(count) + ", " + HexBytes(read + 1, size - 1);
    }
    const std::uint8_t* const message = read + 1;
    if (message[SYNC_AT] != SYNC || message[SYNC_AT + 1] != SYNC) {
        return Amount(count) + " without sync, " + HexBytes(message, count);
    }
    std::string text = std::string("reply to ") + Name(asked) + Position(message) +
                       PayloadText(message + PAYLOAD_AT, count - OVERHEAD, asked) +
                       ReceptionText(message[STATUS_AT]);
    const std::size_t length = GetField(message + LENGTH_AT);
    if (length != count) {
        text += ", " + Amount(count) + " of " + std::to_string(length);
    } else if (Sum(message, count - 1) != message[count - 1]) {
        text += ", bad checksum";
    }
    return text;
}

}  // namespace

std::string TransferText(const Transfer& transfer) {
    const bool write = transfer.direction == Direction::Write;
    std::string text = write ? "write " : "read  ";
    if (transfer.address != CHIP_ADDRESS) {
        text += "address 0x" + HexByte(transfer.address) + ", ";
    }
    if (write && transfer.size > 0) {
        text += WriteText(transfer.bytes, transfer.size, transfer.request);
    } else if (!write && transfer.moved > 0) {
        text += ReadText(transfer.bytes, transfer.moved, transfer.request);
    } else {
        text += Amount(transfer.size);
    }
    if (transfer.moved != transfer.size && transfer.moved > 0) {
        text += ", broken off after " + Amount(transfer.moved);
    }
    if (transfer.result != 0) {
        text += transfer.acknowledged ? ": failed" : ": not acknowledged";
        text += " (" + common::ErrnoName(transfer.result) + ")";
    }
    return transfer.faulty ? text + " <- fault" : text;
}

void LogView::OnTransfer(const Transfer& transfer) {
    char time[32];
    const double seconds = std::chrono::duration<double>(transfer.start).count();
    std::snprintf(time, sizeof time, "%12.6f ", seconds);
    print_(time + TransferText(transfer));
}

void LogView::OnReset(bool high, Duration at) {
    char line[64];
    std::snprintf(line, sizeof line, "%12.6f reset %s", std::chrono::duration<double>(at).count(),
                  high ? "high" : "low");
    print_(line);
}

}  // namespace sim
