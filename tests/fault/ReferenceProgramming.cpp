// SPDX-License-Identifier: Apache-2.0
// A pass of programming: the download, and the wait for the chip.
#include <cerrno>
#include <limits>

#include "tests/fault/Format.h"
#include "tests/fault/Reference.h"

namespace fault {

namespace {

constexpr const char* DRIVER = "bbpflash";
constexpr const char* CHIP = "HdChip";
constexpr std::int64_t TOO_LONG = 133363724;

}  // namespace

ReferenceUpdate::Step ReferenceUpdate::Program() {
    if (!ProgramImage()) {
        t_.Say(Level::Error, DRIVER, "Unable to program file");
        return Step::Failed;
    }
    ++facts_.passes;
    return Step::Reset;
}

bool ReferenceUpdate::OpenImage() {
    if (t_.Next(CallKind::Fopen).result != 0) {
        t_.Say(Level::Error, CHIP, "opening binary file " + file_);
        return false;
    }
    if (t_.Next(CallKind::Fseek, 0).result != 0) {
        t_.Say(Level::Error, CHIP, FileError("seeking end of file"));
        return false;
    }
    file_size_ = t_.Next(CallKind::Ftell).result;
    if (file_size_ == -1) {
        t_.Say(Level::Error, CHIP, FileError("getting file size"));
        return false;
    }
    if (file_size_ > std::numeric_limits<std::int32_t>::max()) {
        t_.Say(Level::Error, CHIP, "getting file size with result " + Quoted(EOVERFLOW));
        return false;
    }
    t_.Say(Level::Info, CHIP, "filesize: " + std::to_string(file_size_));
    if (t_.Next(CallKind::Fseek, 0).result != 0) {
        t_.Say(Level::Error, CHIP, FileError("seeking beginning of file"));
        return false;
    }
    return true;
}

bool ReferenceUpdate::ProgramImage() {
    if (!OpenImage()) {
        return false;
    }
    if (!link_.Ask(0x84, 0x0B, 5000, "confirming")) {
        t_.Say(Level::Error, CHIP, "unprotecting NVM (flash)");
        return false;
    }
    t_.Say(Level::Info, CHIP, "burning \"" + file_ + "\"");
    if (!facts_.status_mode) {
        t_.Say(Level::Plain, CHIP, "Sending \"" + file_ + "\" to BBP");
    }
    if (!Download()) {
        return false;
    }
    t_.Say(Level::Info, CHIP, "Completed file transmission, waiting for chip to program itself");
    WaitForChip();
    return true;
}

bool ReferenceUpdate::Download() {
    if (file_size_ >= TOO_LONG) {
        t_.Say(Level::Error, "HcLogical",
               std::to_string(file_size_) + " would exceed maximum of 2^16 LM transfer capacity");
        t_.Say(Level::Error, CHIP, "setting total number of segments");
        return false;
    }
    facts_.image.clear();
    file_left_ = file_size_;
    segment_ = 0;
    last_percentage_ = 0;
    for (bool at_end = false; !at_end;) {
        if (!SendSegment(&at_end)) {
            return false;
        }
    }
    const std::int64_t segments = (file_size_ + 1) / 2035 + 1;
    facts_.whole_downloads += segment_ == segments ? 1 : 0;
    return true;
}

bool ReferenceUpdate::SendSegment(bool* at_end) {
    const auto segments = static_cast<int>((file_size_ + 1) / 2035 + 1);
    link_.Start(0x84, static_cast<int>(file_left_), segments, segment_);
    if (segment_ == 0) {
        link_.Add("\x04");
    }
    const Call& read = t_.Next(CallKind::Fread, link_.Room());
    const std::string_view bytes = t_.Data(read);
    *at_end = read.detail != 0;
    if (bytes.empty()) {
        t_.Say(Level::Error, CHIP, "filling");
        return false;
    }
    const auto* const data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    facts_.image.insert(facts_.image.end(), data, data + bytes.size());
    link_.Add(bytes);
    if (!link_.Exchange(750, "confirming BIN write")) {
        return false;
    }
    file_left_ -= read.result;
    ++segment_;
    if (facts_.status_mode && file_size_ > 0) {
        ShowPercentage(file_size_ - file_left_);
    }
    t_.Flush();
    return true;
}

void ReferenceUpdate::ShowPercentage(std::int64_t sent) {
    // In 32 bits: beyond 26 MB it is no percentage any more.
    const auto product = static_cast<std::int32_t>(static_cast<std::uint32_t>(sent) * 80U);
    const int percentage = product / static_cast<int>(file_size_);
    if (percentage != last_percentage_) {
        t_.Print(std::to_string(percentage) + "\n");
        last_percentage_ = percentage;
    }
}

void ReferenceUpdate::WaitForChip() {
    t_.polling = true;
    int last = 0;
    for (int status = 0; status != 1;) {
        t_.Next(CallKind::Delay, 350);
        status = Poll();
        if (status != last) {
            TellStatus(status);
        }
        last = status;
    }
    t_.polling = false;
}

int ReferenceUpdate::Poll() {
    if (!link_.Ask(0x84, 0x05, 1000, "confirming")) {
        return -1;
    }
    const int status = link_.Reply()[1];
    const auto say = [&](Level level, const char* text) {
        t_.Say(level, CHIP, text);
        return level == Level::Info ? status : -1;
    };
    switch (status) {
        case 1:
            return 1;
        case 2:
            return say(Level::Error, "image verification failed, CRC error");
        case 3:
            return say(Level::Info, "idle, not in programming mode");
        case 4:
            return say(Level::Info, "erasing old flash contents");
        case 5:
            return say(Level::Info, "programming new flash contents");
        case 6:
            return say(Level::Info, "verifying new flash contents");
        case 7:
            return say(Level::Error, "flash image and NVM security status mismatch");
        case 8:
            return say(Level::Error, "using single tuner image on dual tuner flash");
        case 9:
            return say(Level::Error, "using dual tuner image on single tuner flash");
        default:
            return say(Level::Error, "unknown or reserved Pgm_Write_Status");
    }
}

void ReferenceUpdate::TellStatus(int status) {
    static const char* const PERCENTAGES[] = {"", "99\n", "", "", "85\n", "90\n", "95\n"};
    static const char* const WORDS[] = {
        "",
        "BBP programming completed, resetting for version verification",
        "",
        "",
        "BBP is erasing old flash contents (do not interrupt!)",
        "BBP is programming new flash contents (do not interrupt!)",
        "BBP is verifying new flash contents (do not interrupt!)"};
    const int known = status > 0 && status < 7 ? status : 0;
    if (facts_.status_mode) {
        t_.Print(PERCENTAGES[known]);
        t_.Flush();
    } else if (*WORDS[known] != '\0') {
        t_.Say(Level::Plain, CHIP, WORDS[known]);
    }
}

}  // namespace fault
