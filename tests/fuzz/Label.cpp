// SPDX-License-Identifier: Apache-2.0
// An input is what the image file holds from the label's place on.
#include <algorithm>
#include <cstring>
#include <string>

#include "driver/bbpflash.h"
#include "hutil/hutil_init.h"
#include "tests/fuzz/Surroundings.h"

namespace {

using fuzz::Require;

const std::size_t LABEL_OFFSET = 925630;
const std::size_t LABEL_SIZE = 37;

class LabelledImage : public fuzz::Surroundings {
  public:
    LabelledImage(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    int Devctl(int, std::uint8_t*, std::size_t) override { return 0; }
    std::size_t ImageSize() const override { return LABEL_OFFSET + size_; }

    std::size_t ReadImage(std::size_t offset, char* to, std::size_t size) const override {
        const std::size_t count = std::min(size, ImageSize() - std::min(offset, ImageSize()));
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t at = offset + i;
            to[i] = at < LABEL_OFFSET ? 'x' : static_cast<char>(data_[at - LABEL_OFFSET]);
        }
        return count;
    }

  private:
    const std::uint8_t* data_;
    std::size_t size_;
};

struct Expectation {
    bool readable;
    bool has_text;
    std::string version;
};

Expectation Expect(const std::uint8_t* data, std::size_t size) {
    std::string field(reinterpret_cast<const char*>(data), std::min(size, LABEL_SIZE));
    field.resize(LABEL_SIZE, '\0');
    const std::string text = field.substr(std::min(field.find_first_not_of(' '), LABEL_SIZE));
    const std::size_t shown = text.find_last_not_of(' ') + 1;
    // Of one character nothing can be taken away: then it is all that follows.
    return {size > 0, !text.empty(),
            shown == 1 ? text : text.substr(0, std::max<std::size_t>(shown, 2) - 2)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Expectation expected = Expect(data, size);
    LabelledImage image(data, size);
    const fuzz::Outcome outcome = fuzz::Run(image, [&] {
        g_p_hutil_opt = new HutilOptions();
        g_p_hutil_msg = new HutilMsg(g_p_hutil_opt);
        filename = "image.bin";
        file_version = "before";
        const bool read = get_bin_file_version(file_version, filename);
        Require(read == expected.readable, "a label from any byte of it");
        Require(file_version == (read ? expected.version : "before"), "the label's text");
    });
    const bool no_text = expected.readable && !expected.has_text;
    Require(outcome.end == (no_text ? fuzz::End::NO_TEXT : fuzz::End::RETURNED),
            "only a label of blanks has no text");
    return 0;
}
