// SPDX-License-Identifier: Apache-2.0
// What must hold for every run, in few words and without the reference's knowledge of the protocol.
#include <algorithm>
#include <string_view>

#include "sim/ChipModel.h"
#include "tests/fault/Runner.h"
#include "tools/stream/StreamParser.h"

namespace fault {

namespace {

using virt::RunResult;

constexpr std::uint8_t ERASED = 0xFF;

bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Whether standard output has lost something.
bool HasLostOutput(const virt::CallLog& log) {
    const auto& calls = log.Calls();
    return std::any_of(calls.begin(), calls.end(), [](const virt::Call& call) {
        return call.kind == virt::CallKind::Output &&
               call.result < static_cast<std::int64_t>(call.size);
    });
}

bool AnyCall(const virt::CallLog& log, virt::CallKind kind, bool failed) {
    const auto& calls = log.Calls();
    return std::any_of(calls.begin(), calls.end(), [&](const virt::Call& call) {
        return call.kind == kind && (call.result != 0) == failed;
    });
}

// What contradicts the contract on the output; where the file's length was a lie, all but what is
// worked out from it.
std::string CheckLines(const RunResult& result, bool status_mode, bool honest_length) {
    const unsigned ignored = honest_length
                                 ? 0u
                                 : unsigned{BBPFLASH_PROBLEM_FALLING} | BBPFLASH_PROBLEM_NUMBER |
                                       BBPFLASH_PROBLEM_ORDER | BBPFLASH_PROBLEM_PASSES;
    std::string found;
    const auto take = [&found, ignored](const bbpflash_event& event) {
        if (found.empty() && (event.problems & ~ignored) != 0) {
            found = "a line against the output's contract: " + std::string(event.text, event.size);
        }
    };
    tools::StreamParser parser(status_mode ? BBPFLASH_MODE_STATUS : BBPFLASH_MODE_NARRATING, take);
    parser.Feed(result.out.data(), result.out.size());
    parser.Finish(result.status);
    if (found.empty() && (parser.Problems() & ~ignored) != 0) {
        found = "the output's end contradicts its contract";
    }
    return found;
}

// A fault that makes the file's length a lie, or what the chip says.
bool Falsifies(const Injection& injection, virt::CallKind kind) {
    return std::any_of(injection.faults.begin(), injection.faults.begin() + injection.count,
                       [kind](const Fault& fault) {
                           return fault.is_call && (fault.call.kind == kind ||
                                                    fault.call.action != FileAction::None);
                       });
}

bool ChangesReplies(const Injection& injection) {
    return std::any_of(
        injection.faults.begin(), injection.faults.begin() + injection.count,
        [](const Fault& fault) { return !fault.is_call && sim::ChangesReply(fault.unit.action); });
}

std::string CheckOutput(const Injection& injection, const virt::CallLog& log,
                        const RunResult& result, const Facts& facts) {
    // A text that a fault has put into a reply is shown as it is, line ends and all; an end that
    // flushes nothing cuts where the buffer was full.
    if (HasLostOutput(log) || ChangesReplies(injection) || result.outcome != Outcome::Exit) {
        return "";
    }
    const bool honest_length = !Falsifies(injection, virt::CallKind::Ftell) &&
                               !Falsifies(injection, virt::CallKind::Fread);
    return CheckLines(result, facts.status_mode, honest_length);
}

// After a fatal message nothing goes to the chip, but on a bus that was opened as descriptor 0.
std::string CheckSilence(const virt::CallLog& log) {
    bool fatal = false;
    for (const virt::Call& call : log.Calls()) {
        if (call.kind == virt::CallKind::Log && call.detail == 1) {
            fatal = log.Data(call).find("\"Success\" (0)") == std::string_view::npos ||
                    log.Data(call).find("opening /dev/i2c1") == std::string_view::npos;
        }
        const bool reaches = call.kind == virt::CallKind::Send ||
                             call.kind == virt::CallKind::Receive ||
                             call.kind == virt::CallKind::WriteReset;
        if (fatal && reaches) {
            return "after a fatal message: " + Describe(log, call);
        }
    }
    return "";
}

// What the chip holds at the end.
std::string CheckFlash(const Injection& injection, const sim::ChipModel& chip,
                       const RunResult& result, const Facts& facts) {
    const std::vector<std::uint8_t>& flash = chip.Flash();
    const bool succeeded = result.outcome == Outcome::Exit && result.status == 0;
    const bool truthful = !ChangesReplies(injection);
    if (succeeded && facts.passes > 0 && truthful && flash != facts.image) {
        return "success, and the chip does not hold the image";
    }
    if (succeeded && !facts.info_only &&
        (!facts.version_known || !facts.label_known || facts.version != facts.label)) {
        return "success, and the version is not the label's";
    }
    if (chip.Burns() == 0 && (!flash.empty() || chip.Version() == sim::LOADER_VERSION)) {
        return "the flash was touched without a whole download";
    }
    // One comparison is quicker than one for each byte.
    if (flash == facts.image) {
        return "";
    }
    for (std::size_t i = 0; i < flash.size() && i < facts.image.size(); ++i) {
        if (flash[i] != facts.image[i] && flash[i] != ERASED) {
            return "the flash holds a byte that is not the image's, at " + std::to_string(i);
        }
    }
    return "";
}

// A chip that erases has got the whole file, byte for byte.
std::string CheckBurns(const Scenario& scenario, const Injection& injection,
                       const sim::ChipModel& chip, const Facts& facts) {
    const bool honest_file = !Falsifies(injection, virt::CallKind::Ftell) &&
                             !Falsifies(injection, virt::CallKind::Fread);
    if (chip.Burns() == 0 || !honest_file || chip.Flash().empty()) {
        return "";
    }
    return facts.image == scenario.Image() || facts.whole_downloads > 0
               ? ""
               : "the chip has burned a download that was not whole";
}

}  // namespace

std::string OutcomeOf(const virt::CallLog& log, const RunResult& result) {
    switch (result.outcome) {
        case Outcome::Exit:
            break;
        case Outcome::OtherException:
            return "";
        case Outcome::BadAlloc:
            return AnyCall(log, virt::CallKind::NewStorage, true) ? NameOf(result.outcome) : "";
        case Outcome::OutOfRange:
        case Outcome::SigPipe:
        case Outcome::Endless:
        case Outcome::Blocked:
            return NameOf(result.outcome);
    }
    if (HasLostOutput(log)) {
        return result.status <= 1 ? "lines lost" : "";
    }
    switch (result.status) {
        case 0:
            return EndsWith(result.out, "ERROR\n") ? "" : "success";
        case 1:
            if (EndsWith(result.out, "\nERROR\n")) {
                return "ERROR";
            }
            return result.out.find("ERROR: Please try") != std::string::npos ? "hint" : "";
        case 255:
            return result.out.empty() || EndsWith(result.out, "options end =============\n")
                       ? "no message object"
                       : "";
        default:
            return "";
    }
}

std::string Violation(const Scenario& scenario, const Injection& injection,
                      virt::VirtualHeadUnit& unit, const RunResult& result, const Facts& facts) {
    const sim::ChipModel& chip = unit.Unit().Chip();
    for (const std::string& found :
         {CheckOutput(injection, unit.Log(), result, facts), CheckSilence(unit.Log()),
          CheckFlash(injection, chip, result, facts),
          CheckBurns(scenario, injection, chip, facts)}) {
        if (!found.empty()) {
            return found;
        }
    }
    return unit.MemoryBlocks() == 0 ? "" : "the run's memory was not given back";
}

}  // namespace fault
