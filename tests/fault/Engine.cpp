// SPDX-License-Identifier: Apache-2.0
#include "tests/fault/Engine.h"

#include <functional>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <unordered_set>

#include "tests/fault/Catalogue.h"
#include "tests/fault/Runner.h"
#include "tests/fault/Scenario.h"

namespace fault {

namespace {

constexpr std::size_t MOST_FAILURES = 20;

constexpr Kind ALL_KINDS[] = {Kind::Bus,    Kind::Reply,  Kind::Chip, Kind::File,
                              Kind::Memory, Kind::Output, Kind::Line, Kind::Pair};

// In this scenario nothing is left out: every bit of every reply, every byte of every transfer.
constexpr const char* EXHAUSTIVE = "-s,100,update";

// The most runs of a kind in any other scenario; evenly spread over all there are.
std::uint64_t Quota(Kind kind, bool long_run) {
    switch (kind) {
        case Kind::Reply:
            return long_run ? 2200 : 1000;
        case Kind::Bus:
        case Kind::Chip:
        case Kind::Pair:
            return long_run ? 2200 : 1500;
        case Kind::File:
        case Kind::Memory:
        case Kind::Output:
        case Kind::Line:
            return long_run ? 1000 : 600;
    }
    return 0;
}

class Runs {
  public:
    explicit Runs(const Selection& selection) : selection_(selection) {}

    void Make(const Scenario& scenario) {
        made_.clear();
        const Catalogue catalogue(scenario);
        if (scenario.IsWhole()) {
            catalogue.ForEachCallOnce([&](const Injection& one) { Take(scenario, one); });
        }
        for (const Kind kind : ALL_KINDS) {
            MakeKind(scenario, catalogue, kind);
        }
        ++scenarios_;
    }

    const Tally& Sum() const { return tally_; }

    bool IsDecided() const { return selection_.only_whether && tally_.failed > 0; }

  private:
    void MakeKind(const Scenario& scenario, const Catalogue& catalogue, Kind kind) {
        constexpr std::uint64_t STRIDE = 7919;
        std::uint64_t total = 0;
        catalogue.ForEach(kind, [&](const Injection&) { ++total; });
        const std::uint64_t quota =
            scenario.Name() == EXHAUSTIVE ? total : Quota(kind, selection_.long_run);
        // Each scenario leaves out others.
        std::uint64_t place = scenarios_ * STRIDE;
        catalogue.ForEach(kind, [&](const Injection& injection) {
            const std::uint64_t at = place++ % total;
            if (total <= quota || at * quota / total != (at + 1) * quota / total) {
                Take(scenario, injection);
            }
        });
    }

    void Take(const Scenario& scenario, const Injection& injection) {
        const std::uint64_t number = number_++;
        if (IsDecided()) {
            return;
        }
        if (number % selection_.every != 0 ||
            number / selection_.every % selection_.shards != selection_.shard) {
            return;
        }
        const std::string name = injection.Name();
        if (!made_.insert(std::hash<std::string>()(name)).second) {
            return;
        }
        const Verdict verdict = RunOne(scenario, injection);
        ++tally_.runs;
        ++tally_.kinds[static_cast<std::size_t>(injection.kind)];
        ++tally_.outcomes[verdict.outcome];
        tally_.struck += verdict.struck ? 1 : 0;
        if (!verdict.difference.empty()) {
            ++tally_.failed;
            if (tally_.failures.size() < MOST_FAILURES) {
                tally_.failures.push_back(scenario.Name() + "/" + name + "\n  " +
                                          verdict.difference);
            }
        }
    }

    Selection selection_;
    Tally tally_;
    std::uint64_t number_ = 0;
    std::uint64_t scenarios_ = 0;
    std::unordered_set<std::size_t> made_;  // of this scenario
};

}  // namespace

Tally RunAll(const Selection& selection) {
    Runs runs(selection);
    for (const Scenario& scenario : AllScenarios(selection.long_run)) {
        if (!runs.IsDecided()) {
            runs.Make(scenario);
        }
    }
    return runs.Sum();
}

void Tally::Add(const Tally& other) {
    runs += other.runs;
    struck += other.struck;
    failed += other.failed;
    for (std::size_t i = 0; i < KINDS; ++i) {
        kinds[i] += other.kinds[i];
    }
    for (const auto& [name, count] : other.outcomes) {
        outcomes[name] += count;
    }
    failures.insert(failures.end(), other.failures.begin(), other.failures.end());
}

void Tally::Print(std::ostream& out) const {
    for (const std::string& failure : failures) {
        out << "FAILED " << failure << "\n";
    }
    const auto row = [&](const std::string& name, std::uint64_t count) {
        out << "  " << std::left << std::setw(22) << name << std::right << std::setw(10) << count
            << std::setw(8) << std::fixed << std::setprecision(1)
            << 100.0 * static_cast<double>(count) / static_cast<double>(runs) << " %\n";
    };
    out << "fault runs by kind of fault:\n";
    for (const Kind kind : ALL_KINDS) {
        row(NameOf(kind), kinds[static_cast<std::size_t>(kind)]);
    }
    out << "by outcome:\n";
    for (const auto& [name, count] : outcomes) {
        row(name.empty() ? "unexplained" : name, count);
    }
    out << runs << " distinct runs, in " << struck << " the fault has struck, " << failed
        << " failed\n";
}

std::string Tally::Pack() const {
    std::ostringstream text;
    text << runs << ' ' << struck << ' ' << failed;
    for (const std::uint64_t count : kinds) {
        text << ' ' << count;
    }
    text << '\n' << outcomes.size() << '\n';
    for (const auto& [name, count] : outcomes) {
        text << count << ' ' << name << '\n';
    }
    for (const std::string& failure : failures) {
        text << failure << '\0';
    }
    return text.str();
}

Tally Tally::Unpack(const std::string& text) {
    Tally tally;
    std::istringstream stream(text);
    stream >> tally.runs >> tally.struck >> tally.failed;
    for (std::uint64_t& count : tally.kinds) {
        stream >> count;
    }
    std::size_t outcomes = 0;
    stream >> outcomes;
    for (std::size_t i = 0; i < outcomes; ++i) {
        std::uint64_t count = 0;
        std::string name;
        stream >> count;
        stream.get();
        std::getline(stream, name);
        tally.outcomes[name] = count;
    }
    if (outcomes == 0) {
        stream.get();
    }
    for (std::string failure; std::getline(stream, failure, '\0');) {
        tally.failures.push_back(failure);
    }
    return tally;
}

}  // namespace fault
