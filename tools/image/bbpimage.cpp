// SPDX-License-Identifier: Apache-2.0
// bbpimage: what is in a firmware image, how the updater will read it, and its label's writing.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <iostream>

#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/Sha256.h"
#include "common/StandardDescriptors.h"
#include "lm/HcLogical.h"
#include "tools/image/ImageInspector.h"
#include "tools/image/ImageWriter.h"
#include "tools/image/LabelField.h"

namespace {

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
    tools::Grade worst = tools::Grade::Clean;
    nlohmann::json images = nlohmann::json::array();
    for (const std::string& path : options.paths) {
        tools::ImageReport report = Inspect(path);
        if (options.expected) {
            report.Expect(*options.expected);
        }
        worst = std::max(worst, report.GetGrade());
        if (options.as_json) {
            images.push_back(tools::ToJson(report));
        } else {
            Show(tools::ToText(report));
        }
    }
    if (options.as_json) {
        const nlohmann::json all = {{"images", images}, {"grade", tools::NameOf(worst)}};
        Show(all.dump(2) + "\n");
    }
    return static_cast<int>(worst);
}

// Where the result goes: over the image itself, or to a file that is new unless forced.
tools::Destination Output(const Options& options) {
    tools::Destination out;
    out.path = options.out.empty() ? options.path : options.out;
    out.may_replace = options.out.empty() || options.force;
    return out;
}

CLI::App* AddInfo(CLI::App& app, Options& options) {
    CLI::App* const info = app.add_subcommand("info", "Tell what is in images and what is wrong");
    info->add_option("FILE", options.paths, "Images to look at")->required();
    info->add_flag("--json", options.as_json, "Tell it as one JSON object");
    info->add_option("--expect", options.expected, "The label must be TEXT; the status tells")
        ->option_text("TEXT");
    info->footer("Exit status: 0 clean, 1 warnings, 2 unusable or not the expected label.");
    return info;
}

CLI::App* AddLabel(CLI::App& app, Options& options) {
    CLI::App* const label = app.add_subcommand("label", "Write the label that the updater reads");
    label->add_option("FILE", options.path, "Image to label")->required();
    label->add_option("TEXT", options.text, "The version, exactly as the chip reports it")
        ->required();
    label->add_option("-o,--output", options.out, "Write a new image instead of replacing FILE")
        ->option_text("OUT");
    label->add_flag("--force", options.force, "Replace OUT; write a label that no chip may report");
    label->footer(std::string("Behind TEXT go two characters, \"__\": the updater drops the last "
                              "two of a label.\n") +
                  CHECKSUM_NOTE);
    return label;
}

CLI::App* AddPad(CLI::App& app, Options& options) {
    CLI::App* const pad =
        app.add_subcommand("pad", "Add the byte without which the updater would fail, if any");
    pad->add_option("FILE", options.path, "Image to pad")->required();
    pad->add_option("-o,--output", options.out, "Write a new image instead of replacing FILE")
        ->option_text("OUT");
    pad->add_flag("--force", options.force, "Replace OUT");
    pad->footer(std::string("The updater fails when the last segment of the download is exactly "
                            "full.\n") +
                CHECKSUM_NOTE);
    return pad;
}

CLI::App* AddMake(CLI::App& app, Options& options) {
    CLI::App* const make = app.add_subcommand("make", "Make a sample image for bench and tests");
    make->add_option("--version", options.text, "Its label")->required()->option_text("TEXT");
    make->add_option("--size", options.size, "Its size in bytes")
        ->capture_default_str()
        ->check(CLI::Range(static_cast<std::int64_t>(tools::LABEL_END),
                           static_cast<std::int64_t>(HcLogical::TOTAL_LIMIT - 1)));
    make->add_flag("--force", options.force,
                   "Replace OUT; make an image that the updater fails on");
    make->add_option("OUT", options.out, "File to write; - for standard output")->required();
    return make;
}

int Run(int argc, char** argv) {
    CLI::App app("Looks at firmware images and labels them.", PROGRAM);
    app.require_subcommand(1);
    app.set_version_flag("--version", BBP_VERSION);
    app.footer(
        "Exit status of info: 0 clean, 1 warnings, 2 unusable.\n"
        "Exit status of the others: 0 written, 2 nothing written. 64: wrong usage.");
    Options options;
    CLI::App* const info = AddInfo(app, options);
    CLI::App* const label = AddLabel(app, options);
    CLI::App* const pad = AddPad(app, options);
    AddMake(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        throw common::Failure(std::string(error.what()) + "; --help tells more", STATUS_USAGE);
    }
    if (info->parsed()) {
        return Info(options);
    }
    // Who does not read what is said does not undo what is written.
    std::signal(SIGPIPE, SIG_IGN);
    if (label->parsed()) {
        tools::WriteLabelled(options.path, options.text, Output(options), options.force);
    } else if (pad->parsed()) {
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
