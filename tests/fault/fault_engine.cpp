// SPDX-License-Identifier: Apache-2.0
// Repeats updates with every call failing in every way that it can, and judges each run.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <vector>

#include "common/CommandLine.h"
#include "tests/fault/Engine.h"
#include "tests/fault/Runner.h"

namespace {

int Replay(const std::string& id) {
    const std::size_t slash = id.find('/');
    if (slash == std::string::npos) {
        throw std::invalid_argument("an id is <scenario>/<fault>: " + id);
    }
    const fault::Scenario scenario = fault::Scenario::Of(id.substr(0, slash));
    const fault::Injection injection = fault::Injection::Of(id.substr(slash + 1));
    std::string story;
    const fault::Verdict verdict = fault::RunOne(scenario, injection, &story);
    std::cout << story << "\noutcome: " << verdict.outcome
              << (verdict.struck ? "" : " (the fault has not struck)") << "\n";
    if (verdict.difference.empty()) {
        std::cout << "as it must be\n";
        return 0;
    }
    std::cout << "FAILED " << id << "\n  " << verdict.difference << "\n";
    return 1;
}

std::string ReadAll(int descriptor) {
    std::string text;
    char buffer[4096];
    for (ssize_t got = 0; (got = read(descriptor, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
}

void WriteAll(int descriptor, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(descriptor, text.data() + written, text.size() - written);
        if (count <= 0) {
            return;
        }
        written += static_cast<std::size_t>(count);
    }
}

// Shares the selection out among processes; which runs it has does not depend on their number. A
// process that does not come to its end is a failure.
fault::Tally RunInProcesses(const fault::Selection& selection, unsigned jobs) {
    std::vector<int> pipes;
    for (unsigned job = 0; job < jobs; ++job) {
        int ends[2];
        if (pipe(ends) != 0) {
            throw std::runtime_error("no pipe");
        }
        std::cout.flush();
        if (fork() == 0) {
            fault::Selection mine = selection;
            mine.shard = selection.shard + job * selection.shards;
            mine.shards = selection.shards * jobs;
            WriteAll(ends[1], fault::RunAll(mine).Pack());
            _exit(0);
        }
        close(ends[1]);
        pipes.push_back(ends[0]);
    }
    fault::Tally sum;
    for (const int descriptor : pipes) {
        sum.Add(fault::Tally::Unpack(ReadAll(descriptor)));
        close(descriptor);
    }
    for (int status = 0; wait(&status) > 0;) {
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            ++sum.failed;
            sum.failures.emplace_back("a process of the engine has died");
        }
    }
    return sum;
}

}  // namespace

int main(int argc, char** argv) try {
    constexpr unsigned MOST = std::numeric_limits<unsigned>::max();
    common::CommandLine line("Updates with every call failing in every way, in virtual time.",
                             "fault_engine", "");
    fault::Selection selection;
    std::string replay;
    unsigned jobs = 1;
    unsigned at_least = 0;
    line.Flag("--all", selection.long_run, "many more runs: about an hour");
    line.Value("--shard", selection.shard, 0, MOST, "which part, from 0");
    line.Value("--shards", selection.shards, 1, MOST, "of how many parts");
    line.Value("--every", selection.every, 1, MOST, "only each such run");
    line.Flag("--first", selection.only_whether, "end with the first run that fails");
    line.Value("--jobs", jobs, 1, MOST, "processes at once");
    line.Value("--at-least", at_least, 0, MOST, "fewer distinct runs are a failure");
    line.Value("--replay", replay, "only the run with this id, verbosely");
    const std::optional<int> asked = line.Parse(argc, argv, 2, "; --help tells more");
    if (asked) {
        return *asked;
    }
    if (selection.shard >= selection.shards) {
        throw std::invalid_argument("the last of these shards is " +
                                    std::to_string(selection.shards - 1));
    }
    if (!replay.empty()) {
        return Replay(replay);
    }
    const fault::Tally tally =
        jobs == 1 ? fault::RunAll(selection) : RunInProcesses(selection, jobs);
    tally.Print(std::cout);
    const std::uint64_t most = *std::max_element(tally.kinds.begin(), tally.kinds.end());
    if (most * 4 > tally.runs) {
        std::cout << "a kind of fault is more than a quarter of all runs\n";
        return 1;
    }
    if (tally.runs < at_least) {
        std::cout << "fewer than " << at_least << " runs\n";
        return 1;
    }
    return tally.failed == 0 ? 0 : 1;
} catch (const std::exception& error) {
    std::cerr << "fault_engine: " << error.what() << "\n";
    return 2;
}
