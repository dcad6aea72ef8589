// SPDX-License-Identifier: Apache-2.0
// Firmware images: one to flash, made from nothing but a version text, and the label that any of
// them carries.
#ifndef SIM_SAMPLE_IMAGE_H
#define SIM_SAMPLE_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

constexpr std::size_t LABEL_OFFSET = 925630;
constexpr std::size_t LABEL_SIZE = 37;
// Two filler characters close the text: both who reads the label and the chip drop them.
constexpr std::size_t LONGEST_VERSION = LABEL_SIZE - 2;
constexpr std::size_t SAMPLE_IMAGE_SIZE = std::size_t{1024} * 1024;

// The label field for a version: the text, two filler characters, blanks. Throws
// std::invalid_argument for a text that does not come back from its label: one longer than
// LONGEST_VERSION or one with a leading blank.
std::string MakeLabel(const std::string& version);

// An image of `size` bytes, the same for the same version and size, that is no run of equal bytes
// anywhere. An image that ends before the label field's end has as much of the label as fits.
std::vector<std::uint8_t> MakeSampleImage(const std::string& version,
                                          std::size_t size = SAMPLE_IMAGE_SIZE);

// The version that an image's label stands for: the field without the blanks around it, less its
// last two characters. Empty where there is no such text.
std::string LabelVersion(const std::vector<std::uint8_t>& image);

}  // namespace sim

#endif
