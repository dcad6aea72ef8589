// SPDX-License-Identifier: Apache-2.0
#include "tools/image/ImageContent.h"

#include <algorithm>

#include "tools/image/LabelField.h"

namespace tools {

void ImageContent::Take(const char* bytes, std::size_t size) {
    TakeField(bytes, size);
    TakeRuns(bytes, size);
    size_ += size;
}

void ImageContent::TakeField(const char* bytes, std::size_t size) {
    const std::uint64_t begin = std::max<std::uint64_t>(size_, sim::LABEL_OFFSET);
    const std::uint64_t end = std::min<std::uint64_t>(size_ + size, LABEL_END);
    if (begin < end) {
        field_.append(bytes + (begin - size_), static_cast<std::size_t>(end - begin));
    }
}

void ImageContent::TakeRuns(const char* bytes, std::size_t size) {
    const char* const end = bytes + size;
    for (const char* at = bytes; at != end;) {
        const char* const begin = at;
        const auto byte = static_cast<unsigned char>(*at++);
        if (byte != 0x00 && byte != 0xFF) {
            current_.size = 0;
            continue;
        }
        at = std::find_if(at, end, [begin](char next) { return next != *begin; });
        if (current_.size == 0 || byte != current_.byte) {
            current_.begin = size_ + static_cast<std::uint64_t>(begin - bytes);
            current_.size = 0;
            current_.byte = byte;
        }
        current_.size += static_cast<std::uint64_t>(at - begin);
        if (current_.size > longest_.size) {
            longest_ = current_;
        }
    }
}

}  // namespace tools
