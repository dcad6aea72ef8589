// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_IMAGE_IMAGEINSPECTOR_H
#define BBPFLASH_TOOLS_IMAGE_IMAGEINSPECTOR_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "tools/image/ImageReport.h"

namespace tools {

// Gets the image's bytes in order, in pieces, as they are read.
using ByteSink = std::function<void(const char* bytes, std::size_t size)>;

// Looks at the image `path` as the updater would and finds what would go wrong. A file that cannot
// be read is a finding, too; common::Failure is thrown only when the label cannot be looked at for
// lack of resources. `sink`, if there is one, sees the bytes.
ImageReport InspectImage(const std::string& path, const ByteSink& sink = {});

// The number of segments of the download of an image of `size` bytes; nothing when the updater
// cannot number them.
std::optional<int> CountSegments(std::uint64_t size);

// Whether that download's last segment is exactly full, which the updater fails on.
bool IsLastSegmentFull(std::uint64_t size);

}  // namespace tools

#endif
