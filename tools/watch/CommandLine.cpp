// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/CommandLine.h"

#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "common/CommandLine.h"
#include "common/Failure.h"
#include "common/Text.h"
#include "tools/stream/UpdaterOptions.h"
#include "tools/watch/BusLock.h"

namespace tools {

namespace {

using Words = std::vector<std::string>;

const char UPDATER[] = "bbpflash";
const char SEPARATOR[] = "--";
const char HINT[] = " (bbpwatch --help tells how to use it)";

constexpr Milliseconds SEGMENT_WAIT(1);  // between a segment and its acknowledgement, and a bit

constexpr double SHORTEST_STALL = 0.1;  // seconds
constexpr double LONGEST_STALL = 86400;

const char DESCRIPTION[] =
    "Runs an update, shows how far it is, keeps it from being cut off, and tells whether it\n"
    "succeeded.\n\n"
    "  bbpwatch image.bin                updates the unit with this image\n"
    "  bbpwatch --check image.bin        looks whether it could, and touches nothing\n"
    "  bbpwatch -- bbpflash -s image.bin runs this command\n"
    "  bbpflash -s image.bin | bbpwatch  judges these lines; it cannot protect that updater\n";

const char STATUSES[] =
    "The exit status is 0 when the unit has the firmware of the image, and else\n"
    "the updater's own, or:\n"
    "  64   wrong usage\n"
    "  65   the image cannot be used\n"
    "  69   not ready (--check)\n"
    "  71   a failure of the system\n"
    "  74   the events cannot be written\n"
    "  75   another update runs on this bus\n"
    "  76   the outcome is in doubt\n"
    "  77   the chip refuses the image\n"
    "  126  the updater cannot be executed\n"
    "  127  the updater was not found\n"
    "  128+ ended by a signal, or on request";

void AddOptions(common::CommandLine& line, Options& options) {
    line.Flag("--check", options.only_checks,
              "Look whether the unit and the image are ready; no reset, no transfer");
    line.Flag("--force", options.force,
              "Program even if the version is the same or cannot be read");
    line.Flag("--json", options.as_json, "Tell each event as a line of JSON");
    line.Value("--log", options.log, "Append all that the updater prints, with times");
    line.Value("--stall", options.stall, SHORTEST_STALL, LONGEST_STALL,
               "Report when so many seconds bring no progress")
        .WithDefault();
    line.Flag("--no-check", options.no_check, "Start even with an image that cannot succeed");
    line.Value("--lock", options.lock, "Use this file to keep a second update away").WithDefault();
    line.Value("IMAGE", options.image, "The image to program");
    line.Footer(STATUSES);
}

void CheckUsage(const common::CommandLine& line, const Options& options, bool has_separator) {
    const auto refuse = [](const std::string& why) {
        throw common::Failure(why + HINT, STATUS_USAGE);
    };
    if (has_separator && options.command.empty()) {
        refuse("no command behind --");
    }
    if (has_separator && (!options.image.empty() || options.only_checks || options.force)) {
        refuse("an image, --check and --force do not go with a command behind --");
    }
    if (options.force && options.image.empty()) {
        refuse("--force needs an image");
    }
    const bool reads_input = !has_separator && !options.only_checks && options.image.empty();
    if (reads_input && isatty(STDIN_FILENO) != 0) {
        std::cerr << line.Help();
        throw common::Failure("no image and no command", STATUS_USAGE);
    }
}

// The updater's own command line in one that may start it through other programs.
Words UpdatersPart(const Words& command) {
    for (auto word = command.begin(); word != command.end(); ++word) {
        if (std::filesystem::path(*word).filename() == UPDATER) {
            return Words(word, command.end());
        }
    }
    return {};
}

}  // namespace

std::optional<int> ParseCommandLine(int argc, char** argv, Options& options) {
    common::CommandLine line(DESCRIPTION, "bbpwatch", "bbpwatch " BBP_VERSION);
    options.lock = BusLock::DefaultPath();
    AddOptions(line, options);
    int own = 0;
    while (own < argc && std::string(argv[own]) != SEPARATOR) {
        ++own;
    }
    const bool has_separator = own < argc;
    if (has_separator) {
        options.command.assign(argv + own + 1, argv + argc);
    }
    const std::optional<int> asked = line.Parse(own, argv, STATUS_USAGE, HINT);
    if (asked) {
        return asked;
    }
    CheckUsage(line, options, has_separator);
    return std::nullopt;
}

bool WantsJson(int argc, char** argv) {
    for (int i = 1; i < argc && std::string(argv[i]) != SEPARATOR; ++i) {
        if (std::string(argv[i]) == "--json") {
            return true;
        }
    }
    return false;
}

std::string OwnUpdater() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::string beside = error ? "" : (self.parent_path() / UPDATER).string();
    return !beside.empty() && access(beside.c_str(), X_OK) == 0 ? beside : UPDATER;
}

// With all that the updater can say: only then both versions are known.
std::vector<std::string> UpdatersCommand(const Options& options) {
    if (!options.command.empty()) {
        return options.command;
    }
    Words command = {OwnUpdater(), "-s", "-vvvvvv"};
    if (options.force) {
        command.emplace_back("-f");
    }
    // The updater would take it for options.
    const bool looks_like_option = common::StartsWith(options.image, "-");
    command.push_back((looks_like_option ? "./" : "") + options.image);
    return command;
}

Expectation Expect(const Options& options) {
    Expectation expectation;
    expectation.config.stall = Milliseconds(static_cast<long long>(options.stall * 1000));
    if (options.command.empty()) {
        expectation.config.is_talkative = true;
        expectation.image = options.image;
        return expectation;
    }
    const Words part = UpdatersPart(options.command);
    const UpdaterOptions updater = ParseUpdaterOptions(part.empty() ? options.command : part);
    expectation.config.only_asks = updater.info_only && !updater.force;
    // Another program's last word need not be an image.
    std::error_code error;
    const bool is_image = !part.empty() || std::filesystem::is_regular_file(updater.image, error);
    if (is_image && !expectation.config.only_asks) {
        expectation.image = updater.image;
        expectation.tells_little = !part.empty() && !updater.status;
    }
    return expectation;
}

void Expect(const ImageReport& report, WatchConfig& config) {
    if (report.segments && report.size > 0) {
        config.segments = *report.segments;
        config.download = Milliseconds(static_cast<long long>(report.wire_seconds * 1000)) +
                          config.segments * SEGMENT_WAIT;
    }
    config.label = report.label.value_or("");
}

}  // namespace tools
