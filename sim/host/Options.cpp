// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>

#include "sim/FaultText.h"
#include "sim/SampleImage.h"
#include "sim/host/Child.h"

namespace sim {

namespace {

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

// Takes "ERASE,PROGRAM,VERIFY", in seconds, apart. Throws CLI::ValidationError.
BurnTimes ParseBurn(const std::string& text) {
    std::vector<Duration> times;
    for (const std::string& word : CLI::detail::split(text, ',')) {
        double seconds = -1;
        if (CLI::detail::lexical_cast(word, seconds) && seconds >= 0 && seconds <= LONGEST_PHASE) {
            times.push_back(
                std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds)));
        }
    }
    if (times.size() != 3 || std::count(text.begin(), text.end(), ',') != 2) {
        throw CLI::ValidationError("--burn",
                                   "takes three times in seconds, such as 4,8,3, and not " + text);
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

// Throws CLI::ValidationError for a fault that cannot happen here.
void CheckPossible(const Fault& fault) {
    const bool taken = fault.action == Action::NeverGrant && fault.nth == 1;
    if (IsLockFault(fault) && !taken) {
        throw CLI::ValidationError(FaultText(fault),
                                   "the lock is the kernel's; all that bbpsim can do is to keep it "
                                   "from the start: lock 1+ never-grant");
    }
}

Fault ParseFaultOption(const std::string& text) {
    Fault fault;
    FaultMistake mistake;
    if (!ParseFault(text, &fault, &mistake)) {
        throw CLI::ValidationError("--fault", ShowMistake(text, mistake));
    }
    CheckPossible(fault);
    return fault;
}

std::vector<Fault> ParseFaultFile(const std::string& path) {
    std::ifstream file(path);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw CLI::ValidationError("--faults",
                                   path + ": " + std::generic_category().message(errno));
    }
    std::vector<Fault> faults;
    FaultMistake mistake;
    std::size_t line = 0;
    if (!ParseFaults(text, &faults, &mistake, &line)) {
        std::istringstream lines(text);
        std::string words;
        for (std::size_t i = 0; i < line; ++i) {
            std::getline(lines, words);
        }
        throw CLI::ValidationError(
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

void AddChipOptions(CLI::App& app, Options& options) {
    app.add_option("--installed", options.installed, "The version that the chip reports at first")
        ->check([](const std::string& text) {
            return text.size() <= LONGEST_VERSION ? "" : "has more than 35 characters";
        })
        ->type_name("TEXT")
        ->capture_default_str();
    app.add_option_function<std::string>(
           "--reports", [&](const std::string& text) { options.reports = text; },
           "The version that it reports once it is programmed, whatever the image's label says")
        ->type_name("TEXT");
    app.add_option("--flash", options.flash,
                   "Keeps what the chip holds in this file from run to run; once there is one, its "
                   "label is what the chip reports, and --installed means nothing")
        ->type_name("FILE");
    app.add_option_function<std::string>(
           "--burn", [&](const std::string& text) { options.burn = ParseBurn(text); },
           "Seconds that it erases, programs and verifies")
        ->type_name("ERASE,PROGRAM,VERIFY")
        ->default_str("4,8,3");
    app.add_option_function<std::string>(
           "--pace", [&](const std::string& text) { options.paced = text == "wire"; },
           "Transfers take as long as on a real bus, or no time at all")
        ->check(CLI::IsMember({"wire", "none"}))
        ->type_name("")
        ->default_str("wire");
    app.add_option("--bus-hz", options.bus_hz, "The bus's clock")
        ->check(CLI::Range(SLOWEST_BUS, FASTEST_BUS))
        ->type_name("N")
        ->capture_default_str();
}

void AddFaultOptions(CLI::App& app, Options& options) {
    app.add_option_function<std::vector<std::string>>(
           "--fault",
           [&](const std::vector<std::string>& texts) {
               for (const std::string& text : texts) {
                   options.faults.push_back(ParseFaultOption(text));
               }
           },
           "Something that goes wrong, such as \"segment 5 nak\"; may be given several times")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->expected(1)
        ->type_name("TEXT");
    app.add_option_function<std::vector<std::string>>(
           "--faults",
           [&](const std::vector<std::string>& paths) {
               for (const std::string& path : paths) {
                   Append(&options.faults, ParseFaultFile(path));
               }
           },
           "A file of them, one a line")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->expected(1)
        ->type_name("FILE");
    app.add_flag_callback(
        "--list-faults", [] { throw CLI::Success(); }, "Tells what can go wrong, and ends");
}

void AddViewOptions(CLI::App& app, Options& options) {
    app.add_flag("--report", options.report, "Tells on standard error, at the end, what it saw");
    app.add_option("--json", options.json, "Writes that as JSON")->type_name("FILE");
    app.add_flag("--log", options.log, "Tells each transfer, one a line, on standard error");
    app.add_option("--log-file", options.log_file, "Writes these lines to a file")
        ->type_name("FILE");
    app.add_option("--pcap", options.pcap, "Captures the bus for Wireshark")->type_name("FILE");
    app.add_option("--vcd", options.vcd,
                   "Draws SDA, SCL and RESET of some transfers as a waveform, idle times shortened")
        ->type_name("FILE");
    app.add_option("--vcd-first", options.vcd_window.first, "The first transfer that is drawn")
        ->check(CLI::Range(1u, LAST_TRANSFER))
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--vcd-count", options.vcd_window.count,
                   "The number of transfers that are drawn")
        ->check(CLI::Range(1u, MOST_DRAWN))
        ->type_name("N")
        ->capture_default_str();
}

}  // namespace

bool LockIsTaken(const std::vector<Fault>& faults) {
    return std::any_of(faults.begin(), faults.end(), IsLockFault);
}

std::optional<Options> ParseOptions(int argc, const char* const* argv, int* status) {
    Options options;
    CLI::App app(ABOUT, "bbpsim");
    app.footer(EPILOGUE);
    app.set_version_flag("--version", BBP_VERSION);
    app.failure_message([](const CLI::App* parser, const CLI::Error& error) {
        return "bbpsim: " + CLI::FailureMessage::simple(parser, error);
    });
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    AddChipOptions(app, options);
    AddFaultOptions(app, options);
    AddViewOptions(app, options);
    app.add_option("command", options.command, "What to run")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("COMMAND");
    app.positionals_at_end();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (app.count("--list-faults") > 0) {
            std::fputs(FaultVocabulary().c_str(), stdout);
        }
        *status = app.exit(error) == 0 ? 0 : STATUS_OWN_FAILURE;
        return std::nullopt;
    }
    return options;
}

}  // namespace sim
