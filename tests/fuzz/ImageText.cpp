// SPDX-License-Identifier: Apache-2.0
// An input is a label as a person may want it, and the bytes of a label field that are to be shown.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "sim/SampleImage.h"
#include "tests/fuzz/LabelModel.h"
#include "tests/fuzz/Require.h"
#include "tools/image/ImageReport.h"
#include "tools/image/LabelField.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string label(reinterpret_cast<const char*>(data), size);
    const std::optional<std::string> field = tools::EncodeLabel(label);
    if (field) {
        fuzz::Require(field->size() == sim::LABEL_SIZE, "a field of 37 bytes");
        fuzz::Require(fuzz::ReadLabel(*field) == label, "the updater reads the label back");
    }

    tools::ImageReport report;
    report.path = label;
    report.field = label;
    report.label = label;
    report.findings.push_back({tools::Grade::Warnings, "code", label});
    fuzz::Require(!tools::ToText(report).empty(), "a text for people");
    fuzz::Require(nlohmann::json::parse(tools::ToJson({report})).is_object(),
                  "a text for programs");
    return 0;
}
