// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstring>

#include "tests/fault/Format.h"
#include "tests/fault/Reference.h"

namespace fault {

namespace {

constexpr int ADDRESS = 0x17;
constexpr const char* MESSAGES = "HcLogical";
constexpr const char* TRANSFERS = "HcI2cBuffer";
constexpr const char* COMMANDS = "HdChip";

std::uint8_t At(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint8_t>(bytes[at]);
}

unsigned Half(std::string_view bytes, std::size_t at) {
    return At(bytes, at) | static_cast<unsigned>(At(bytes, at + 1)) << 8;
}

// The sum of a message's bytes up to the last that its length field counts, where there are any.
std::uint8_t SumOf(std::string_view message) {
    const unsigned length = Half(message, 4);
    const std::size_t summed = std::min<std::size_t>(length == 0 ? 0 : length - 1, message.size());
    unsigned sum = 0;
    for (std::size_t i = 0; i < summed; ++i) {
        sum += At(message, i);
    }
    return static_cast<std::uint8_t>(sum);
}

// Rows of 16 in hexadecimal.
std::string Dump(std::string_view bytes) {
    if (bytes.empty()) {
        return "";
    }
    static const char DIGITS[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 4);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i % 16 == 0) {
            text += "\n\t\t";
        }
        text += ' ';
        text += DIGITS[At(bytes, i) >> 4];
        text += DIGITS[At(bytes, i) & 15];
    }
    return text + "\n\n";
}

const char* Validity(bool valid) {
    return valid ? "valid" : "invalid";
}

}  // namespace

void ReferenceLink::Start(std::uint8_t opcode, int size, int segments, int segment) {
    const int length = size > 2034 ? 2048 : size + 13;
    const int header[] = {0xA5, 0xA5,     count_,        1,       length,      length >> 8, opcode,
                          0,    segments, segments >> 8, segment, segment >> 8};
    std::transform(std::begin(header), std::end(header), message_.begin(),
                   [](int value) { return static_cast<std::uint8_t>(value); });
    ++count_;
    size_ = 12;
}

void ReferenceLink::Add(std::string_view bytes) {
    std::memcpy(message_.data() + size_, bytes.data(), bytes.size());
    size_ += static_cast<int>(bytes.size());
}

bool ReferenceLink::Ask(std::uint8_t opcode, std::uint8_t function, int wait, const char* refusal) {
    Start(opcode, 1, 1, 0);
    const char byte = static_cast<char>(function);
    Add(std::string_view(&byte, 1));
    return Exchange(wait, refusal);
}

bool ReferenceLink::Exchange(int wait, const char* refusal) {
    reply_.fill(0);
    reply_size_ = 0;
    const std::string_view whole(reinterpret_cast<const char*>(message_.data()), message_.size());
    message_[static_cast<std::size_t>(size_)] = SumOf(whole);
    ++size_;
    if (!Send()) {
        t_.Say(Level::Error, COMMANDS, "sending");
        return false;
    }
    t_.Next(CallKind::Usleep, wait);
    if (!Receive()) {
        t_.Say(Level::Error, COMMANDS, refusal);
        return false;
    }
    return true;
}

bool ReferenceLink::Send() {
    const std::string_view bytes(reinterpret_cast<const char*>(message_.data()),
                                 static_cast<std::size_t>(size_));
    if (Lock()) {
        const Call& call = t_.Next(CallKind::Send, ADDRESS);
        if (t_.Data(call) != bytes || call.detail != 1) {
            throw Difference{"the message sent must be" + Dump(bytes) + "and is" +
                             Dump(t_.Data(call))};
        }
        if (call.result == 0) {
            // What has gone out has gone out, whatever becomes of the lock.
            Unlock();
            return true;
        }
        ReportTransfer("DCMD_I2C_SEND", call.result);
        ShowChunk(true, bytes);
    }
    t_.Say(Level::Error, MESSAGES, "sending LM I2C buffers");
    ShowRequest();
    return false;
}

bool ReferenceLink::Receive() {
    bool received = false;
    std::string_view read;
    if (t_.Next(CallKind::NewObject).result == 0) {
        if (t_.Next(CallKind::Memalign).result != 0) {
            const int error = t_.Errno();
            t_.Say(Level::Critical, TRANSFERS,
                   "could not allocate memory for i2c tx buffer with result " + Quoted(error));
            Die();
        }
        if (Lock()) {
            const Call& call = t_.Next(CallKind::Receive, ADDRESS);
            if (call.result == 0) {
                read = t_.Data(call);
                received = Unlock();
            } else {
                ReportTransfer("DCMD_I2C_RECV", call.result);
                ShowChunk(false, std::string(65, '\0'));
            }
        }
    }
    if (!received) {
        t_.Say(Level::Error, MESSAGES, "getting LM response");
        return false;
    }
    if (!Accepts(read)) {
        t_.Say(Level::Error, MESSAGES, "validating received buffer");
        return false;
    }
    reply_size_ = At(read, 0) - 13;
    std::copy_n(read.begin() + 13, reply_size_, reply_.begin());
    return true;
}

bool ReferenceLink::Lock() {
    const std::int64_t error = t_.Next(CallKind::Lock).result;
    if (error != 0) {
        ReportTransfer("DCMD_I2C_LOCK", error);
        t_.Next(CallKind::Unlock);
    }
    return error == 0;
}

bool ReferenceLink::Unlock() {
    const std::int64_t error = t_.Next(CallKind::Unlock).result;
    if (error != 0) {
        ReportTransfer("DCMD_I2C_UNLOCK", error);
    }
    return error == 0;
}

void ReferenceLink::ReportTransfer(const char* what, std::int64_t error) {
    t_.Say(Level::Error, TRANSFERS,
           std::string(what) + " " + device_ + " for addr 0x2E with result " +
               Quoted(static_cast<int>(error)));
}

void ReferenceLink::ShowChunk(bool stop, std::string_view bytes) {
    t_.Print(Format("I2C message chunk, addr[0]=0x17  fmt[4]=0x02  stop[8]=%s  len[12]=0x%02X\n",
                    stop ? "yes" : "no", static_cast<unsigned>(bytes.size())));
    t_.PrintError(Dump(bytes));
}

void ReferenceLink::ShowRequest() {
    const std::string_view bytes(reinterpret_cast<const char*>(message_.data()),
                                 static_cast<std::size_t>(size_));
    const unsigned length = Half(bytes, 4);
    t_.Print(
        Format("\n\tLM Header information\n\n"
               "\t\t[0]  sync:     0xA5 (valid)\n\t\t[1]  sync:     0xA5 (valid)\n"
               "\t\t[2]  count:    %d\n\t\t[3]  instance: 1\n\t\t[4]  length:   %u (%s)\n"
               "\t\t[6]  opcode:   0x%02X\n\t\t[7]  abort:    0x00 (valid)\n"
               "\t\t[8]  num segs: %u\n\t\t[10] curr seg: %u\n\n",
               message_[2], length, Validity(length <= 2048), message_[6], Half(bytes, 8),
               Half(bytes, 10)));
    t_.Print(
        Format("\tI2C information (add fmt stop txlen rxlen): 0x17 0x02 0x01 %d 165\n", size_));
    t_.PrintError(Dump(bytes));
    t_.Print(Format("\t\t[last] LM checksum: %02X\n\n", At(bytes, bytes.size() - 1)));
}

bool ReferenceLink::Accepts(std::string_view read) {
    const unsigned count = At(read, 0);
    const std::string_view reply = read.substr(1);
    if (count <= 12) {
        t_.Say(Level::Error, MESSAGES, "receiving data");
        return false;
    }
    if (count > 64 || At(reply, count - 1) != SumOf(reply)) {
        t_.Say(Level::Error, MESSAGES, "retrieved message checksum error");
        return false;
    }
    bool accepted = true;
    const auto must = [&](bool holds, const char* text) {
        if (!holds) {
            t_.Say(Level::Error, MESSAGES, text);
            accepted = false;
        }
    };
    must(At(reply, 0) == 0xA5 && At(reply, 1) == 0xA5, "Write header sync bytes error");
    must(At(reply, 2) == message_[2], "Write header LM count error");
    must(At(reply, 3) == message_[3], "Write header LM instance error");
    must(At(reply, 6) == message_[6], "Write header opcode error");
    must(At(reply, 8) == message_[8] && At(reply, 9) == message_[9],
         "Write header data segment error (total)");
    must(At(reply, 10) == message_[10] && At(reply, 11) == message_[11],
         "Write header data segment error (number)");
    accepted = AcceptsStatus(At(reply, 7)) && accepted;
    if (!accepted) {
        t_.Say(Level::Info, MESSAGES, "Transmit LM buffers");
        ShowRequest();
        t_.Say(Level::Info, MESSAGES, "Receive LM buffers");
    }
    return accepted;
}

bool ReferenceLink::AcceptsStatus(std::uint8_t status) {
    const bool received = (status & 0x01) != 0;
    if (!received) {
        t_.Say(Level::Error, MESSAGES, "Read header reception status error");
        const std::pair<int, const char*> troubles[] = {{0x04, "LM header missing"},
                                                        {0x08, "LM checksum does not match"},
                                                        {0x10, "LM overflow"},
                                                        {0xE0, "LM unknown opcode"}};
        for (const auto& [bits, text] : troubles) {
            if ((status & bits) != 0) {
                t_.Say(Level::Error, MESSAGES, text);
            }
        }
    }
    if ((status & 0x02) != 0) {
        t_.Say(Level::Warning, MESSAGES, "LM count mismatch (NOT FATAL)");
    }
    return received;
}

void ReferenceLink::Die() {
    t_.Print("ERROR\n");
    t_.Exit(1);
}

}  // namespace fault
