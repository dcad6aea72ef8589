// SPDX-License-Identifier: Apache-2.0
// bbpimage: what is in a firmware image, how the updater will read it, and its label's writing.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>

#include "common/CommandLine.h"
#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/Sha256.h"
#include "common/StandardDescriptors.h"
#include "lm/HcLogical.h"
#include "tools/image/ImageInspector.h"
#include "tools/image/ImageWriter.h"
#include "tools/image/LabelField.h"

namespace {

using common::CommandLine;

const char PROGRAM[] = "bbpimage";
constexpr int STATUS_FAILED = 2;  // as for an unusable image: there is nothing to go on with
constexpr int STATUS_USAGE = 64;

const char CHECKSUM_NOTE[] =
    "An image that carries a checksum or a signature over these bytes is refused by the chip\n"
    "afterwards: only its maker can change it.";

// What the command line says. Each command uses some of it.
struct Options {
    std::vector<std::string> paths;
    bool as_json = false;
    std::optional<std::string> expected;
    std::string path;
    std::string text;
    std::string out;
    bool force = false;
    std::int64_t size = static_cast<std::int64_t>(sim::SAMPLE_IMAGE_SIZE);
};

tools::ImageReport Inspect(const std::string& path) {
    common::Sha256 digest;
    tools::ImageReport report = tools::InspectImage(
        path, [&digest](const char* bytes, std::size_t size) { digest.Update(bytes, size); });
    if (report.is_read) {
        report.sha256 = digest.Finish();
    }
    return report;
}

void Show(const std::string& text) {
    common::WriteAll(STDOUT_FILENO, text, "standard output");
}

int Info(const Options& options) {
    std::vector<tools::ImageReport> reports;
    for (const std::string& path : options.paths) {
        tools::ImageReport report = Inspect(path);
        if (options.expected) {
            report.Expect(*options.expected);
        }
        if (!options.as_json) {
            Show(tools::ToText(report));
        }
        reports.push_back(std::move(report));
    }
    if (options.as_json) {
        Show(tools::ToJson(reports));
    }
    return static_cast<int>(tools::WorstGrade(reports));
}

// Where the result goes: over the image itself, or to a file that is new unless forced.
tools::Destination Output(const Options& options) {
    tools::Destination out;
    out.path = options.out.empty() ? options.path : options.out;
    out.may_replace = options.out.empty() || options.force;
    return out;
}

CommandLine AddInfo(CommandLine& line, Options& options) {
    CommandLine info = line.Command("info", "Tell what is in images and what is wrong");
    info.Value("FILE", options.paths, "Images to look at").Required();
    info.Flag("--json", options.as_json, "Tell it as one JSON object");
    info.Value("--expect", options.expected, "The label must be TEXT; the status tells")
        .Named("TEXT");
    info.Footer("Exit status: 0 clean, 1 warnings, 2 unusable or not the expected label.");
    return info;
}

// Where a changed image goes.
void AddOutput(CommandLine& command, Options& options) {
    command.Value("-o,--output", options.out, "Write a new image instead of replacing FILE")
        .Named("OUT");
}

CommandLine AddLabel(CommandLine& line, Options& options) {
    CommandLine label = line.Command("label", "Write the label that the updater reads");
    label.Value("FILE", options.path, "Image to label").Required();
    label.Value("TEXT", options.text, "The version, exactly as the chip reports it").Required();
    AddOutput(label, options);
    label.Flag("--force", options.force, "Replace OUT; write a label that no chip may report");
    label.Footer(std::string("Behind TEXT go two characters, \"__\": the updater drops the last "
                             "two of a label.\n") +
                 CHECKSUM_NOTE);
    return label;
}

CommandLine AddPad(CommandLine& line, Options& options) {
    CommandLine pad =
        line.Command("pad", "Add the byte without which the updater would fail, if any");
    pad.Value("FILE", options.path, "Image to pad").Required();
    AddOutput(pad, options);
    pad.Flag("--force", options.force, "Replace OUT");
    pad.Footer(std::string("The updater fails when the last segment of the download is exactly "
                           "full.\n") +
               CHECKSUM_NOTE);
    return pad;
}

void AddMake(CommandLine& line, Options& options) {
    CommandLine make = line.Command("make", "Make a sample image for bench and tests");
    make.Value("--version", options.text, "Its label").Required();
    make.Value("--size", options.size, tools::LABEL_END, std::int64_t{HcLogical::TOTAL_LIMIT} - 1,
               "Its size in bytes")
        .WithDefault();
    make.Flag("--force", options.force, "Replace OUT; make an image that the updater fails on");
    make.Value("OUT", options.out, "File to write; - for standard output").Required();
}

int Run(int argc, char** argv) {
    CommandLine line("Looks at firmware images and labels them.", PROGRAM, BBP_VERSION);
    line.Footer(
        "Exit status of info: 0 clean, 1 warnings, 2 unusable.\n"
        "Exit status of the others: 0 written, 2 nothing written. 64: wrong usage.");
    Options options;
    const CommandLine info = AddInfo(line, options);
    const CommandLine label = AddLabel(line, options);
    const CommandLine pad = AddPad(line, options);
    AddMake(line, options);
    const std::optional<int> asked = line.Parse(argc, argv, STATUS_USAGE, "; --help tells more");
    if (asked) {
        return *asked;
    }
    if (info.IsGiven()) {
        return Info(options);
    }
    // Who does not read what is said does not undo what is written.
    std::signal(SIGPIPE, SIG_IGN);
    if (label.IsGiven()) {
        tools::WriteLabelled(options.path, options.text, Output(options), options.force);
    } else if (pad.IsGiven()) {
        // To standard error: the image may go to standard output.
        const std::string done = tools::WritePadded(options.path, Output(options));
        std::cerr << PROGRAM << ": " << done << "\n";
    } else {
        tools::WriteSample(options.text, static_cast<std::size_t>(options.size), Output(options),
                           options.force);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    common::OpenMissingStandardDescriptors();
    return common::RunProgram(PROGRAM, STATUS_FAILED, [=] { return Run(argc, argv); });
}
