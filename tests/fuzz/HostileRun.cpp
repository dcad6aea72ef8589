// SPDX-License-Identifier: Apache-2.0
// The fuzzer plays the chip: every command, a download of a small image, and whole runs.
//
// An input's bytes: the command, its flags, the failing call and its errno value, then what each
// read brings. Behind its end the chip answers properly, so that a run comes to its end.
#include <cstdint>
#include <string>

#include "driver/bbpflash.h"
#include "hutil/hutil_init.h"
#include "sim/LogicalMessage.h"
#include "tests/fuzz/HostileChip.h"
#include "tests/fuzz/Require.h"
#include "tests/fuzz/Surroundings.h"

extern "C" int bbpflash_main(int argc, char** argv);
extern "C" size_t LLVMFuzzerMutate(std::uint8_t* data, size_t size, size_t max_size);

namespace {

using namespace fuzz;

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
    const int result = chip.GetCommand() == VERSION          ? hd.GetVersion(version)
                       : chip.GetCommand() == FLASH_STATUS   ? hd.GetNvmStatus()
                       : chip.GetCommand() == PROGRAM_STATUS ? hd.ProgramWriteStatus()
                                                             : hd.UnprotectNvm();
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
    return (image + 1) % (sim::LONGEST_MESSAGE - sim::OVERHEAD) == 0 || image == 0;
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
