// SPDX-License-Identifier: Apache-2.0
#include "tools/image/ImageReport.h"

#include <algorithm>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

#include "common/Text.h"
#include "sim/SampleImage.h"

namespace tools {

using common::Escape;
using common::EscapeAndShowBlanks;
using common::Hex;

namespace {

std::string Quote(const std::string& bytes) {
    return '"' + EscapeAndShowBlanks(bytes) + '"';
}

std::string Line(const std::string& name, const std::string& value) {
    std::ostringstream line;
    line << "  " << std::left << std::setw(10) << name << value << "\n";
    return line.str();
}

std::string DescribeField(const std::string& field) {
    if (field.size() == sim::LABEL_SIZE) {
        return Quote(field);
    }
    return Quote(field) + " (" + std::to_string(field.size()) + " of " +
           std::to_string(sim::LABEL_SIZE) + " bytes)";
}

std::string DescribeLabel(const std::optional<std::string>& label) {
    return label ? Quote(*label) + " [" + std::to_string(label->size()) + "]"
                 : "none that the updater can read";
}

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

Finding MakeFinding(Grade grade, const std::string& code, const std::string& text) {
    Finding finding;
    finding.grade = grade;
    finding.code = code;
    finding.text = text;
    return finding;
}

Grade ImageReport::GetGrade() const {
    Grade worst = Grade::Clean;
    for (const Finding& finding : findings) {
        worst = std::max(worst, finding.grade);
    }
    return worst;
}

void ImageReport::Expect(const std::string& label_wanted) {
    expected_label = label_wanted;
    if (label != expected_label) {
        findings.push_back(MakeFinding(Grade::Unusable, "unexpected-label",
                                       "the label is not \"" + label_wanted + "\", as expected"));
    }
}

const char* NameOf(Grade grade) {
    switch (grade) {
        case Grade::Clean:
            return "clean";
        case Grade::Warnings:
            return "warning";
        case Grade::Unusable:
            break;
    }
    return "unusable";
}

std::string ToText(const ImageReport& report) {
    std::string text = Escape(report.path) + ":\n";
    if (report.is_read) {
        std::ostringstream wire_time;
        wire_time << std::fixed << std::setprecision(1) << report.wire_seconds;
        text += Line("size", std::to_string(report.size) + " bytes");
        if (report.segments) {
            text += Line("segments", std::to_string(*report.segments));
        }
        text += Line("wire time", wire_time.str() + " s at 400 kHz");
        if (!report.sha256.empty()) {
            text += Line("sha256", report.sha256);
        }
        text += Line("field", DescribeField(report.field));
        text += Line("label", DescribeLabel(report.label));
    }
    for (const Finding& finding : report.findings) {
        text += Line(NameOf(finding.grade), Escape(finding.text) + " (" + finding.code + ")");
    }
    if (report.findings.empty()) {
        text += Line(NameOf(Grade::Clean), "no problem found");
    }
    return text;
}

std::string ToJson(const std::vector<ImageReport>& reports) {
    nlohmann::json images = nlohmann::json::array();
    for (const ImageReport& report : reports) {
        images.push_back(JsonOf(report));
    }
    const nlohmann::json all = {{"images", images}, {"grade", NameOf(WorstGrade(reports))}};
    return all.dump(2) + "\n";
}

Grade WorstGrade(const std::vector<ImageReport>& reports) {
    Grade worst = Grade::Clean;
    for (const ImageReport& report : reports) {
        worst = std::max(worst, report.GetGrade());
    }
    return worst;
}

}  // namespace tools
