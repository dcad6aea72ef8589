// SPDX-License-Identifier: Apache-2.0
#include "tools/image/ImageWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>

#include "common/AtomicFile.h"
#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/Text.h"
#include "tools/image/ImageInspector.h"
#include "tools/image/LabelField.h"
#include "tools/image/UpdaterLabel.h"

namespace tools {

namespace {

using common::Escape;
using common::Failure;

const char STANDARD_OUTPUT[] = "-";
constexpr char PADDING = '\xFF';  // what erased flash memory holds

std::string Encode(const std::string& label, bool forced) {
    const std::optional<std::string> field = EncodeLabel(label);
    if (!field) {
        throw Failure("no image can carry the label \"" + Escape(label) +
                      "\": a label has at most " + std::to_string(sim::LONGEST_VERSION) +
                      " characters and does not begin with a blank");
    }
    const std::vector<Finding> findings = CheckLabel(*field, label);
    if (!findings.empty() && !forced) {
        throw Failure("the label \"" + Escape(label) + "\" is refused (" + findings[0].code +
                      "): " + findings[0].text + "; --force writes it all the same");
    }
    return *field;
}

// The bytes of the image `path`, which has room for a label.
std::string ReadImage(const std::string& path) {
    const common::UniqueFd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status;
    if (!file || fstat(file.Get(), &status) != 0) {
        throw common::ErrnoFailure("opening " + path, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw Failure(path + " is no regular file");
    }
    std::string bytes = common::ReadAll(file.Get(), path);
    if (bytes.size() < LABEL_END) {
        throw Failure(path + " is too short for a label: it has " + std::to_string(bytes.size()) +
                      " bytes, the label ends at " + std::to_string(LABEL_END));
    }
    return bytes;
}

void RequireReadable(const LabelReading& reading) {
    if (reading.result == LabelReading::Result::Refused) {
        throw Failure("the updater cannot read the new image: " + reading.message);
    }
}

void RequireLabel(const std::string& path, const std::string& label) {
    const LabelReading reading = ReadLabelAsUpdater(path);
    RequireReadable(reading);
    if (reading.result != LabelReading::Result::Read || reading.label != label) {
        throw Failure("the updater would not read the label \"" + Escape(label) +
                      "\" from the new image");
    }
}

void WriteToStandardOutput(const std::string& bytes) {
    if (isatty(STDOUT_FILENO) != 0) {
        throw Failure("standard output is a terminal; an image is nothing to look at");
    }
    common::WriteAll(STDOUT_FILENO, bytes, "standard output");
}

// From here on the work is done in a moment, and a request to end would leave half of it behind.
void HoldSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        sigaddset(&signals, signal);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
}

bool IsThere(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) == 0) {
        return true;
    }
    if (errno != ENOENT) {
        throw common::ErrnoFailure("looking at " + path, errno);
    }
    return false;
}

// `check` looks at the file before it gets its name.
void Write(const std::string& bytes, const Destination& out,
           const std::function<void(const std::string&)>& check) {
    if (out.path == STANDARD_OUTPUT) {
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
        if (!file) {
            throw common::ErrnoFailure("creating a temporary file", errno);
        }
        const int descriptor = fileno(file.get());
        common::WriteAll(descriptor, bytes, "a temporary file");
        check("/dev/fd/" + std::to_string(descriptor));
        WriteToStandardOutput(bytes);
        return;
    }
    if (!out.may_replace && IsThere(out.path)) {
        throw Failure(out.path + " is there already; --force replaces it");
    }
    HoldSignals();
    common::AtomicFile file(out.path);
    file.Write(bytes);
    check(file.TemporaryPath());
    file.Commit();
}

}  // namespace

void WriteLabelled(const std::string& path, const std::string& label, const Destination& out,
                   bool forced) {
    const std::string field = Encode(label, forced);
    std::string bytes = ReadImage(path);
    bytes.replace(sim::LABEL_OFFSET, sim::LABEL_SIZE, field);
    Write(bytes, out, [&](const std::string& file) { RequireLabel(file, label); });
}

std::string WritePadded(const std::string& path, const Destination& out) {
    std::string bytes = ReadImage(path);
    if (!CountSegments(bytes.size())) {
        throw Failure(path + " is too long: no padding helps");
    }
    const bool is_full = IsLastSegmentFull(bytes.size());
    if (is_full) {
        bytes += PADDING;
    }
    const auto require_size = [](const std::string& file) {
        RequireReadable(ReadLabelAsUpdater(file));
    };
    Write(bytes, out, require_size);
    return is_full
               ? "1 byte, 0xFF, was added: the last segment of the download was exactly full, and "
                 "the updater fails after such a one"
               : "no padding is needed: the last segment of the download is not full";
}

void WriteSample(const std::string& version, std::size_t size, const Destination& out,
                 bool forced) {
    const std::string field = Encode(version, forced);
    if (size < LABEL_END) {
        throw Failure("an image of " + std::to_string(size) + " bytes has no room for a label");
    }
    if (IsLastSegmentFull(size) && !forced) {
        throw Failure("an image of " + std::to_string(size) +
                      " bytes fills its last segment exactly, and the updater fails after such a "
                      "one; --force makes it all the same");
    }
    // The sample's other bytes do not depend on how the label is encoded.
    const std::vector<std::uint8_t> image =
        sim::MakeSampleImage(version.substr(0, sim::LONGEST_VERSION), size);
    std::string bytes(image.begin(), image.end());
    bytes.replace(sim::LABEL_OFFSET, sim::LABEL_SIZE, field);
    Write(bytes, out, [&](const std::string& file) { RequireLabel(file, version); });
}

}  // namespace tools
