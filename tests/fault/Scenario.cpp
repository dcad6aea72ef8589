// SPDX-License-Identifier: Apache-2.0
#include "tests/fault/Scenario.h"

#include <map>
#include <stdexcept>

#include "sim/SampleImage.h"

namespace fault {

namespace {

using std::chrono::milliseconds;

constexpr const char* PATH = "image.bin";
constexpr const char* VERSION = "2.0.0";

virt::FileContent Content(std::size_t size) {
    static std::map<std::size_t, virt::FileContent> contents;
    const auto found = contents.find(size);
    if (found != contents.end()) {
        return found->second;
    }
    const std::size_t bytes = size == 0 ? sim::SAMPLE_IMAGE_SIZE : size;
    return contents.emplace(size, virt::FileContent::Of(sim::MakeSampleImage(VERSION, bytes)))
        .first->second;
}

}  // namespace

std::string Scenario::Name() const {
    return options + "," + (size == 0 ? "whole" : std::to_string(size)) + "," + chip;
}

Scenario Scenario::Of(const std::string& name) {
    const std::size_t first = name.find(',');
    const std::size_t second = name.find(',', first + 1);
    if (first == std::string::npos || second == std::string::npos) {
        throw std::invalid_argument("no scenario: " + name);
    }
    const std::string size = name.substr(first + 1, second - first - 1);
    return Scenario{name.substr(0, first), size == "whole" ? 0 : std::stoul(size),
                    name.substr(second + 1)};
}

std::vector<std::string> Scenario::Arguments() const {
    if (options == "alone") {
        return {"bbpflash"};
    }
    return options == "none" ? std::vector<std::string>{"bbpflash", PATH}
                             : std::vector<std::string>{"bbpflash", options, PATH};
}

sim::ChipConfig Scenario::Chip() const {
    sim::ChipConfig config;
    config.installed = chip == "equal" ? VERSION : "1.0.0";
    config.reports = chip == "never" ? "3.0.0" : VERSION;
    // Each phase is met by one poll or two.
    config.burn = {milliseconds(500), milliseconds(500), milliseconds(500)};
    return config;
}

void Scenario::PutFiles(virt::VirtualFiles& files) const {
    if (IsWhole()) {
        files.Put(PATH, {Content(size)});
        return;
    }
    const std::string label = chip == "blank" ? "" : sim::MakeLabel(VERSION);
    files.Put(PATH, {Content(size).WithLabelBehindEnd(label)});
}

const virt::Bytes& Scenario::Image() const {
    return *Content(size).bytes;
}

virt::Duration Scenario::TimeLimit() const {
    // A segment takes 50 ms; then a few seconds of polling.
    return milliseconds(9000) + milliseconds(50) * (Content(size).size / 2035 + 1);
}

std::vector<Scenario> AllScenarios(bool long_run) {
    std::vector<std::size_t> sizes = {1, 100, 2033, 2034, 2035, 4068, 4069, 4070, 5000};
    if (long_run) {
        for (std::size_t size = 2; size < 14000; size += 97) {
            sizes.push_back(size);
        }
    }
    std::vector<Scenario> scenarios;
    for (const std::size_t size : sizes) {
        for (const char* options : {"-s", "none", "-fs", "-vvvvvv", "-svvvvvv"}) {
            scenarios.push_back({options, size, "update"});
        }
        scenarios.push_back({"-f", size, "equal"});
        scenarios.push_back({"-s", size, "never"});
    }
    for (const char* options : {"-s", "none", "-i", "-vvvvvv", "-ivvvvvv", "-is"}) {
        scenarios.push_back({options, 100, "equal"});
    }
    scenarios.push_back({"-fi", 100, "update"});
    scenarios.push_back({"-fis", 3000, "equal"});
    scenarios.push_back({"none", 100, "never"});
    scenarios.push_back({"-fvvvvvv", 100, "never"});
    scenarios.push_back({"-s", 100, "blank"});
    scenarios.push_back({"alone", 100, "update"});
    scenarios.push_back({"-s", 0, "update"});
    return scenarios;
}

}  // namespace fault
