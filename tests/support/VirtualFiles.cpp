// SPDX-License-Identifier: Apache-2.0
#include "tests/support/VirtualFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace virt {

namespace {

constexpr std::size_t LABEL_OFFSET = 925630;
constexpr std::size_t LABEL_SIZE = 37;

Bytes LabelField(const std::string& label) {
    Bytes field(label.begin(), label.end());
    field.resize(LABEL_SIZE, ' ');
    return field;
}

}  // namespace

FileContent FileContent::Of(Bytes content) {
    FileContent file;
    file.size = content.size();
    file.bytes = std::make_shared<const Bytes>(std::move(content));
    return file;
}

FileContent FileContent::WithLabelOnly(const std::string& label) {
    FileContent file = Of(LabelField(label));
    file.base = LABEL_OFFSET;
    file.size = LABEL_OFFSET + LABEL_SIZE;
    return file;
}

FileContent FileContent::WithLabelBehindEnd(const std::string& label) const {
    FileContent file = *this;
    file.label_behind_end = std::make_shared<const Bytes>(LabelField(label));
    return file;
}

std::uint8_t FileContent::At(std::size_t offset) const {
    return bytes && offset >= base && offset - base < bytes->size() ? (*bytes)[offset - base] : 0;
}

Bytes FileContent::All() const {
    Bytes all(size);
    for (std::size_t i = 0; i < size; ++i) {
        all[i] = At(i);
    }
    return all;
}

void VirtualFiles::Put(const std::string& path, std::vector<FileContent> contents) {
    files_[path] = File{std::move(contents), 0};
}

template <typename Change>
void VirtualFiles::ChangeImages(Change change) {
    for (auto& [path, file] : files_) {
        for (FileContent& content : file.contents) {
            if (content.base == 0) {
                change(content);
            }
        }
    }
    for (auto& stream : streams_) {
        if (stream->content.base == 0) {
            change(stream->content);
        }
    }
}

void VirtualFiles::Resize(std::size_t size) {
    ChangeImages([size](FileContent& content) { content.size = size; });
}

void VirtualFiles::MakeUnreadableFrom(long offset) {
    ChangeImages([offset](FileContent& content) { content.unreadable_from = offset; });
}

void VirtualFiles::Restart() {
    streams_.clear();
    for (auto& [path, file] : files_) {
        file.openings = 0;
    }
}

std::FILE* VirtualFiles::Open(const char* path) {
    const auto found = files_.find(path);
    if (found == files_.end() || found->second.contents.empty()) {
        errno = ENOENT;
        return nullptr;
    }
    File& file = found->second;
    const std::size_t which = std::min(file.openings, file.contents.size() - 1);
    ++file.openings;
    streams_.push_back(std::make_unique<Stream>());
    streams_.back()->content = file.contents[which];
    // Never used as one: the address only stands for the stream.
    return reinterpret_cast<std::FILE*>(streams_.back().get());
}

int VirtualFiles::Seek(std::FILE* file, long offset, int whence) {
    Stream& stream = Of(file);
    const long from = whence == SEEK_END   ? static_cast<long>(stream.content.size)
                      : whence == SEEK_CUR ? static_cast<long>(stream.position)
                                           : 0;
    if (from + offset < 0) {
        errno = EINVAL;
        return -1;
    }
    stream.position = static_cast<std::size_t>(from + offset);
    stream.at_end = false;
    return 0;
}

long VirtualFiles::Tell(std::FILE* file) {
    return static_cast<long>(Of(file).position);
}

std::size_t VirtualFiles::Read(std::FILE* file, void* to, std::size_t wanted, std::size_t limit) {
    Stream& stream = Of(file);
    const FileContent& content = stream.content;
    if (content.label_behind_end && stream.position == LABEL_OFFSET &&
        content.size <= LABEL_OFFSET) {
        const std::size_t count = std::min({wanted, limit, LABEL_SIZE});
        std::copy_n(content.label_behind_end->begin(), count, static_cast<std::uint8_t*>(to));
        stream.position += count;
        errno = count < std::min(wanted, LABEL_SIZE) ? EIO : errno;
        return count;
    }
    const std::size_t left =
        stream.position < content.size ? content.size - stream.position : std::size_t{0};
    std::size_t count = std::min({wanted, limit, left});
    bool failed = limit < std::min(wanted, left);
    if (content.unreadable_from >= 0) {
        const auto bad = static_cast<std::size_t>(content.unreadable_from);
        const std::size_t readable = stream.position < bad ? bad - stream.position : std::size_t{0};
        failed = failed || readable < count;
        count = std::min(count, readable);
    }

    auto* const bytes = static_cast<std::uint8_t*>(to);
    if (content.bytes && content.base == 0 && stream.position + count <= content.bytes->size()) {
        if (count > 0) {
            std::memcpy(bytes, content.bytes->data() + stream.position, count);
        }
    } else {
        for (std::size_t i = 0; i < count; ++i) {
            bytes[i] = content.At(stream.position + i);
        }
    }
    stream.position += count;
    if (failed) {
        errno = EIO;
    } else if (count < wanted) {
        stream.at_end = true;
    }
    return count;
}

bool VirtualFiles::AtEnd(std::FILE* file) const {
    return Of(file).at_end;
}

bool VirtualFiles::Owns(const std::FILE* file) const {
    return std::any_of(streams_.begin(), streams_.end(), [file](const auto& stream) {
        return reinterpret_cast<const std::FILE*>(stream.get()) == file;
    });
}

VirtualFiles::Stream& VirtualFiles::Of(std::FILE* file) const {
    return *reinterpret_cast<Stream*>(file);
}

}  // namespace virt
