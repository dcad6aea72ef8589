// SPDX-License-Identifier: Apache-2.0
// An input is what the image file holds from the label's place on.
#include <algorithm>
#include <optional>
#include <string>

#include "driver/bbpflash.h"
#include "hutil/hutil_init.h"
#include "sim/SampleImage.h"
#include "tests/fuzz/LabelModel.h"
#include "tests/fuzz/Require.h"
#include "tests/fuzz/Surroundings.h"

namespace {

using fuzz::Require;

class LabelledImage : public fuzz::Surroundings {
  public:
    LabelledImage(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    int Devctl(int, std::uint8_t*, std::size_t) override { return 0; }
    std::size_t ImageSize() const override { return sim::LABEL_OFFSET + size_; }

    std::size_t ReadImage(std::size_t offset, char* to, std::size_t size) const override {
        const std::size_t count = std::min(size, ImageSize() - std::min(offset, ImageSize()));
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t at = offset + i;
            to[i] = at < sim::LABEL_OFFSET ? 'x' : static_cast<char>(data_[at - sim::LABEL_OFFSET]);
        }
        return count;
    }

  private:
    const std::uint8_t* data_;
    std::size_t size_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // What a short file leaves of the field is NULs.
    std::string field(reinterpret_cast<const char*>(data), std::min(size, sim::LABEL_SIZE));
    field.resize(sim::LABEL_SIZE, '\0');
    const std::optional<std::string> expected = fuzz::ReadLabel(field);
    const bool readable = size > 0;

    LabelledImage image(data, size);
    const fuzz::Outcome outcome = fuzz::Run(image, [&] {
        g_p_hutil_opt = new HutilOptions();
        g_p_hutil_msg = new HutilMsg(g_p_hutil_opt);
        filename = "image.bin";
        file_version = "before";
        const bool read = get_bin_file_version(file_version, filename);
        Require(read == readable, "a label from any byte of it");
        Require(file_version == (read ? expected : "before"), "the label's text");
    });
    Require(outcome.end == (readable && !expected ? fuzz::End::NoText : fuzz::End::Returned),
            "only a label of blanks has no text");
    return 0;
}
