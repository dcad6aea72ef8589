// SPDX-License-Identifier: Apache-2.0
// What there is to say about an image, and how it is said to a person and to a program.
#ifndef BBPFLASH_TOOLS_IMAGE_IMAGEREPORT_H
#define BBPFLASH_TOOLS_IMAGE_IMAGEREPORT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tools {

// In rising order; the values are bbpimage's exit statuses.
enum class Grade { Clean = 0, Warnings = 1, Unusable = 2 };

// One problem of an image. Unusable: no run of the updater with it can be expected to succeed.
struct Finding {
    Grade grade;
    std::string code;  // stable, for programs
    std::string text;  // for people
};

Finding MakeFinding(Grade grade, const std::string& code, const std::string& text);

struct ImageReport {
    std::string path;
    bool is_read = false;              // what follows is known
    std::uint64_t size = 0;            // bytes
    std::optional<int> segments;       // of the download; nothing when it cannot be numbered
    double wire_seconds = 0;           // the download's bytes at 400 kHz, replies included
    std::string sha256;                // lower-case hexadecimal digits; empty when not asked for
    std::string field;                 // the label field, as far as the file has it
    std::optional<std::string> label;  // as the updater reads it
    std::optional<std::string> expected_label;
    std::vector<Finding> findings;

    // The worst finding's.
    Grade GetGrade() const;

    // The label must be this one: another is a finding.
    void Expect(const std::string& label_wanted);
};

const char* NameOf(Grade grade);

std::string ToText(const ImageReport& report);

// One object, as bbpimage.schema.json has it. Texts with bytes from the images are escaped; their
// exact bytes stand beside in hexadecimal.
std::string ToJson(const std::vector<ImageReport>& reports);

// The worst of these; clean if there is none.
Grade WorstGrade(const std::vector<ImageReport>& reports);

}  // namespace tools

#endif
