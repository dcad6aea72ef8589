// SPDX-License-Identifier: Apache-2.0
// bbpimage: what is in a firmware image, how the updater will read it, and its label's writing.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>

#include "sim/SampleImage.h"
#include "tools/image/ImageInspector.h"
#include "tools/image/ImageWriter.h"

namespace {

constexpr int EXIT_FAILED = 2;  // as for an unusable image: there is nothing to go on with
constexpr int EXIT_USAGE = 64;

int Inspect(const std::vector<std::string>& paths, bool as_json) {
    tools::Grade worst = tools::Grade::Clean;
    nlohmann::json images = nlohmann::json::array();
    for (const std::string& path : paths) {
        const tools::ImageReport report = tools::InspectImage(path);
        worst = std::max(worst, report.GetGrade());
        if (as_json) {
            images.push_back(tools::ToJson(report));
        } else {
            std::cout << tools::ToText(report);
        }
    }
    if (as_json) {
        const nlohmann::json all = {{"images", images}, {"grade", tools::NameOf(worst)}};
        std::cout << all.dump(2) << "\n";
    }
    return static_cast<int>(worst);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Looks at firmware images and labels them.", "bbpimage");
    app.require_subcommand(1);
    app.footer(
        "Exit status of info: 0 clean, 1 warnings, 2 unusable.\n"
        "Exit status of label and make: 0 written, 2 nothing written. 64: wrong usage.");

    std::vector<std::string> paths;
    bool as_json = false;
    CLI::App* const info = app.add_subcommand("info", "Tell what is in images and what is wrong");
    info->add_option("FILE", paths, "Images to look at")->required();
    info->add_flag("--json", as_json, "Tell it as one JSON object");

    std::string path;
    std::string text;
    std::string out;
    CLI::App* const label = app.add_subcommand("label", "Write the label that the updater reads");
    label->add_option("FILE", path, "Image to label")->required();
    label->add_option("TEXT", text, "The version, exactly as the chip reports it")->required();
    label->add_option("-o,--output", out, "Write a new image instead of replacing FILE");

    std::size_t size = sim::SAMPLE_IMAGE_SIZE;
    CLI::App* const make = app.add_subcommand("make", "Make a sample image for bench and tests");
    make->add_option("--version", text, "Its label")->required();
    make->add_option("--size", size, "Its size in bytes")->capture_default_str();
    make->add_option("OUT", out, "File to write")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    try {
        if (info->parsed()) {
            return Inspect(paths, as_json);
        }
        if (label->parsed()) {
            tools::WriteLabelled(path, text, out.empty() ? path : out);
        } else if (make->parsed()) {
            tools::WriteSample(text, size, out);
        }
    } catch (const std::exception& error) {
        std::cerr << "bbpimage: " << error.what() << "\n";
        return EXIT_FAILED;
    }
    return 0;
}
