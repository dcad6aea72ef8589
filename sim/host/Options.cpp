// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Options.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <string>
#include <system_error>

#include "common/CommandLine.h"
#include "common/Failure.h"
#include "common/Pipe.h"
#include "sim/FaultText.h"
#include "sim/SampleImage.h"
#include "sim/host/Child.h"

namespace sim {

namespace {

using common::CommandLine;

const char ABOUT[] =
    "Runs a command, or without one a shell, inside a simulated head unit: the command and all "
    "that it starts find /dev/i2c1 and /dev/gpio/HD_DAB2Reset, with a chip behind them.";
const char EPILOGUE[] =
    "The exit status is the command's; 128 and the signal's number if one ended it; 127 if it is "
    "not found, 126 if it cannot be run, 125 if bbpsim itself failed.";

constexpr int SLOWEST_BUS = 1000;       // bits per second
constexpr int FASTEST_BUS = 1000000;    // likewise
constexpr double LONGEST_PHASE = 3600;  // seconds
constexpr unsigned LAST_TRANSFER = 1000000000;
constexpr unsigned MOST_DRAWN = 2000;  // about a megabyte each

// A mistake in what the option, or the file, of this name says.
common::Failure Mistake(const std::string& name, const std::string& text) {
    return common::Failure(name + ": " + text);
}

// Takes "ERASE,PROGRAM,VERIFY", in seconds, apart.
BurnTimes ParseBurn(const std::string& text) {
    std::vector<Duration> times;
    std::istringstream words(text);
    for (std::string word; std::getline(words, word, ',');) {
        double seconds = -1;
        const char* const end = word.data() + word.size();
        const auto [behind, error] = std::from_chars(word.data(), end, seconds);
        if (error == std::errc() && behind == end && seconds >= 0 && seconds <= LONGEST_PHASE) {
            times.push_back(
                std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds)));
        }
    }
    if (times.size() != 3 || std::count(text.begin(), text.end(), ',') != 2) {
        throw Mistake("--burn", "takes three times in seconds, such as 4,8,3, and not " + text);
    }
    BurnTimes burn;
    burn.erase = times[0];
    burn.program = times[1];
    burn.verify = times[2];
    return burn;
}

bool IsLockFault(const Fault& fault) {
    return fault.event == Event::Lock || fault.event == Event::Unlock;
}

// Throws a Failure for a fault that cannot happen here.
void CheckPossible(const Fault& fault) {
    const bool taken = fault.action == Action::NeverGrant && fault.nth == 1;
    if (IsLockFault(fault) && !taken) {
        throw Mistake(FaultText(fault),
                      "the lock is the kernel's; all that bbpsim can do is to keep it from the "
                      "start: lock 1+ never-grant");
    }
}

Fault ParseFaultOption(const std::string& text) {
    Fault fault;
    FaultMistake mistake;
    if (!ParseFault(text, &fault, &mistake)) {
        throw Mistake("--fault", ShowMistake(text, mistake));
    }
    CheckPossible(fault);
    return fault;
}

std::vector<Fault> ParseFaultFile(const std::string& path) {
    const std::string text = common::ReadFile(path, "the file of faults " + path);
    std::vector<Fault> faults;
    FaultMistake mistake;
    std::size_t line = 0;
    if (!ParseFaults(text, &faults, &mistake, &line)) {
        std::istringstream lines(text);
        std::string words;
        for (std::size_t i = 0; i < line; ++i) {
            std::getline(lines, words);
        }
        throw Mistake(
            path + ":" + std::to_string(line) + ":" + std::to_string(mistake.position + 1),
            ShowMistake(words, mistake));
    }
    for (const Fault& fault : faults) {
        CheckPossible(fault);
    }
    return faults;
}

void Append(std::vector<Fault>* faults, const std::vector<Fault>& more) {
    faults->insert(faults->end(), more.begin(), more.end());
}

void AddChipOptions(CommandLine& line, Options& options) {
    line.Value("--installed", options.installed, "The version that the chip reports at first")
        .Checked([](const std::string& text) {
            return text.size() <= LONGEST_VERSION ? "" : "has more than 35 characters";
        })
        .Named("TEXT")
        .WithDefault();
    line.Value("--reports", options.reports,
               "The version that it reports once it is programmed, whatever the image's label says")
        .Named("TEXT");
    line.Value("--flash", options.flash,
               "Keeps what the chip holds in this file from run to run; once there is one, its "
               "label is what the chip reports, and --installed means nothing")
        .Named("FILE");
    line.Value(
            "--burn", [&](const std::string& text) { options.burn = ParseBurn(text); },
            "Seconds that it erases, programs and verifies")
        .Named("ERASE,PROGRAM,VERIFY")
        .WithDefault("4,8,3");
    line.Value(
            "--pace", [&](const std::string& text) { options.paced = text == "wire"; },
            "Transfers take as long as on a real bus, or no time at all")
        .OneOf({"wire", "none"})
        .Named("")
        .WithDefault("wire");
    line.Value("--bus-hz", options.bus_hz, SLOWEST_BUS, FASTEST_BUS, "The bus's clock")
        .Named("N")
        .WithDefault();
}

void AddFaultOptions(CommandLine& line, Options& options) {
    line.Each(
            "--fault",
            [&](const std::string& text) { options.faults.push_back(ParseFaultOption(text)); },
            "Something that goes wrong, such as \"segment 5 nak\"; may be given several times")
        .Named("TEXT");
    line.Each(
            "--faults",
            [&](const std::string& path) { Append(&options.faults, ParseFaultFile(path)); },
            "A file of them, one a line")
        .Named("FILE");
    line.Asked("--list-faults", FaultVocabulary, "Tells what can go wrong, and ends");
}

void AddViewOptions(CommandLine& line, Options& options) {
    line.Flag("--report", options.report, "Tells on standard error, at the end, what it saw");
    line.Value("--json", options.json, "Writes that as JSON").Named("FILE");
    line.Flag("--log", options.log, "Tells each transfer, one a line, on standard error");
    line.Value("--log-file", options.log_file, "Writes these lines to a file").Named("FILE");
    line.Value("--pcap", options.pcap, "Captures the bus for Wireshark").Named("FILE");
    line.Value("--vcd", options.vcd,
               "Draws SDA, SCL and RESET of some transfers as a waveform, idle times shortened")
        .Named("FILE");
    line.Value("--vcd-first", options.vcd_window.first, 1, LAST_TRANSFER,
               "The first transfer that is drawn")
        .Named("N")
        .WithDefault();
    line.Value("--vcd-count", options.vcd_window.count, 1, MOST_DRAWN,
               "The number of transfers that are drawn")
        .Named("N")
        .WithDefault();
}

}  // namespace

bool LockIsTaken(const std::vector<Fault>& faults) {
    return std::any_of(faults.begin(), faults.end(), IsLockFault);
}

std::optional<int> ParseOptions(int argc, const char* const* argv, Options& options) {
    CommandLine line(ABOUT, "bbpsim", BBP_VERSION);
    line.Footer(EPILOGUE);
    line.LetTheLastCount();
    AddChipOptions(line, options);
    AddFaultOptions(line, options);
    AddViewOptions(line, options);
    line.Value("command", options.command, "What to run").Named("COMMAND");
    line.EndWithWords();
    return line.Parse(argc, argv, STATUS_OWN_FAILURE, "\nRun with --help for more information.");
}

}  // namespace sim
