// SPDX-License-Identifier: Apache-2.0
#include "tools/image/ImageInspector.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "common/Text.h"
#include "common/UniqueFd.h"
#include "lm/HcLogical.h"
#include "sim/WireTime.h"
#include "tools/image/ImageContent.h"
#include "tools/image/LabelField.h"
#include "tools/image/UpdaterLabel.h"

namespace tools {

namespace {

constexpr int BUS_SPEED = 400000;            // bits per second
constexpr std::size_t REPLY_READ_SIZE = 65;  // bytes of the read that fetches an acknowledgement

// The updater works out the percentage in 32 bits as the bytes sent times 80.
constexpr std::uint64_t EXACT_PERCENTAGE_LIMIT = INT_MAX / 80;

constexpr std::uint64_t MAX_PAYLOAD = HcLogical::MAX_PAYLOAD;
constexpr std::uint64_t SIZE_LIMIT = HcLogical::TOTAL_LIMIT;

// A blank of this many bytes is none of firmware's tables, but padding or a hole.
constexpr std::uint64_t SUSPICIOUS_BLANK = 65536;

class Inspector {
  public:
    Inspector(const std::string& path, const ByteSink& sink) : sink_(sink) { report_.path = path; }

    ImageReport Run() {
        const int error = ReadFile();
        if (error != 0) {
            Add(Grade::Unusable, "unreadable", std::string("reading it: ") + std::strerror(error));
        }
        if (report_.is_read) {
            MeasureDownload();
            const bool is_erased = CheckContent();
            CheckLabelReading(is_erased);
        }
        return report_;
    }

  private:
    void Add(Grade grade, const char* code, const std::string& text) {
        report_.findings.push_back(MakeFinding(grade, code, text));
    }

    // Returns an errno value or 0.
    int ReadFile() {
        // A device or a pipe must not be waited for.
        const common::UniqueFd file(
            open(report_.path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        struct stat status;
        if (!file || fstat(file.Get(), &status) != 0) {
            return errno;
        }
        if (!S_ISREG(status.st_mode)) {
            Add(Grade::Unusable, "unreadable", "it is no regular file");
            return 0;
        }
        std::string block(1 << 16, '\0');
        for (;;) {
            const ssize_t count = read(file.Get(), block.data(), block.size());
            if (count < 0 && errno != EINTR) {
                return errno;
            }
            if (count == 0) {
                break;
            }
            if (count > 0) {
                Take(block.data(), static_cast<std::size_t>(count));
            }
        }
        report_.is_read = true;
        report_.size = content_.Size();
        report_.field = content_.Field();
        return 0;
    }

    void Take(const char* bytes, std::size_t size) {
        content_.Take(bytes, size);
        if (sink_) {
            sink_(bytes, size);
        }
    }

    void MeasureDownload() {
        report_.segments = CountSegments(report_.size);
        if (!report_.segments) {
            Add(Grade::Unusable, "too-many-segments",
                "the download would have more than " + std::to_string(HcLogical::MAX_SEGMENTS) +
                    " segments; the largest image has " + std::to_string(SIZE_LIMIT - 1) +
                    " bytes");
        } else if (IsLastSegmentFull(report_.size)) {
            Add(Grade::Unusable, "full-last-segment",
                "the last segment is exactly full, and the updater fails after it at the very end "
                "of the download; 'bbpimage pad' adds the byte that helps");
        }
        const auto transfer = [](std::size_t bytes) {
            const sim::Duration time =
                sim::WireTime(bytes, BUS_SPEED) + sim::WireTime(REPLY_READ_SIZE, BUS_SPEED);
            return std::chrono::duration<double>(time).count();
        };
        // The first segment carries the function byte, too.
        const std::uint64_t payload = report_.size + 1;
        const std::uint64_t full_segments = payload / MAX_PAYLOAD;
        report_.wire_seconds = static_cast<double>(full_segments) * transfer(HcLogical::MAX_SIZE);
        if (payload % MAX_PAYLOAD != 0) {
            report_.wire_seconds +=
                transfer(static_cast<std::size_t>(payload % MAX_PAYLOAD) + HcLogical::OVERHEAD);
        }
        if (report_.size > EXACT_PERCENTAGE_LIMIT) {
            Add(Grade::Warnings, "percentage",
                "above " + std::to_string(EXACT_PERCENTAGE_LIMIT) +
                    " bytes the updater's percentage is wrong");
        }
    }

    // Whether there is nothing in the image at all.
    bool CheckContent() {
        const ByteRun& blank = content_.LongestBlank();
        const std::string byte = "0x" + std::string(blank.byte == 0 ? "00" : "FF");
        if (report_.size > sim::LABEL_OFFSET && blank.size == report_.size) {
            Add(Grade::Unusable, "erased",
                "it holds no firmware: all its bytes are " + byte +
                    ", as in an erased flash memory or a file that was never written");
            return true;
        }
        if (blank.size >= SUSPICIOUS_BLANK) {
            Add(Grade::Warnings, "half-written",
                std::to_string(blank.size) + " bytes from byte " + std::to_string(blank.begin) +
                    " on are all " + byte +
                    ": padding, or a copy that was broken off; compare the file's SHA-256 with its "
                    "maker's");
        }
        return false;
    }

    void CheckLabelReading(bool is_erased) {
        const LabelReading reading = ReadLabelAsUpdater(report_.path);
        switch (reading.result) {
            case LabelReading::Result::Read:
                report_.label = reading.label;
                if (!is_erased) {
                    for (const Finding& finding : CheckLabel(report_.field, reading.label)) {
                        report_.findings.push_back(finding);
                    }
                }
                break;
            case LabelReading::Result::BreaksDown:
                Add(Grade::Unusable, "blank-label",
                    "the label field is all blanks, and the updater ends abnormally on it");
                break;
            case LabelReading::Result::Refused:
                AddRefusal("; the updater says: " + reading.message);
                break;
        }
    }

    void AddRefusal(const std::string& said) {
        if (report_.size <= sim::LABEL_OFFSET) {
            Add(Grade::Unusable, "too-short",
                "it ends before the label field, which begins at byte " +
                    std::to_string(sim::LABEL_OFFSET) + said);
        } else {
            Add(Grade::Unusable, "label-unreadable", "the label cannot be read" + said);
        }
    }

    const ByteSink& sink_;
    ImageContent content_;
    ImageReport report_;
};

}  // namespace

std::optional<int> CountSegments(std::uint64_t size) {
    if (size >= SIZE_LIMIT) {
        return std::nullopt;
    }
    return static_cast<int>(size / MAX_PAYLOAD) + 1;
}

bool IsLastSegmentFull(std::uint64_t size) {
    return (size + 1) % MAX_PAYLOAD == 0;
}

ImageReport InspectImage(const std::string& path, const ByteSink& sink) {
    return Inspector(path, sink).Run();
}

}  // namespace tools
