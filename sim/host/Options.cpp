// SPDX-License-Identifier: Apache-2.0
#include "sim/host/Options.h"

#include <CLI/CLI.hpp>
#include <array>
#include <sstream>
#include <string>

#include "sim/SampleImage.h"
#include "sim/host/Child.h"

namespace sim {

namespace {

const char ABOUT[] =
    "Runs a command, or without one a shell, inside a simulated head unit: the command and all "
    "that "
    "it starts find /dev/i2c1 and /dev/gpio/HD_DAB2Reset, with a chip behind them.";
const char EPILOGUE[] =
    "The exit status is the command's; 128 and the signal's number if one ended it; 127 if it is "
    "not found, 126 if it cannot be run, 125 if bbpsim itself failed.";

constexpr int SLOWEST_BUS = 1000;     // bits per second
constexpr int FASTEST_BUS = 1000000;  // likewise
constexpr double LONGEST_PHASE = 3600;

// Takes "ERASE,PROGRAM,VERIFY", in seconds, apart. Throws CLI::ValidationError.
BurnTimes ParseBurn(const std::string& text) {
    std::istringstream words(text);
    std::array<Duration, 3> times;
    for (std::size_t i = 0; i < times.size(); ++i) {
        double seconds = -1;
        const bool separated = i == 0 || words.get() == ',';
        if (!separated || !(words >> seconds) || seconds < 0 || seconds > LONGEST_PHASE) {
            throw CLI::ValidationError(
                "--burn", "takes three times in seconds, such as 4,8,3, and not " + text);
        }
        times[i] = std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
    }
    if (words.peek() != std::char_traits<char>::eof()) {
        throw CLI::ValidationError("--burn", "has something behind its three times: " + text);
    }
    return {times[0], times[1], times[2]};
}

}  // namespace

std::optional<Options> ParseOptions(int argc, const char* const* argv, int* status) {
    Options options;
    std::string reports;

    CLI::App app(ABOUT, "bbpsim");
    app.footer(EPILOGUE);
    app.set_version_flag("--version", BBP_VERSION);
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.add_option("--installed", options.installed, "The version that the chip reports at first")
        ->check([](const std::string& text) {
            return text.size() <= LONGEST_VERSION ? "" : "has more than 35 characters";
        })
        ->type_name("TEXT")
        ->capture_default_str();
    CLI::Option* const reports_option =
        app.add_option("--reports", reports,
                       "The version that it reports once it is programmed, whatever the image's "
                       "label says")
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
    app.add_flag("--report", options.report, "Tells on standard error, at the end, what it saw");
    app.add_option("command", options.command, "What to run")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("COMMAND");
    app.positionals_at_end();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        *status = app.exit(error) == 0 ? 0 : STATUS_OWN_FAILURE;
        return std::nullopt;
    }
    if (*reports_option) {
        options.reports = reports;
    }
    return options;
}

}  // namespace sim
