// SPDX-License-Identifier: Apache-2.0
#include "sim/VcdWriter.h"

namespace sim {

namespace {

// A pause longer than this is drawn as if it were this long.
constexpr Duration LONGEST_PAUSE = std::chrono::microseconds(100);

constexpr char SYMBOLS[] = {'d', 'c', 'r'};

}  // namespace

VcdWriter::VcdWriter(const std::string& path, int bus_hz, Window window)
    : file_(path, "the waveform"),
      bit_(std::chrono::nanoseconds(std::chrono::seconds(1)) / bus_hz),
      window_(window) {
    file_.Write("$comment I2C bus of the BBP; pauses are shortened to " +
                std::to_string(LONGEST_PAUSE / std::chrono::microseconds(1)) + " us $end\n");
    file_.Write(
        "$timescale 1 ns $end\n"
        "$scope module head_unit $end\n"
        "$var wire 1 d SDA $end\n"
        "$var wire 1 c SCL $end\n"
        "$var wire 1 r RESET $end\n"
        "$upscope $end\n"
        "$enddefinitions $end\n"
        "#0\n1d\n1c\n1r\n");
}

void VcdWriter::OnTransfer(const Transfer& transfer) {
    ++transfers_;
    if (transfers_ < window_.first || transfers_ - window_.first >= window_.count) {
        return;
    }
    MoveTo(transfer.start);
    const bool read = transfer.direction == Direction::Read;

    // Half a bit to the start condition, half a bit of clock before the first bit.
    Set(bit_ / 2, SDA, false);
    Set(bit_ / 2, SCL, false);
    DrawByte(static_cast<std::uint8_t>(transfer.address << 1 | (read ? 1 : 0)),
             transfer.acknowledged);
    for (std::size_t i = 0; i < transfer.moved; ++i) {
        // Who receives acknowledges: the chip while it takes bytes, the reader until the last one.
        const bool last = i + 1 == transfer.moved;
        DrawByte(transfer.bytes[i], !last || (!read && transfer.moved == transfer.size));
    }
    Set(bit_ / 4, SDA, false);
    Set(bit_ / 4, SCL, true);
    Set(bit_ / 2, SDA, true);
    at_ = transfer.end;
}

void VcdWriter::OnReset(bool high, Duration at) {
    if (levels_[RESET] == high) {
        return;
    }
    MoveTo(at);
    Set(Duration::zero(), RESET, high);
}

void VcdWriter::Close() {
    time_ += LONGEST_PAUSE;
    file_.Write("#" + std::to_string(time_.count()) + "\n");
    // Behind the waveform: a comment inside it is more than some readers can take.
    for (const Pause& pause : shortened_) {
        file_.Write("$comment before #" + std::to_string(pause.end.count()) + ": a pause of " +
                    std::to_string(pause.length.count()) + " ns $end\n");
    }
    file_.Close();
}

void VcdWriter::MoveTo(Duration at) {
    const Duration pause = at - at_;
    if (pause > LONGEST_PAUSE) {
        time_ += LONGEST_PAUSE;
        Pause cut;
        cut.end = time_;
        cut.length = pause;
        shortened_.push_back(cut);
    } else {
        time_ += pause;
    }
    at_ = at;
}

void VcdWriter::Set(Duration after, Wire wire, bool level) {
    time_ += after;
    if (levels_[wire] != level || after == Duration::zero()) {
        levels_[wire] = level;
        file_.Write("#" + std::to_string(time_.count()) + "\n" + (level ? '1' : '0') +
                    SYMBOLS[wire] + "\n");
    }
}

void VcdWriter::DrawByte(std::uint8_t byte, bool acknowledged) {
    for (int bit = 7; bit >= 0; --bit) {
        DrawBit((byte >> bit & 1) != 0);
    }
    DrawBit(!acknowledged);
}

void VcdWriter::DrawBit(bool level) {
    Set(bit_ / 4, SDA, level);
    Set(bit_ / 4, SCL, true);
    Set(bit_ / 2, SCL, false);
}

}  // namespace sim
