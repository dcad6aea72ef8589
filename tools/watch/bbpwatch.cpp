// SPDX-License-Identifier: Apache-2.0
// bbpwatch: runs an update, shows how far it is, keeps it from being cut off, and tells whether it
// succeeded.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>

#include "common/Failure.h"
#include "common/Spawn.h"
#include "common/StandardDescriptors.h"
#include "tools/image/ImageInspector.h"
#include "tools/watch/Audience.h"
#include "tools/watch/BusLock.h"
#include "tools/watch/CommandLine.h"
#include "tools/watch/UnitCheck.h"
#include "tools/watch/WatchLoop.h"

namespace {

using tools::Audience;
using tools::Options;
using tools::Verdict;
using tools::WatchEvent;

// Those who read events must have them all.
int CheckOutput(const Options& options, Audience& audience, int result) {
    const int error = audience.Output().Error();
    if (!options.as_json || error == 0 || error == EPIPE) {
        return result;
    }
    std::cerr << "bbpwatch: writing the events: " << std::strerror(error) << "\n";
    return result == EXIT_SUCCESS ? tools::STATUS_OUTPUT : result;
}

int WatchLines(const Options& options) {
    tools::WatchConfig config = tools::Expect(options).config;
    config.is_only_heard = true;
    config.is_talkative = false;
    config.log = options.log;
    Audience audience(options.as_json);
    if (!options.log.empty()) {
        audience.AddLog(options.log);
    }
    tools::SignalQueue signals;
    tools::Watch watch(config, audience.All());
    watch.Start({});
    const int result = tools::WatchLoop(watch, signals, audience.Output()).Read(STDIN_FILENO);
    return CheckOutput(options, audience, result);
}

// Throws common::Failure when no update can succeed with this image.
void Inspect(const Options& options, const std::string& image, tools::WatchConfig& config) {
    const tools::ImageReport report = tools::InspectImage(image);
    tools::Expect(report, config);
    if (options.no_check || report.GetGrade() == tools::Grade::Clean) {
        return;
    }
    std::cerr << tools::ToText(report);
    if (report.GetGrade() == tools::Grade::Unusable) {
        throw common::Failure("no update can succeed with this image; nothing was started",
                              tools::STATUS_IMAGE);
    }
}

int WatchCommand(const Options& options) {
    tools::Expectation expectation = tools::Expect(options);
    tools::WatchConfig& config = expectation.config;
    tools::BusLock lock(options.lock);
    if (!expectation.image.empty()) {
        Inspect(options, expectation.image, config);
    }
    if (expectation.tells_little) {
        std::cerr << "bbpwatch: without -s the updater tells little of how far it is\n";
    }
    Audience audience(options.as_json);
    tools::SignalQueue signals;
    const bool is_temporary = options.log.empty();
    if (!is_temporary) {
        audience.AddLog(options.log);
    }
    config.log = is_temporary ? audience.AddTemporaryLog() : options.log;
    const auto drop_log = [&] {
        if (is_temporary && !config.log.empty()) {
            unlink(config.log.c_str());
        }
    };
    try {
        const std::vector<std::string> command = tools::UpdatersCommand(options);
        tools::Watch watch(config, audience.All());
        watch.Start(command);
        if (CheckOutput(options, audience, EXIT_SUCCESS) != EXIT_SUCCESS) {
            throw common::Failure("the events cannot be written; nothing was started",
                                  tools::STATUS_OUTPUT);
        }
        tools::UpdaterProcess updater(command);
        lock.AddHolder(updater.Id());
        const int result = tools::WatchLoop(watch, signals, audience.Output()).Run(updater);
        if (result == EXIT_SUCCESS) {
            drop_log();
        }
        return CheckOutput(options, audience, result);
    } catch (const common::Failure& failure) {
        drop_log();
        throw;
    }
}

int Check(const Options& options) {
    Audience audience(options.as_json);
    WatchEvent end;
    end.kind = WatchEvent::Kind::End;
    end.ending.verdict = Verdict::Ready;
    end.ending.status = EXIT_SUCCESS;
    for (const tools::Requirement& requirement : tools::CheckUnit(options.lock, options.image)) {
        WatchEvent event;
        event.kind = WatchEvent::Kind::Check;
        event.name = requirement.name;
        event.is_well = requirement.is_well;
        event.text = requirement.text;
        audience.All().front()->Report(event);
        if (requirement.is_well == false) {
            end.ending.verdict = Verdict::NotReady;
            end.ending.status = tools::STATUS_NOT_READY;
        }
    }
    audience.All().front()->Report(end);
    audience.Output().Drain(tools::Milliseconds(2000));
    return CheckOutput(options, audience, end.ending.status);
}

const char* ReasonFor(int status) {
    switch (status) {
        case tools::STATUS_USAGE:
            return "usage";
        case tools::STATUS_IMAGE:
            return "image";
        case tools::STATUS_OUTPUT:
            return "output";
        case tools::STATUS_TAKEN:
            return "taken";
        case common::STATUS_NOT_EXECUTABLE:
            return "not-executable";
        case common::STATUS_NOT_FOUND:
            return "not-found";
        default:
            return "system";
    }
}

// Programs are told by an event, too.
void TellNotStarted(const common::Failure& failure) {
    Audience audience(true);
    WatchEvent end;
    end.kind = WatchEvent::Kind::End;
    end.ending.verdict = Verdict::NotStarted;
    end.ending.status = failure.Status().value_or(tools::STATUS_SYSTEM);
    end.ending.content = tools::Content::Old;
    end.ending.reason = ReasonFor(end.ending.status);
    end.ending.what = failure.what();
    audience.All().front()->Report(end);
    audience.Output().Drain(tools::Milliseconds(2000));
}

int Run(int argc, char** argv) {
    Options options;
    const std::optional<int> answered = tools::ParseCommandLine(argc, argv, options);
    if (answered) {
        return *answered;
    }
    if (options.only_checks) {
        return Check(options);
    }
    return options.command.empty() && options.image.empty() ? WatchLines(options)
                                                            : WatchCommand(options);
}

int RunAndTell(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const common::Failure& failure) {
        if (tools::WantsJson(argc, argv)) {
            TellNotStarted(failure);
        }
        throw;
    }
}

}  // namespace

int main(int argc, char** argv) {
    common::OpenMissingStandardDescriptors();
    return common::RunProgram("bbpwatch", tools::STATUS_SYSTEM,
                              [&] { return RunAndTell(argc, argv); });
}
