// SPDX-License-Identifier: Apache-2.0
// The fuzzer plays the chip: every command, a download of a small image, and whole runs.
//
// An input's bytes: the command, its flags, the failing call and its errno value, then what each
// read brings. Behind its end the chip answers properly, so that a run comes to its end.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "driver/bbpflash.h"
#include "hutil/hutil_init.h"
#include "platform/platform.h"
#include "sim/LogicalMessage.h"
#include "sim/SampleImage.h"
#include "tests/fuzz/Require.h"
#include "tests/fuzz/Surroundings.h"

extern "C" int bbpflash_main(int argc, char** argv);
extern "C" size_t LLVMFuzzerMutate(std::uint8_t* data, size_t size, size_t max_size);

namespace {

using namespace sim;
using fuzz::Require;

enum Command {
    VERSION,
    FLASH_STATUS,
    PROGRAM_STATUS,
    UNPROTECT,
    CONFIGURATION,
    SHORT_COMMAND_COUNT,
    PROGRAM = SHORT_COMMAND_COUNT,
    WHOLE_RUN,
    COMMAND_COUNT
};

enum Flag {
    STATUS_MODE = 0x01,
    TALKATIVE = 0x02,
    IMAGE = 0x1C,  // the number of the image's size
    INFO_ONLY = 0x20,
    FORCE = 0x40,
    PERSISTENT = 0x80  // a failing call goes on failing
};

const std::size_t CHUNK_HEADER = 16;

// Round the ends of the first and the second segment.
const std::size_t IMAGE_SIZES[] = {0, 1, 2033, 2034, 2035, 4068, 4069, 5000};

const std::uint8_t PROPER_PAYLOAD[] = {1, 1, 'v', '2', 0};
// What makes the same version of an image: its last two characters do not count.
const char MATCHING_LABEL[] = "\x01v2##";

using Read = std::array<std::uint8_t, READ_SIZE>;

using Image = std::array<std::uint8_t, 5000>;

// No two segments of it are alike.
Image MakeImage() {
    Image image;
    for (std::size_t i = 0; i < image.size(); ++i) {
        image[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    }
    return image;
}
const Image IMAGE_BYTES = MakeImage();

class HostileChip : public fuzz::Surroundings {
  public:
    HostileChip(const std::uint8_t* data, std::size_t size)
        : input_(data, size),
          command_(static_cast<Command>(input_.Byte() % COMMAND_COUNT)),
          flags_(input_.Byte()),
          failing_call_(input_.Byte()),
          error_(input_.Byte() % 130 + 1) {}

    Command GetCommand() const { return command_; }
    bool Has(Flag flag) const { return (flags_ & flag) != 0; }

    int Devctl(int dcmd, std::uint8_t* block, std::size_t size) override {
        ++calls_;
        if (failing_call_ != 0 &&
            (calls_ == failing_call_ || (Has(PERSISTENT) && calls_ > failing_call_))) {
            return error_;
        }
        if (dcmd == DCMD_I2C_SEND) {
            Take(block + CHUNK_HEADER, size - CHUNK_HEADER);
        } else if (dcmd == DCMD_I2C_RECV) {
            Require(size == CHUNK_HEADER + READ_SIZE, "a read of 65 bytes");
            read_ = Next();
            std::copy(read_.begin(), read_.end(), block + CHUNK_HEADER);
            behaved_ = behaved_ && Answers();
        }
        return 0;
    }

    std::size_t ImageSize() const override { return IMAGE_SIZES[(flags_ & IMAGE) >> 2]; }

    std::size_t ReadImage(std::size_t offset, char* to, std::size_t size) const override {
        if (offset >= LABEL_OFFSET) {
            return ReadLabel(offset - LABEL_OFFSET, to, size);
        }
        const std::size_t count = std::min(size, ImageSize() - std::min(offset, ImageSize()));
        if (count > 0) {
            std::memcpy(to, IMAGE_BYTES.data() + offset, count);
        }
        return count;
    }

    // Whether each call of a command of one write and one read succeeds as far as it counts: lock,
    // send, unlock, whose failure fails nothing, lock, receive, unlock.
    bool ExchangeSucceeds() const {
        const bool none = failing_call_ == 0 || failing_call_ > 6;
        return none || (failing_call_ == 3 && !Has(PERSISTENT));
    }

    // Whether the last read answers the last request.
    bool Answers() const {
        const std::size_t count = read_[0];
        const std::uint8_t* const lm = read_.data() + 1;
        if (count < OVERHEAD || count >= READ_SIZE) {
            return false;
        }
        const std::size_t length = GetField(lm + LENGTH_AT);
        const std::size_t summed = length == 0 ? 0 : std::min(length - 1, READ_SIZE - 1);
        return lm[count - 1] == Sum(lm, summed) && lm[0] == SYNC && lm[1] == SYNC &&
               lm[COUNT_AT] == request_[COUNT_AT] && lm[INSTANCE_AT] == request_[INSTANCE_AT] &&
               lm[OPCODE_AT] == request_[OPCODE_AT] &&
               std::equal(lm + SEGMENTS_AT, lm + PAYLOAD_AT, request_.begin() + SEGMENTS_AT) &&
               (lm[STATUS_AT] & RECEIVED) != 0;
    }

    // Whether no call failed and every read was an answer.
    bool Behaved() const { return failing_call_ == 0 && behaved_; }

    std::size_t PayloadSize() const { return read_[0] - OVERHEAD; }
    const std::uint8_t* Payload() const { return read_.data() + 1 + PAYLOAD_AT; }

    bool HasWholeImage() const {
        return received_ == ImageSize() &&
               std::memcmp(image_.data(), IMAGE_BYTES.data(), received_) == 0;
    }

  private:
    void Take(const std::uint8_t* lm, std::size_t size) {
        Require(size > OVERHEAD && size <= LONGEST_MESSAGE, "a request of 14 to 2048 bytes");
        Require(lm[0] == SYNC && lm[1] == SYNC && lm[INSTANCE_AT] == 1 && lm[STATUS_AT] == 0,
                "a request's header");
        // An only segment's length field leaves its function byte out, and the sum goes by it.
        const std::size_t length = GetField(lm + LENGTH_AT);
        Require(length == size || length + 1 == size, "a request's length");
        Require(Sum(lm, length - 1) == lm[size - 1], "a request's checksum");
        std::copy(lm, lm + OVERHEAD, request_.begin());
        const std::size_t segment = GetField(lm + SEGMENT_AT);
        if (segment == 0 && lm[PAYLOAD_AT] == FUNCTION_PROGRAM) {
            received_ = 0;
            Append(lm + PAYLOAD_AT + 1, size - OVERHEAD - 1);
        } else if (segment > 0) {
            Append(lm + PAYLOAD_AT, size - OVERHEAD);
        }
    }

    void Append(const std::uint8_t* from, std::size_t count) {
        Require(received_ + count <= image_.size(), "a download no longer than its image");
        std::memcpy(image_.data() + received_, from, count);
        received_ += count;
    }

    // What the next read brings: a proper answer, one with bytes changed before or after its
    // checksum was made, or any bytes.
    Read Next() {
        enum { PROPER, CHANGED_INSIDE, CHANGED_AFTER, ANY_BYTES };
        Read read{};
        const std::size_t control = input_.Byte();
        const std::size_t edits = (control >> 2) % 8 + 1;
        switch (control % 4) {
            case PROPER:
                Answer(read, 0, input_.Empty() ? sizeof PROPER_PAYLOAD : input_.Byte() % 52);
                break;
            case CHANGED_INSIDE:
                Answer(read, edits, input_.Byte() % 52);
                break;
            case CHANGED_AFTER:
                Answer(read, 0, input_.Byte() % 52);
                Change(read, edits);
                break;
            default:
                for (std::uint8_t& byte : read) {
                    byte = input_.Byte();
                }
        }
        return read;
    }

    void Change(Read& read, std::size_t edits) {
        for (std::size_t i = 0; i < edits; ++i) {
            const std::size_t at = input_.Byte() % READ_SIZE;
            read[at] = input_.Byte();
        }
    }

    void Answer(Read& read, std::size_t edits, std::size_t payload) {
        std::uint8_t* const lm = read.data() + 1;
        const std::size_t size = OVERHEAD + payload;
        std::copy(request_.begin(), request_.begin() + PAYLOAD_AT, lm);
        for (std::size_t i = 0; i < payload; ++i) {
            lm[PAYLOAD_AT + i] =
                input_.Empty() ? PROPER_PAYLOAD[i % sizeof PROPER_PAYLOAD] : input_.Byte();
        }
        read[0] = static_cast<std::uint8_t>(size);
        SetField(lm + LENGTH_AT, static_cast<unsigned>(size));
        lm[STATUS_AT] = RECEIVED;
        Change(read, edits);
        lm[size - 1] =
            Sum(lm, std::min(size, std::max<std::size_t>(GetField(lm + LENGTH_AT), 1)) - 1);
    }

    static std::size_t ReadLabel(std::size_t offset, char* to, std::size_t size) {
        const std::size_t count = std::min(size, LABEL_SIZE - std::min(offset, LABEL_SIZE));
        std::string label(MATCHING_LABEL);
        label.resize(LABEL_SIZE, ' ');
        std::memcpy(to, label.data() + offset, count);
        return count;
    }

    fuzz::Input input_;
    Command command_;
    unsigned flags_;
    std::size_t failing_call_;
    int error_;
    std::size_t calls_ = 0;
    std::array<std::uint8_t, OVERHEAD> request_{};
    Read read_{};
    bool behaved_ = true;
    Image image_;
    std::size_t received_ = 0;  // bytes of it
};

// The version that a reply's payload tells, whose closing NUL and one more do not count.
std::string VersionOf(const HostileChip& chip) {
    std::string text(reinterpret_cast<const char*>(chip.Payload()), chip.PayloadSize());
    text = text.substr(1) + '\0';
    text = text.substr(text.find_first_not_of(' '));
    return text.size() >= 2 ? text.substr(0, text.size() - 2) : text;
}

int StatusOf(int code) {
    const bool known = code == 1 || (code >= 3 && code <= 6);
    return known ? code : -1;
}

void MakeMessages(const HostileChip& chip) {
    g_p_hutil_opt = new HutilOptions();
    g_p_hutil_opt->verbosity = chip.Has(TALKATIVE) ? 6 : 0;
    g_p_hutil_msg = new HutilMsg(g_p_hutil_opt);
    g_options[OPTION_FORCE] = false;
    g_options[OPTION_INFO_ONLY] = false;
    g_options[OPTION_STATUS] = chip.Has(STATUS_MODE);
}

// One command of one write and one read, against what its reply must make of it.
void AskOnce(const HostileChip& chip, HdChip& hd) {
    std::string version = "before";
    int result = 0;
    switch (chip.GetCommand()) {
        case VERSION:
            result = hd.GetVersion(version);
            break;
        case FLASH_STATUS:
            result = hd.GetNvmStatus();
            break;
        case PROGRAM_STATUS:
            result = hd.ProgramWriteStatus();
            break;
        default:
            result = hd.UnprotectNvm();
    }
    const bool answered = chip.ExchangeSucceeds() && chip.Answers();
    if (chip.GetCommand() == VERSION) {
        Require(result == answered, "a version from an answer alone");
        Require(version == (answered ? VersionOf(chip) : "before"), "the version's text");
    } else if (chip.GetCommand() == UNPROTECT) {
        Require(result == answered, "unprotected by an answer alone");
    } else {
        const std::size_t position = chip.GetCommand() == PROGRAM_STATUS ? 1 : 0;
        const int code = chip.PayloadSize() > position ? chip.Payload()[position] : 0;
        Require(result == (answered ? StatusOf(code) : -1), "the status that the chip tells");
    }
}

// A program run of `chip`'s flags.
int RunProgram(const HostileChip& chip) {
    char name[] = "bbpflash";
    char talkative[] = "-vvvvvv";
    char status[] = "-s";
    char info[] = "-i";
    char force[] = "-f";
    char image[] = "image.bin";
    char* argv[8] = {name};
    int argc = 1;
    const auto add = [&](Flag flag, char* option) {
        if (chip.Has(flag)) {
            argv[argc++] = option;
        }
    };
    add(TALKATIVE, talkative);
    add(STATUS_MODE, status);
    add(INFO_ONLY, info);
    add(FORCE, force);
    argv[argc++] = image;
    return bbpflash_main(argc, argv);
}

// An image whose end the program finds only at a further, empty segment, and fails there.
bool EndsWithASegment(std::size_t image) {
    return (image + 1) % (LONGEST_MESSAGE - OVERHEAD) == 0 || image == 0;
}

void RunCommand(const HostileChip& chip) {
    if (chip.GetCommand() == WHOLE_RUN) {
        Require(RunProgram(chip) == 0, "main returns after success alone");
        Require(chip.Has(INFO_ONLY) || installed_version == file_version,
                "success means that the versions match");
        return;
    }
    MakeMessages(chip);
    HdChip* const hd = new (std::nothrow) HdChip(BUSTYPE_I2C);
    if (chip.GetCommand() == CONFIGURATION) {
        hd->PrintSysCfg();
    } else if (chip.GetCommand() == PROGRAM) {
        std::string path = "image.bin";
        if (hd->ProgramBin(path)) {
            Require(chip.HasWholeImage(), "programmed means that the chip has the whole image");
            Require(chip.Answers() && chip.PayloadSize() > 1 && chip.Payload()[1] == PGM_COMPLETE,
                    "programmed means that the chip said so last");
        } else {
            Require(!chip.Behaved() || EndsWithASegment(chip.ImageSize()),
                    "an image that the chip takes is programmed");
        }
    } else {
        AskOnce(chip, *hd);
    }
}

}  // namespace

// A short command takes a fiftieth of a download's time: most mutated inputs become one.
extern "C" size_t LLVMFuzzerCustomMutator(std::uint8_t* data, size_t size, size_t max_size,
                                          unsigned seed) {
    const size_t mutated = LLVMFuzzerMutate(data, size, max_size);
    if (mutated > 0 && seed % 8 != 0) {
        data[0] = static_cast<std::uint8_t>(seed / 8 % SHORT_COMMAND_COUNT);
    }
    return mutated;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    HostileChip chip(data, size);
    const fuzz::Outcome outcome = fuzz::Run(chip, [&chip] { RunCommand(chip); });
    switch (outcome.end) {
        case fuzz::End::Returned:
            break;
        case fuzz::End::Exited:
            Require(chip.GetCommand() == WHOLE_RUN && outcome.status == 1,
                    "only a whole run exits, and with status 1");
            break;
        case fuzz::End::NoText:
            Require(chip.Answers() && chip.PayloadSize() == 0, "only a version without a text");
            break;
        case fuzz::End::CutOff:
            Require(chip.GetCommand() == CONFIGURATION || chip.GetCommand() == PROGRAM ||
                        chip.GetCommand() == WHOLE_RUN,
                    "only what reads or polls without bound is cut off");
    }
    return 0;
}
