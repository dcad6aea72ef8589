// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_FAULT_ENGINE_H
#define BBPFLASH_TESTS_FAULT_ENGINE_H

#include <array>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "tests/fault/Injection.h"

namespace fault {

// Which part of the runs is made.
struct Selection {
    bool long_run = false;  // more scenarios and more of each kind
    unsigned shard = 0;     // of `shards`
    unsigned shards = 1;
    unsigned every = 1;         // only each such run: a sample
    bool only_whether = false;  // whether any run fails: the first one that does is the last
};

// The sum of many runs.
struct Tally {
    std::uint64_t runs = 0;
    std::uint64_t struck = 0;  // in which the fault has happened
    std::uint64_t failed = 0;
    std::array<std::uint64_t, KINDS> kinds{};
    std::map<std::string, std::uint64_t> outcomes;
    std::vector<std::string> failures;  // the first few: id and difference

    void Add(const Tally& other);
    void Print(std::ostream& out) const;
    // As text, for a pipe, and back.
    std::string Pack() const;
    static Tally Unpack(const std::string& text);
};

// Makes the selected runs. Each has an id of its own: "<scenario>/<injection>".
Tally RunAll(const Selection& selection);

}  // namespace fault

#endif
