// SPDX-License-Identifier: Apache-2.0
#include "tools/image/ImageWriter.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "common/AtomicFile.h"
#include "tools/image/LabelField.h"
#include "tools/image/UpdaterLabel.h"
#include "tools/image/VisibleText.h"

namespace tools {

namespace {

std::string EncodeOrThrow(const std::string& label) {
    const std::optional<std::string> field = EncodeLabel(label);
    if (!field) {
        throw std::runtime_error("no image can carry the label \"" + Escape(label) +
                                 "\": a label has at most " + std::to_string(sim::LONGEST_VERSION) +
                                 " characters and does not begin with a blank");
    }
    return *field;
}

std::string ReadWhole(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file.is_open() || file.bad()) {
        throw std::system_error(errno, std::generic_category(), "reading " + path);
    }
    return bytes;
}

// An image too short for a label is written as it is.
void WriteChecked(const std::string& bytes, const std::string& label, const std::string& out) {
    common::AtomicFile file(out);
    file.Write(bytes);
    if (bytes.size() < LABEL_END) {
        file.Commit();
        return;
    }
    const LabelReading reading = ReadLabelAsUpdater(file.TemporaryPath());
    if (reading.result != LabelReading::Result::Read || reading.label != label) {
        throw std::runtime_error("the updater would not read the label \"" + Escape(label) +
                                 "\" from the new image");
    }
    file.Commit();
}

}  // namespace

void WriteLabelled(const std::string& path, const std::string& label, const std::string& out) {
    const std::string field = EncodeOrThrow(label);
    std::string bytes = ReadWhole(path);
    if (bytes.size() < LABEL_END) {
        throw std::runtime_error(path + " is too short for a label: it has " +
                                 std::to_string(bytes.size()) + " bytes, the label ends at " +
                                 std::to_string(LABEL_END));
    }
    bytes.replace(sim::LABEL_OFFSET, sim::LABEL_SIZE, field);
    WriteChecked(bytes, label, out);
}

void WriteSample(const std::string& version, std::size_t size, const std::string& out) {
    EncodeOrThrow(version);
    const std::vector<std::uint8_t> image = sim::MakeSampleImage(version, size);
    WriteChecked(std::string(image.begin(), image.end()), version, out);
}

}  // namespace tools
