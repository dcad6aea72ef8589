// SPDX-License-Identifier: Apache-2.0
#include <nlohmann/json.hpp>

#include "common/Text.h"
#include "tools/image/ImageReport.h"

namespace tools {

using common::Escape;
using common::Hex;

namespace {

nlohmann::json JsonOf(const ImageReport& report) {
    nlohmann::json findings = nlohmann::json::array();
    for (const Finding& finding : report.findings) {
        findings.push_back({{"grade", NameOf(finding.grade)},
                            {"code", finding.code},
                            {"text", Escape(finding.text)}});
    }
    nlohmann::json json = {{"path", Escape(report.path)},
                           {"size", report.size},
                           {"segments", nullptr},
                           {"wire_seconds", report.wire_seconds},
                           {"sha256", report.sha256},
                           {"field", Escape(report.field)},
                           {"field_hex", Hex(report.field)},
                           {"label", nullptr},
                           {"label_hex", nullptr},
                           {"grade", NameOf(report.GetGrade())},
                           {"expected_label", nullptr},
                           {"findings", findings}};
    if (report.segments) {
        json["segments"] = *report.segments;
    }
    if (report.expected_label) {
        json["expected_label"] = Escape(*report.expected_label);
    }
    if (report.label) {
        json["label"] = Escape(*report.label);
        json["label_hex"] = Hex(*report.label);
    }
    return json;
}

}  // namespace

std::string ToJson(const std::vector<ImageReport>& reports) {
    nlohmann::json images = nlohmann::json::array();
    for (const ImageReport& report : reports) {
        images.push_back(JsonOf(report));
    }
    const nlohmann::json all = {{"images", images}, {"grade", NameOf(WorstGrade(reports))}};
    return all.dump(2) + "\n";
}

}  // namespace tools
