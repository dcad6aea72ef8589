// SPDX-License-Identifier: Apache-2.0
#include "sim/LogView.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace sim {

namespace {

constexpr std::size_t PAYLOAD_SHOWN = 8;

std::string Hex(unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, "%02X", value);
    return text;
}

std::string ErrnoName(int number) {
    const char* const name = strerrorname_np(number);
    return name != nullptr ? name : std::to_string(number);
}

std::string HexBytes(const std::uint8_t* bytes, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < std::min(size, PAYLOAD_SHOWN); ++i) {
        text += (i == 0 ? "" : " ") + Hex(bytes[i]);
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
        default:
            return "nothing";
    }
}

std::string StatusName(unsigned status) {
    const std::string number = " (" + std::to_string(status) + ")";
    switch (status) {
        case STATUS_COMPLETE:
            return "complete" + number;
        case STATUS_VERIFICATION_FAILED:
            return "verification failed" + number;
        case STATUS_IDLE:
            return "idle" + number;
        case STATUS_ERASING:
            return "erasing" + number;
        case STATUS_PROGRAMMING:
            return "programming" + number;
        case STATUS_VERIFYING:
            return "verifying" + number;
        case STATUS_SECURITY_MISMATCH:
            return "security mismatch" + number;
        case STATUS_SINGLE_ON_DUAL:
            return "single-tuner image on dual-tuner flash" + number;
        case STATUS_DUAL_ON_SINGLE:
            return "dual-tuner image on single-tuner flash" + number;
        default:
            return "reserved status" + number;
    }
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

std::string WriteText(const std::uint8_t* message, std::size_t size) {
    if (size < OVERHEAD) {
        return Amount(size) + ", " + HexBytes(message, size);
    }
    const std::size_t payload = size - OVERHEAD;
    return Name(Classify(message, size)) + Position(message) + ", " + Amount(payload) + ", " +
           HexBytes(message + PAYLOAD_AT, payload);
}

std::string ReceptionText(unsigned status) {
    std::string text;
    if ((status & COUNT_MISMATCH) != 0) {
        text += ", out of step";
    }
    if ((status & RECEIVED) != 0) {
        return text;
    }
    text += ", not taken";
    if ((status & HEADER_MISSING) != 0) {
        text += ", header missing";
    }
    if ((status & CHECKSUM_MISMATCH) != 0) {
        text += ", checksum mismatch";
    }
    if ((status & OVERFLOW_BIT) != 0) {
        text += ", overflow";
    }
    if (status >= UNKNOWN_OPCODE) {
        text += ", unknown opcode";
    }
    return text;
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
        return ", " + StatusName(payload[1]);
    }
    if (asked == Request::FlashStatus) {
        return ", " + StatusName(payload[0]);
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

std::string TransferText(const Transfer& transfer, Request asked) {
    const bool write = transfer.direction == Direction::Write;
    std::string text = write ? "write " : "read  ";
    if (transfer.address != CHIP_ADDRESS) {
        text += "address 0x" + Hex(transfer.address) + ", ";
    }
    if (write && transfer.size > 0) {
        text += WriteText(transfer.bytes, transfer.size);
    } else if (!write && transfer.moved > 0) {
        text += ReadText(transfer.bytes, transfer.moved, asked);
    } else {
        text += Amount(transfer.size);
    }
    if (transfer.moved != transfer.size && transfer.moved > 0) {
        text += ", broken off after " + Amount(transfer.moved);
    }
    if (transfer.result != 0) {
        text += transfer.acknowledged ? ": failed" : ": not acknowledged";
        text += std::string(" (") + ErrnoName(transfer.result) + ")";
    }
    return transfer.faulty ? text + " <- fault" : text;
}

void LogView::OnTransfer(const Transfer& transfer) {
    char time[32];
    const double seconds = std::chrono::duration<double>(transfer.start).count();
    std::snprintf(time, sizeof time, "%12.6f ", seconds);
    print_(time + TransferText(transfer, asked_));
    if (transfer.direction == Direction::Write && transfer.address == CHIP_ADDRESS) {
        asked_ = Classify(transfer.bytes, transfer.size);
    }
}

void LogView::OnReset(bool high, Duration at) {
    char line[64];
    std::snprintf(line, sizeof line, "%12.6f reset %s", std::chrono::duration<double>(at).count(),
                  high ? "high" : "low");
    print_(line);
}

}  // namespace sim
