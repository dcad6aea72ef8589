// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_IMAGE_IMAGEWRITER_H
#define BBPFLASH_TOOLS_IMAGE_IMAGEWRITER_H

#include <cstddef>
#include <string>

namespace tools {

// Where a new image goes.
struct Destination {
    std::string path;         // "-" for standard output
    bool may_replace = true;  // a file that is there already
};

// All of these write a new image as a whole or not at all, and only after the updater has read the
// label back from the new bytes. They throw common::Failure with a text for people.

// Writes the image `path` with the label `label` to `out`, which may be `path` itself. A label that
// no chip is likely to report is refused unless `forced`.
void WriteLabelled(const std::string& path, const std::string& label, const Destination& out,
                   bool forced);

// Writes the image `path` to `out`, with one byte more where the updater would fail on its size.
// Returns what was done and why.
std::string WritePadded(const std::string& path, const Destination& out);

// Writes a sample image of `size` bytes whose label is `version`. The label and a size that the
// updater fails on are refused unless `forced`.
void WriteSample(const std::string& version, std::size_t size, const Destination& out, bool forced);

}  // namespace tools

#endif
