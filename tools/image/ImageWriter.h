// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_IMAGE_IMAGEWRITER_H
#define BBPFLASH_TOOLS_IMAGE_IMAGEWRITER_H

#include <cstddef>
#include <string>

namespace tools {

// Both write `out` as a whole or not at all, and only after the updater has read the label back
// from the new bytes, where there is room for a label. They throw std::runtime_error, or
// std::system_error for a file's failure, with a text for people.

// Writes the image `path` with the label `label` to `out`, which may be `path` itself.
void WriteLabelled(const std::string& path, const std::string& label, const std::string& out);

// Writes a sample image of `size` bytes whose label is `version`, as far as it fits.
void WriteSample(const std::string& version, std::size_t size, const std::string& out);

}  // namespace tools

#endif
