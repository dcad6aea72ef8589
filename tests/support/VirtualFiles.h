// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_SUPPORT_VIRTUALFILES_H
#define BBPFLASH_TESTS_SUPPORT_VIRTUALFILES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

// Image files in memory, and the streams that the updater opens on them.
namespace virt {

using Bytes = std::vector<std::uint8_t>;

// What a file holds: `bytes` from offset `base` on, zeros elsewhere up to `size`. Cheap to copy.
struct FileContent {
    std::shared_ptr<const Bytes> bytes;
    std::size_t base = 0;
    std::size_t size = 0;
    // Reading at this offset or behind it fails with EIO; -1: every byte can be read.
    long unreadable_from = -1;
    // The label field behind the file's end; null for none.
    std::shared_ptr<const Bytes> label_behind_end;

    static FileContent Of(Bytes content);
    // A file of the least length that has `label` as its version label, and nothing else.
    static FileContent WithLabelOnly(const std::string& label);
    // This content with a label that is found at its place though the file ends before: a short
    // image then passes the version check, and the download is short.
    FileContent WithLabelBehindEnd(const std::string& label) const;

    std::uint8_t At(std::size_t offset) const;
    // The whole content.
    Bytes All() const;
};

class VirtualFiles {
  public:
    // The file at `path`, as each stream that is opened on it sees it: the first one opened sees
    // the first content and so on; the last content stays. No content: there is no such file.
    void Put(const std::string& path, std::vector<FileContent> contents);
    // The files whose content begins at offset 0 have this size from now on, for open streams too;
    // what they have gained is zeros.
    void Resize(std::size_t size);
    // In the same files, every byte from this offset on cannot be read any more.
    void MakeUnreadableFrom(long offset);

    // All streams are gone; files count their openings from the start.
    void Restart();

    // As the C functions of these names, over these files. A stream lives until Restart.
    std::FILE* Open(const char* path);
    int Seek(std::FILE* file, long offset, int whence);
    long Tell(std::FILE* file);
    // Reads at most `limit` of the `wanted` bytes; less than both sets the stream's error.
    std::size_t Read(std::FILE* file, void* to, std::size_t wanted, std::size_t limit);
    bool AtEnd(std::FILE* file) const;

    // Whether `file` is one of these streams.
    bool Owns(const std::FILE* file) const;

  private:
    struct File {
        std::vector<FileContent> contents;
        std::size_t openings = 0;
    };
    struct Stream {
        FileContent content;
        std::size_t position = 0;
        bool at_end = false;
    };
    Stream& Of(std::FILE* file) const;
    template <typename Change>
    void ChangeImages(Change change);

    std::map<std::string, File, std::less<>> files_;
    std::vector<std::unique_ptr<Stream>> streams_;
};

}  // namespace virt

#endif
