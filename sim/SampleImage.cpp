// SPDX-License-Identifier: Apache-2.0
#include "sim/SampleImage.h"

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {

const char FILLER[] = "__";

// A 64-bit hash of the text: where its image's bytes begin.
std::uint64_t Seed(const std::string& text) {
    std::uint64_t hash = 0xCBF29CE484222325u;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
    }
    return hash;
}

}  // namespace

std::string MakeLabel(const std::string& version) {
    if (version.size() > LONGEST_VERSION) {
        throw std::invalid_argument("a version text has at most 35 characters");
    }
    if (!version.empty() && version.front() == ' ') {
        throw std::invalid_argument("a version text cannot begin with a blank");
    }
    std::string label = version + FILLER;
    label.resize(LABEL_SIZE, ' ');
    return label;
}

std::vector<std::uint8_t> MakeSampleImage(const std::string& version, std::size_t size) {
    const std::string label = MakeLabel(version);
    std::vector<std::uint8_t> image(size);
    std::uint64_t state = Seed(version);
    for (std::uint8_t& byte : image) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        byte = static_cast<std::uint8_t>(state >> 56);
    }
    if (size > LABEL_OFFSET) {
        const std::size_t fits = std::min(LABEL_SIZE, size - LABEL_OFFSET);
        std::copy_n(label.begin(), fits, image.begin() + LABEL_OFFSET);
    }
    return image;
}

std::string LabelVersion(const std::vector<std::uint8_t>& image) {
    if (image.size() <= LABEL_OFFSET) {
        return std::string();
    }
    const std::size_t size = std::min(LABEL_SIZE, image.size() - LABEL_OFFSET);
    const auto field = image.begin() + LABEL_OFFSET;
    const std::string text(field, field + static_cast<std::ptrdiff_t>(size));
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        return std::string();
    }
    const std::size_t last = text.find_last_not_of(' ');
    const std::size_t span = last - first + 1;
    return span > 2 ? text.substr(first, span - 2) : std::string();
}

}  // namespace sim
