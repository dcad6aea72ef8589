// SPDX-License-Identifier: Apache-2.0
// The reception bits and programming statuses have the same values in the updater, and the same
// names in the decoders and on the page, as in the one table of them.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <vector>

#include "chip/HdChip.h"
#include "lm/HcLogical.h"
#include "sim/StatusNames.h"

namespace sim {
namespace {

static_assert(int{RECEIVED} == HcLogical::STATUS_RECEIVED, "");
static_assert(int{COUNT_MISMATCH} == HcLogical::STATUS_COUNT_MISMATCH, "");
static_assert(int{HEADER_MISSING} == HcLogical::STATUS_HEADER_MISSING, "");
static_assert(int{CHECKSUM_MISMATCH} == HcLogical::STATUS_CHECKSUM_MISMATCH, "");
static_assert(int{OVERFLOW_BIT} == HcLogical::STATUS_OVERFLOW, "");
static_assert(int{UNKNOWN_OPCODE_BITS} == HcLogical::STATUS_UNKNOWN_OPCODE, "");
static_assert(int{STATUS_COMPLETE} == PGM_COMPLETE, "");
static_assert(int{STATUS_VERIFICATION_FAILED} == PGM_VERIFICATION_FAILED, "");
static_assert(int{STATUS_IDLE} == PGM_IDLE, "");
static_assert(int{STATUS_ERASING} == PGM_ERASING, "");
static_assert(int{STATUS_PROGRAMMING} == PGM_PROGRAMMING, "");
static_assert(int{STATUS_VERIFYING} == PGM_VERIFYING, "");
static_assert(int{STATUS_SECURITY_MISMATCH} == PGM_SECURITY_MISMATCH, "");
static_assert(int{STATUS_SINGLE_ON_DUAL} == PGM_SINGLE_ON_DUAL, "");
static_assert(int{STATUS_DUAL_ON_SINGLE} == PGM_DUAL_ON_SINGLE, "");

std::string File(const std::string& path) {
    std::ifstream file(BBP_SOURCE_FOLDER "/" + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string Hexadecimal(unsigned value) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", value);
    return text;
}

std::string Capitalised(std::string text) {
    text[0] = static_cast<char>(std::toupper(text[0]));
    return text;
}

// What a file must contain.
using Parts = std::vector<std::string>;

Parts PartsOfDissector() {
    Parts parts;
    for (const ReceptionBit& bit : RECEPTION_BITS) {
        const bool one = (bit.mask & (bit.mask - 1)) == 0;
        parts.push_back(std::string("(\"bbp.status_") + bit.name + "\", \"" +
                        Capitalised(bit.meaning) + "\", " + (one ? "8, nil, " : "base.HEX, nil, ") +
                        Hexadecimal(bit.mask) + ")");
    }
    for (const ProgramStatusName& known : PROGRAM_STATUSES) {
        parts.push_back("[" + std::to_string(known.status) + "] = \"" + known.meaning + "\",");
    }
    return parts;
}

Parts PartsOfDecoder() {
    Parts parts;
    for (const ReceptionBit& bit : RECEPTION_BITS) {
        // The decoder has words of its own for what is no failure.
        const bool failure = bit.mask != RECEIVED && bit.mask != COUNT_MISMATCH;
        parts.push_back(failure ? "(" + Hexadecimal(bit.mask) + ", '" + bit.meaning + "')"
                                : Hexadecimal(bit.mask));
    }
    for (const ProgramStatusName& known : PROGRAM_STATUSES) {
        parts.push_back(std::to_string(known.status) + ": '" + known.meaning + "'");
    }
    return parts;
}

Parts PartsOfPage() {
    Parts parts;
    for (const ReceptionBit& bit : RECEPTION_BITS) {
        parts.push_back("| " + Hexadecimal(bit.mask) + " | " + bit.meaning);
    }
    for (const ProgramStatusName& known : PROGRAM_STATUSES) {
        parts.push_back("\n| " + std::to_string(known.status) + " | " + known.meaning + " |");
    }
    return parts;
}

std::string FirstMissing(const std::string& text, const Parts& parts) {
    for (const std::string& part : parts) {
        if (text.find(part) == std::string::npos) {
            return part;
        }
    }
    return "";
}

void ExpectAllOf(const std::string& path, const Parts& parts) {
    const std::string text = File(path);
    EXPECT_EQ("", FirstMissing(text, parts)) << path;
    // Each omission is seen.
    for (const std::string& part : parts) {
        std::string without = text;
        for (std::size_t at; (at = without.find(part)) != std::string::npos;) {
            without.erase(at, part.size());
        }
        EXPECT_NE("", FirstMissing(without, parts)) << path << ": " << part;
    }
}

TEST(SimStatusNames, AreTheDissectors) {
    ExpectAllOf("tools/wireshark/bbp.lua", PartsOfDissector());
}

TEST(SimStatusNames, AreTheDecoders) {
    ExpectAllOf("tools/sigrok/bbp/pd.py", PartsOfDecoder());
}

TEST(SimStatusNames, AreThePages) {
    ExpectAllOf("docs/protocol.md", PartsOfPage());
}

// What the updater says of a bit can be looked up.
TEST(SimStatusNames, AreTheUpdatersMessagesOnThePageForRecovery) {
    const std::string source = File("src/lm/HcLogical.cpp");
    const std::regex said("STATUS_\\w+\\) \\{\\s+HUTIL_ERROR\\(\"([^\"]*)\"\\)");
    Parts parts;
    for (std::sregex_iterator at(source.begin(), source.end(), said), end; at != end; ++at) {
        parts.push_back("`" + (*at)[1].str() + "`");
    }
    EXPECT_EQ(RECEPTION_BITS.size() - 2, parts.size()) << "all but RECEIVED and COUNT_MISMATCH";
    ExpectAllOf("docs/recovery.md", parts);
}

TEST(SimStatusNames, CoverEveryBitOnceAndEveryStatusOnce) {
    unsigned bits = 0;
    for (const ReceptionBit& bit : RECEPTION_BITS) {
        EXPECT_EQ(0u, bits & bit.mask) << bit.meaning;
        bits |= bit.mask;
    }
    EXPECT_EQ(0xFFu, bits);
    std::set<unsigned> statuses;
    for (const ProgramStatusName& known : PROGRAM_STATUSES) {
        statuses.insert(known.status);
    }
    EXPECT_EQ(PROGRAM_STATUSES.size(), statuses.size());
}

TEST(SimStatusNames, SayWhatBecameOfAMessage) {
    EXPECT_EQ("", ReceptionText(RECEIVED));
    EXPECT_EQ(", count mismatch", ReceptionText(RECEIVED | COUNT_MISMATCH));
    EXPECT_EQ(", not taken", ReceptionText(0));
    EXPECT_EQ(", not taken, header missing, overflow",
              ReceptionText(HEADER_MISSING | OVERFLOW_BIT));
    EXPECT_EQ(", not taken, unknown opcode", ReceptionText(0x80));
    EXPECT_EQ("erasing (4)", ProgramStatusText(4));
    EXPECT_EQ("reserved status (10)", ProgramStatusText(10));
}

}  // namespace
}  // namespace sim
