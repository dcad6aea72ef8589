// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_UNIT_CHIP_HDCHIPPROGRAMBINFIXTURE_H
#define BBPFLASH_TESTS_UNIT_CHIP_HDCHIPPROGRAMBINFIXTURE_H

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "tests/unit/chip/HdChipFixture.h"

// What a test puts in place of the stream calls, and what it wants to know of them.
extern std::function<int(int whence)> g_fseek;
extern std::function<long()> g_ftell;
extern std::function<int()> g_feof;
extern std::string g_open_mode;
extern int g_closed_files;
extern bool g_programming;

// The image at a path, gone with the object.
class ImageFile {
  public:
    explicit ImageFile(std::size_t size) : content(size), path("/tmp/HdChipProgramBin.XXXXXX") {
        for (std::size_t i = 0; i < size; ++i) {
            content[i] = static_cast<std::uint8_t>((i * 31 + i / 256) % 256);
        }
        const int fd = mkstemp(&path[0]);
        EXPECT_EQ(write(fd, content.data(), size), static_cast<ssize_t>(size));
        close(fd);
    }
    ~ImageFile() { unlink(path.c_str()); }
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    fake::Bytes content;
    std::string path;
};

class HdChipProgramBin : public HdChipTest {
  protected:
    HdChipProgramBin() {
        // The chip acknowledges and, when asked for it, has programmed its flash.
        platform.default_reply = fake::Reply({0, 1});
        g_closed_files = 0;
    }
    ~HdChipProgramBin() override {
        g_fseek = nullptr;
        g_ftell = nullptr;
        g_feof = nullptr;
    }

    bool Program(std::string path) {
        bool result = false;
        output_ = fake::Capture([&] {
            g_programming = true;
            result = chip_.ProgramBin(path);
            g_programming = false;
        });
        return result;
    }

    // The chip answers the status queries after an image of one segment like this.
    void AnswerStatuses(const fake::Bytes& codes) {
        platform.Answer(fake::Reply());  // to the lifting of the protection
        platform.Answer(fake::Reply());  // to the segment
        for (const std::uint8_t code : codes) {
            platform.Answer(fake::Reply({0, code}));
        }
    }

    // The requests of the download alone: behind the unprotection, before the status queries.
    std::vector<fake::Bytes> Segments() const {
        std::vector<fake::Bytes> requests = platform.Requests();
        requests.erase(requests.begin());
        const auto is_query = [](const fake::Bytes& lm) {
            return lm.size() == 14 && lm[12] == 0x05;
        };
        requests.erase(std::find_if(requests.begin(), requests.end(), is_query), requests.end());
        return requests;
    }

    // Programs an image of `size` bytes by segments of so many bytes, which nobody reads.
    void ExpectPercentages(long size, const std::vector<int>& filled, const std::string& expected) {
        const ImageFile image(10);
        g_options[OPTION_STATUS] = true;
        g_ftell = [=] { return size; };
        for (std::size_t i = 0; i < filled.size(); ++i) {
            Script("Fill file", filled[i], static_cast<int>(i));
        }
        std::size_t asked = 0;
        g_feof = [&] { return ++asked >= filled.size() ? 1 : 0; };
        EXPECT_TRUE(Program(image.path));
        EXPECT_EQ(output_.out, expected);
    }

    fake::Output output_;
};

// What goes over the bus, and how long it takes, for each stage of a download.
inline const std::vector<std::string> UNPROTECT_TRACE{"LOCK", "SEND 30", "UNLOCK", "usleep 5000",
                                                      "LOCK", "RECV 81", "UNLOCK"};
inline const std::vector<std::string> POLL_TRACE{"delay 350",   "LOCK", "SEND 30", "UNLOCK",
                                                 "usleep 1000", "LOCK", "RECV 81", "UNLOCK"};

inline std::vector<std::string> SegmentTrace(std::size_t lm_size) {
    return {
        "LOCK",  "SEND " + std::to_string(lm_size + 16), "UNLOCK", "usleep 750", "LOCK", "RECV 81",
        "UNLOCK"};
}

inline std::vector<std::string> Concatenate(const std::vector<std::vector<std::string>>& parts) {
    std::vector<std::string> whole;
    for (const auto& part : parts) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}

#endif
