// SPDX-License-Identifier: Apache-2.0
// bbpwatch: runs an update, shows how far it is, shields it from being cut off, and judges its end.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>
#include <optional>

#include "common/Failure.h"
#include "common/StandardDescriptors.h"
#include "common/Text.h"
#include "tools/image/ImageInspector.h"
#include "tools/stream/UpdaterOptions.h"
#include "tools/watch/BusLock.h"
#include "tools/watch/Reporters.h"
#include "tools/watch/WatchLoop.h"

namespace {

using tools::Milliseconds;
using Words = std::vector<std::string>;

// Beyond what an updater ends with, in the manner of sysexits.h.
constexpr int STATUS_USAGE = 64;
constexpr int STATUS_IMAGE = 65;
constexpr int STATUS_SYSTEM = 71;

constexpr Milliseconds SEGMENT_WAIT(1);  // between a segment and its acknowledgement, and a bit

struct Options {
    Words command;
    bool as_json = false;
    bool no_check = false;
    double stall = 180;
    std::string log;
    std::string lock = tools::BusLock::DefaultPath();
};

bool IsTerminal() {
    const char* const kind = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && kind != nullptr && std::string(kind) != "dumb";
}

bool HasColour() {
    const char* const refused = std::getenv("NO_COLOR");
    return refused == nullptr || *refused == '\0';
}

int TerminalWidth() {
    winsize size = {};
    const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return is_known ? size.ws_col : 80;
}

// "2026-11-20T12:34:56.789Z"
std::string TimeOfDay() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<Milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm parts = {};
    gmtime_r(&seconds, &parts);
    char text[40];
    const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + size, sizeof text - size, ".%03dZ", static_cast<int>(milliseconds));
    return text;
}

// The updater's own command line in one that may start it through other programs.
Words UpdatersPart(const Words& command) {
    for (auto word = command.begin(); word != command.end(); ++word) {
        if (word->substr(word->rfind('/') + 1) == "bbpflash") {
            return Words(word, command.end());
        }
    }
    return command;
}

// What to expect of an update with this image.
void Expect(const tools::ImageReport& report, tools::WatchConfig& config) {
    if (report.segments && report.size > 0) {
        config.segments = *report.segments;
        config.download = Milliseconds(static_cast<long long>(report.wire_seconds * 1000)) +
                          config.segments * SEGMENT_WAIT;
    }
}

// Shows what is wrong with the image. Returns whether an update can succeed with it.
bool IsUsable(const tools::ImageReport& report) {
    if (report.GetGrade() != tools::Grade::Clean) {
        std::cerr << tools::ToText(report);
    }
    return report.GetGrade() != tools::Grade::Unusable;
}

// Those who are told, and where they write.
struct Audience {
    tools::OutputQueue output{STDOUT_FILENO};
    std::vector<std::unique_ptr<tools::Reporter>> owned;

    explicit Audience(const Options& options) {
        const auto put = [this](const std::string& text) { output.Put(text); };
        if (options.as_json) {
            owned.push_back(std::make_unique<tools::JsonReporter>(put));
        } else if (IsTerminal()) {
            owned.push_back(
                std::make_unique<tools::TerminalReporter>(put, TerminalWidth, HasColour()));
        } else {
            owned.push_back(std::make_unique<tools::PlainReporter>(put));
        }
        if (!options.log.empty()) {
            AddLog(options.log);
        }
    }

    std::vector<tools::Reporter*> All() const {
        std::vector<tools::Reporter*> all;
        for (const auto& reporter : owned) {
            all.push_back(reporter.get());
        }
        return all;
    }

  private:
    void AddLog(const std::string& path) {
        const int log = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (log == -1) {
            throw common::ErrnoFailure("opening the log " + path, errno);
        }
        const auto write_line = [log](const std::string& line) {
            // A log that is full is no reason to disturb an update.
            return write(log, line.data(), line.size()) == static_cast<ssize_t>(line.size());
        };
        owned.push_back(std::make_unique<tools::LogReporter>(write_line, TimeOfDay));
    }
};

int WatchLines(const Options& options) {
    tools::WatchConfig config;
    config.stall = Milliseconds(static_cast<long long>(options.stall * 1000));
    Audience audience(options);
    tools::SignalQueue signals;
    tools::Watch watch(config, audience.All());
    watch.Start("standard input");
    return tools::WatchLoop(watch, signals, audience.output).Read(STDIN_FILENO);
}

int WatchCommand(const Options& options) {
    const tools::UpdaterOptions updater_options =
        tools::ParseUpdaterOptions(UpdatersPart(options.command));
    tools::WatchConfig config;
    config.mode = updater_options.status ? BBPFLASH_MODE_STATUS : BBPFLASH_MODE_NARRATING;
    config.only_asks = updater_options.info_only && !updater_options.force;
    config.stall = Milliseconds(static_cast<long long>(options.stall * 1000));

    tools::BusLock lock(options.lock);
    if (!config.only_asks && !updater_options.image.empty()) {
        const tools::ImageReport report = tools::InspectImage(updater_options.image);
        Expect(report, config);
        if (!options.no_check && !IsUsable(report)) {
            throw common::Failure("not started: no update can succeed with this image",
                                  STATUS_IMAGE);
        }
        if (!updater_options.status) {
            std::cerr << "bbpwatch: without -s the updater tells little of how far it is\n";
        }
    }
    Audience audience(options);
    tools::SignalQueue signals;
    tools::Watch watch(config, audience.All());
    tools::UpdaterProcess updater(options.command);
    lock.AddHolder(updater.Id());
    watch.Start(common::Join(options.command, " "));
    return tools::WatchLoop(watch, signals, audience.output).Run(updater);
}

// Returns the exit status where help was all that was asked for.
std::optional<int> ParseOptions(int argc, char** argv, Options& options) {
    CLI::App app("Watches an update: bbpwatch [OPTIONS] -- bbpflash -s image.bin", "bbpwatch");
    app.set_version_flag("--version", "bbpwatch " BBP_VERSION);
    app.add_flag("--json", options.as_json, "Tell each event as a line of JSON");
    app.add_option("--log", options.log, "Append all that the updater prints, with times");
    app.add_option("--stall", options.stall, "Seconds of silence that are too many")
        ->check(CLI::Range(0.1, 86400.0))
        ->capture_default_str();
    app.add_flag("--no-check", options.no_check, "Start even with an image that cannot succeed");
    app.add_option("--lock", options.lock, "File that keeps a second update away")
        ->capture_default_str();
    app.add_option("COMMAND", options.command,
                   "The updater and its arguments; without, its lines come from standard input");
    app.positionals_at_end();
    app.footer(
        "The exit status is the updater's, but 76 when it says success and the output contradicts\n"
        "it. 64 wrong usage, 65 unusable image, 71 system failure, 75 another update is running,\n"
        "126 and 127 updater not started, 128 and more: ended by a signal, or on request.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& asked) {
        return app.exit(asked);
    } catch (const CLI::ParseError& error) {
        throw common::Failure(std::string(error.what()) + " (bbpwatch --help lists the options)",
                              STATUS_USAGE);
    }
    return std::nullopt;
}

int Run(int argc, char** argv) {
    Options options;
    const std::optional<int> answered = ParseOptions(argc, argv, options);
    if (answered) {
        return *answered;
    }
    return options.command.empty() ? WatchLines(options) : WatchCommand(options);
}

}  // namespace

int main(int argc, char** argv) {
    common::OpenMissingStandardDescriptors();
    return common::RunProgram("bbpwatch", STATUS_SYSTEM, [&] { return Run(argc, argv); });
}
