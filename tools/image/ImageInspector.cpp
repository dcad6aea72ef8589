// SPDX-License-Identifier: Apache-2.0
#include "tools/image/ImageInspector.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "chip/HdChip.h"
#include "sim/WireTime.h"
#include "tools/image/LabelField.h"
#include "tools/image/Sha256.h"
#include "tools/image/UpdaterLabel.h"

namespace tools {

namespace {

constexpr int BUS_SPEED = 400000;            // bits per second
constexpr std::size_t REPLY_READ_SIZE = 65;  // bytes of the read that fetches an acknowledgement

// The updater works out the percentage in 32 bits as the bytes sent times 80.
constexpr std::uint64_t EXACT_PERCENTAGE_LIMIT = INT_MAX / 80;

constexpr std::uint64_t MAX_PAYLOAD = HcLogical::MAX_PAYLOAD;

class Inspector {
  public:
    explicit Inspector(const std::string& path) { report_.path = path; }

    ImageReport Run() {
        if (ReadFile()) {
            MeasureDownload();
            CheckLabel();
        }
        return report_;
    }

  private:
    void Add(Grade grade, const char* code, const std::string& text) {
        report_.findings.push_back({grade, code, text});
    }

    // Takes size, digest and label field in one pass.
    bool ReadFile() {
        std::error_code error;
        const auto status = std::filesystem::status(report_.path, error);
        if (!error && !std::filesystem::is_regular_file(status)) {
            Add(Grade::Unusable, "unreadable", "it is no regular file");
            return false;
        }
        std::ifstream file(report_.path, std::ios::binary);
        if (!file) {
            Add(Grade::Unusable, "unreadable", std::string("opening it: ") + std::strerror(errno));
            return false;
        }
        Sha256 digest;
        std::string block(1 << 16, '\0');
        while (file) {
            file.read(block.data(), static_cast<std::streamsize>(block.size()));
            const std::size_t count = static_cast<std::size_t>(file.gcount());
            digest.Update(block.data(), count);
            TakeField(block, count);
            report_.size += count;
        }
        if (file.bad()) {
            Add(Grade::Unusable, "unreadable", std::string("reading it: ") + std::strerror(errno));
            return false;
        }
        report_.sha256 = digest.Finish();
        return true;
    }

    // Keeps what the block at the file's position report.size holds of the label field.
    void TakeField(const std::string& block, std::size_t count) {
        const std::uint64_t begin = std::max<std::uint64_t>(report_.size, sim::LABEL_OFFSET);
        const std::uint64_t end = std::min<std::uint64_t>(report_.size + count, LABEL_END);
        if (begin < end) {
            report_.field += block.substr(begin - report_.size, end - begin);
        }
    }

    void MeasureDownload() {
        if (report_.size >= static_cast<std::uint64_t>(HcLogical::TOTAL_LIMIT)) {
            Add(Grade::Unusable, "too-many-segments",
                "the download would have more than " + std::to_string(HcLogical::MAX_SEGMENTS) +
                    " segments; the largest image has " +
                    std::to_string(HcLogical::TOTAL_LIMIT - 1) + " bytes");
        } else {
            I2cBus bus(0);
            HcLogical engine(&bus, 0);
            engine.SetNumSegs(static_cast<int>(report_.size));
            report_.segments = engine.numSegs;
        }

        // The first segment carries the function byte, too.
        const std::uint64_t payload = report_.size + 1;
        const std::uint64_t full = payload / MAX_PAYLOAD;
        const auto transfer = [](std::uint64_t bytes) {
            const sim::Duration time =
                sim::WireTime(bytes, BUS_SPEED) + sim::WireTime(REPLY_READ_SIZE, BUS_SPEED);
            return std::chrono::duration<double>(time).count();
        };
        report_.wire_seconds = static_cast<double>(full) * transfer(HcLogical::MAX_SIZE);
        if (payload % MAX_PAYLOAD != 0) {
            report_.wire_seconds += transfer(payload % MAX_PAYLOAD + HcLogical::OVERHEAD);
        } else if (report_.segments) {
            Add(Grade::Unusable, "full-last-segment",
                "the last segment is exactly full, and the updater fails after it at the very end "
                "of the download; pad the image by 1 byte");
        }

        if (report_.size > EXACT_PERCENTAGE_LIMIT) {
            Add(Grade::Warnings, "percentage",
                "above " + std::to_string(EXACT_PERCENTAGE_LIMIT) +
                    " bytes the updater's percentage is wrong");
        }
    }

    void CheckLabel() {
        const LabelReading reading = ReadLabelAsUpdater(report_.path);
        switch (reading.result) {
            case LabelReading::Result::Read:
                report_.label = reading.label;
                CheckText();
                break;
            case LabelReading::Result::BreaksDown:
                Add(Grade::Unusable, "blank-label",
                    "the label field is all blanks, and the updater ends abnormally on it");
                break;
            case LabelReading::Result::Refused:
                AddRefusal(reading);
                break;
        }
    }

    void AddRefusal(const LabelReading& reading) {
        std::string said;
        for (const std::string& message : reading.messages) {
            said += "; the updater says: " + message;
        }
        if (report_.size <= sim::LABEL_OFFSET) {
            Add(Grade::Unusable, "too-short",
                "it ends before the label field, which begins at byte " +
                    std::to_string(sim::LABEL_OFFSET) + said);
        } else {
            Add(Grade::Unusable, "label-unreadable", "the label cannot be read" + said);
        }
    }

    // What makes a label that can be read one that no chip is likely to report.
    void CheckText() {
        if (report_.field.size() < sim::LABEL_SIZE) {
            Add(Grade::Warnings, "cut-label",
                "it ends inside the label field, whose missing bytes count as NULs of the label");
        }
        const std::size_t first = report_.field.find_first_not_of(' ');
        const std::size_t last = report_.field.find_last_not_of(' ');
        const bool is_whole = report_.field.size() == sim::LABEL_SIZE;
        if (is_whole && first == last) {
            Add(Grade::Warnings, "one-character-label",
                "the field holds one character, which the updater reads with all the blanks behind "
                "it");
        }
        if (is_whole && first + 1 == last) {
            Add(Grade::Warnings, "two-character-label",
                "the field holds two characters, both of which the updater drops");
        }
        const auto is_control = [](char byte) {
            return static_cast<unsigned char>(byte) < ' ' || byte == '\x7F';
        };
        if (std::any_of(report_.label->begin(), report_.label->end(), is_control)) {
            Add(Grade::Warnings, "control-characters",
                "the label holds control characters, which the chip's version must have, too");
        }
    }

    ImageReport report_;
};

}  // namespace

ImageReport InspectImage(const std::string& path) {
    return Inspector(path).Run();
}

}  // namespace tools
