// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_IMAGE_IMAGECONTENT_H
#define BBPFLASH_TOOLS_IMAGE_IMAGECONTENT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace tools {

// Equal bytes in a row.
struct ByteRun {
    std::uint64_t begin = 0;
    std::uint64_t size = 0;
    unsigned char byte = 0;
};

// What one pass over an image's bytes tells.
class ImageContent {
  public:
    // Takes the next bytes.
    void Take(const char* bytes, std::size_t size);

    std::uint64_t Size() const { return size_; }
    // As much of the label field as there is.
    const std::string& Field() const { return field_; }
    // The longest run of zeros or of 0xFF, what files and flash memory have where nothing was
    // written. Its size is 0 if there is none.
    const ByteRun& LongestBlank() const { return longest_; }

  private:
    void TakeField(const char* bytes, std::size_t size);
    void TakeRuns(const char* bytes, std::size_t size);

    std::uint64_t size_ = 0;
    std::string field_;
    ByteRun current_;
    ByteRun longest_;
};

}  // namespace tools

#endif
