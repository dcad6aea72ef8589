// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tools/image/ImageReport.h"

namespace {

using tools::Grade;
using tools::ImageReport;

nlohmann::json JsonOf(const ImageReport& report) {
    return nlohmann::json::parse(tools::ToJson({report}))["images"][0];
}

TEST(ImageJson, HasTheExactBytesBeside) {
    ImageReport report;
    report.label = "1\xE9\"";
    report.segments = 455;
    report.findings.push_back(tools::MakeFinding(Grade::Warnings, "code", "text\x80"));
    const nlohmann::json json = JsonOf(report);
    EXPECT_EQ("1\\xe9\"", json["label"]);
    EXPECT_EQ("31e922", json["label_hex"]);
    EXPECT_EQ("code", json["findings"][0]["code"]);
    EXPECT_EQ("text\\x80", json["findings"][0]["text"]);
    EXPECT_EQ(455, json["segments"]);
}

TEST(ImageJson, HasTheWorstOfAllGrades) {
    std::vector<ImageReport> reports(3);
    reports[1].findings.push_back(tools::MakeFinding(Grade::Warnings, "code", "text"));
    const nlohmann::json json = nlohmann::json::parse(tools::ToJson(reports));
    EXPECT_EQ("clean", json["images"][2]["grade"]);
    EXPECT_EQ("warning", json["grade"]);
    EXPECT_EQ(Grade::Clean, tools::WorstGrade({}));
}

TEST(ImageJson, HasNoLabelOfAFileThatCannotBeRead) {
    ImageReport report;
    report.findings.push_back(tools::MakeFinding(Grade::Unusable, "unreadable", "why"));
    const nlohmann::json json = JsonOf(report);
    EXPECT_EQ("unusable", json["grade"]);
    EXPECT_EQ("unreadable", json["findings"][0]["code"]);
    EXPECT_TRUE(json["label"].is_null());
}

}  // namespace
