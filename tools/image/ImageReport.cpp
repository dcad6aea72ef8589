// SPDX-License-Identifier: Apache-2.0
#include "tools/image/ImageReport.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

#include "common/Text.h"
#include "sim/SampleImage.h"

namespace tools {

using common::Escape;
using common::EscapeAndShowBlanks;

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

Grade WorstGrade(const std::vector<ImageReport>& reports) {
    Grade worst = Grade::Clean;
    for (const ImageReport& report : reports) {
        worst = std::max(worst, report.GetGrade());
    }
    return worst;
}

}  // namespace tools
