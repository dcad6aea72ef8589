// SPDX-License-Identifier: Apache-2.0
// The field that an image has for its label: how it is written, and what is wrong with one.
#ifndef BBPFLASH_TOOLS_IMAGE_LABELFIELD_H
#define BBPFLASH_TOOLS_IMAGE_LABELFIELD_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "sim/SampleImage.h"
#include "tools/image/ImageReport.h"

namespace tools {

constexpr std::size_t LABEL_END = sim::LABEL_OFFSET + sim::LABEL_SIZE;  // bytes from the start

// The bytes of the field from which the updater reads exactly `label`, or nothing when there are
// none. Representable are the empty label, every label of up to 35 bytes that does not begin with a
// blank, and one character followed by 35 or 36 blanks.
std::optional<std::string> EncodeLabel(const std::string& label);

// What makes the label that the updater reads from `field` one that no chip is likely to report.
std::vector<Finding> CheckLabel(const std::string& field, const std::string& label);

}  // namespace tools

#endif
