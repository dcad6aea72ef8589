// SPDX-License-Identifier: Apache-2.0
// What a chip without any fault does, told a second time from the protocol: it is held against the
// simulated one.
#ifndef BBPFLASH_TESTS_FUZZ_CHIPREFERENCE_H
#define BBPFLASH_TESTS_FUZZ_CHIPREFERENCE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace fuzz {

using Bytes = std::vector<std::uint8_t>;

class ChipReference {
  public:
    // A chip that runs and holds `flash`, a firmware that reports `version`.
    ChipReference(const Bytes& flash, const std::string& version);

    void Advance(std::chrono::nanoseconds time);
    void SetLine(bool high);

    bool Answers() const { return high_ && since_start_ >= START; }

    // Only of a chip that answers.
    void Write(const Bytes& message);
    // Nothing when only the image's label tells what is read.
    std::optional<Bytes> Read(std::size_t size);

    unsigned Burns() const { return burns_; }
    unsigned Segments() const { return segments_; }

    // The flash's bytes where they are known. A burn that was cut off leaves its first block blank.
    const std::optional<Bytes>& Flash() const { return flash_; }
    // What it reports, where that can be told without the image's label.
    const std::optional<std::string>& Version() const { return version_; }

    static constexpr std::size_t BLANK_BLOCK = 256;

  private:
    static constexpr std::chrono::milliseconds START{1200};
    static constexpr std::chrono::microseconds RESPONSE{400};
    static constexpr std::chrono::seconds ERASED{4};
    static constexpr std::chrono::seconds PROGRAMMED{12};
    static constexpr std::chrono::seconds VERIFIED{15};

    unsigned Receive(const Bytes& message);
    unsigned Obey(const Bytes& message);
    unsigned TakeSegment(const Bytes& message);
    void AnswerTo(const Bytes& message, unsigned status);
    Bytes Payload(const Bytes& message) const;
    unsigned Progress() const;
    bool IsBurning() const { return burn_ && *burn_ < VERIFIED; }

    bool high_ = true;
    std::chrono::nanoseconds since_start_ = START;
    std::optional<Bytes> flash_;
    std::optional<std::string> version_;
    bool is_whole_ = true;  // the flash holds a firmware

    std::uint8_t count_ = 0;
    bool is_unprotected_ = false;
    unsigned next_ = 0;   // segment of the download that is on
    unsigned total_ = 0;  // 0: none is
    Bytes image_;
    std::optional<std::chrono::nanoseconds> burn_;  // since the last segment came
    bool has_failed_ = false;                       // there was nothing to burn
    unsigned burns_ = 0;
    unsigned segments_ = 0;

    Bytes reply_;
    std::size_t reply_at_ = 0;
    bool is_comparable_ = true;
    std::chrono::nanoseconds since_request_{0};
};

}  // namespace fuzz

#endif
